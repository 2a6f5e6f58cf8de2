"""Emits the parcelables (a class with value fields, comparisons and toString) and the enums."""

from .cpp import SCALARS, cpp_type, has_fd
from .model import AidlError, TypeRef, kind, walk


def _render(t, expr, out, indent, depth=0):
    """Appends the statements that write the text form of `expr` (of type t) to _aidl_os."""
    pad = " " * indent
    if t.array:
        element = TypeRef(t.name, t.line)
        element.decl = t.decl
        if t.nullable:
            out.append(f"{pad}if (!{expr}) {{")
            out.append(f'{pad}    _aidl_os << "null";')
            out.append(f"{pad}}} else {{")
            _render_list(element, f"(*{expr})", True, out, indent + 4, depth)
            out.append(f"{pad}}}")
        else:
            _render_list(element, expr, False, out, indent, depth)
        return
    if t.name == "byte":
        out.append(f"{pad}_aidl_os << static_cast<int>({expr});")
    elif t.name == "boolean":
        out.append(f'{pad}_aidl_os << ({expr} ? "true" : "false");')
    elif t.name in ("int", "long", "String"):
        out.append(f"{pad}_aidl_os << {expr};")
    elif t.name == "ParcelFileDescriptor":
        out.append(f'{pad}_aidl_os << "fd:" << {expr}.get();')
    elif t.decl.kind == "enum":
        namespace = t.decl.cpp_name().rsplit("::", 1)[0]
        out.append(f"{pad}_aidl_os << {namespace}::toString({expr});")
    else:
        out.append(f"{pad}_aidl_os << {expr}.toString();")


def _render_list(element, expr, optional_elements, out, indent, depth):
    pad = " " * indent
    i = f"_aidl_i{depth}"
    out.append(f'{pad}_aidl_os << "[";')
    out.append(f"{pad}for (size_t {i} = 0; {i} < {expr}.size(); ++{i}) {{")
    out.append(f'{pad}    if ({i} != 0) _aidl_os << ", ";')
    if optional_elements:
        out.append(f"{pad}    if (!{expr}[{i}]) {{")
        out.append(f'{pad}        _aidl_os << "null";')
        out.append(f"{pad}    }} else {{")
        _render(element, f"(*{expr}[{i}])", out, indent + 8, depth + 1)
        out.append(f"{pad}    }}")
    else:
        _render(element, f"{expr}[{i}]", out, indent + 4, depth + 1)
    out.append(f"{pad}}}")
    out.append(f'{pad}_aidl_os << "]";')


def _nested_in_order(decl):
    """Nested records ordered so that each comes after the siblings its fields hold."""
    siblings = {n.name: n for n in decl.nested}
    ordered, state = [], {}

    def visit(n):
        if state.get(n.name) == "done":
            return
        if state.get(n.name) == "visiting":
            raise AidlError(f"{decl.top().file}:{n.line}: nested records hold each other")
        state[n.name] = "visiting"
        for d in walk(n):
            for f in d.fields:
                target = f.type.decl
                while target is not None and target.parent is not decl:
                    target = target.parent
                if target is not None and target.name in siblings:
                    if target is not n:
                        visit(target)
        state[n.name] = "done"
        ordered.append(n)

    for n in decl.nested:
        visit(n)
    return ordered


def _record_class(decl, indent):
    pad = " " * indent
    name = decl.name
    body = []
    for nested in _nested_in_order(decl):
        body.extend(_record_class(nested, indent + 4))
        body.append("")
    body.append(f"{pad}    static const char* descriptor;")
    body.append("")
    for f in decl.fields:
        if f.default is not None:
            init = f" = {f.default}"
        elif kind(f.type) in SCALARS and not f.type.array:
            init = " = false" if f.type.name == "boolean" else " = 0"
        elif kind(f.type) == "enum" and not f.type.array:
            init = "{}"
        else:
            init = ""
        body.append(f"{pad}    {cpp_type(f.type)} {f.name}{init};")
    body.append("")
    if has_fd(decl):
        body += [
            f"{pad}    {name}() = default;",
            f"{pad}    // A copy owns a duplicate of each descriptor.",
            f"{pad}    {name}(const {name}& other);",
            f"{pad}    {name}& operator=(const {name}& other);",
            f"{pad}    {name}({name}&&) = default;",
            f"{pad}    {name}& operator=({name}&&) = default;",
            "",
        ]
    for op in ("==", "!=", "<", ">", "<=", ">="):
        body.append(f"{pad}    bool operator{op}(const {name}& _aidl_rhs) const {{")
        body.append(f"{pad}        return _aidl_fields() {op} _aidl_rhs._aidl_fields();")
        body.append(f"{pad}    }}")
    body.append("")
    body.append(f"{pad}    std::string toString() const {{")
    body.append(f"{pad}        std::ostringstream _aidl_os;")
    body.append(f'{pad}        _aidl_os << "{name}{{";')
    for i, f in enumerate(decl.fields):
        label = (", " if i else "") + f.name + ": "
        body.append(f'{pad}        _aidl_os << "{label}";')
        _render(f.type, f.name, body, indent + 8)
    body.append(f'{pad}        _aidl_os << "}}";')
    body.append(f"{pad}        return _aidl_os.str();")
    body.append(f"{pad}    }}")
    body.append("")
    body.append(f"{pad}  private:")
    # Descriptors compare by number, every other field by reference.
    types = ", ".join(
        "int" if f.type.name == "ParcelFileDescriptor" else f"const {cpp_type(f.type)}&"
        for f in decl.fields
    )
    values = ", ".join(
        f"{f.name}.get()" if f.type.name == "ParcelFileDescriptor" else f.name for f in decl.fields
    )
    body.append(f"{pad}    std::tuple<{types}> _aidl_fields() const {{")
    body.append(f"{pad}        return std::tuple<{types}>({values});")
    body.append(f"{pad}    }}")
    return [f"{pad}class {name} {{", f"{pad}  public:"] + body + [f"{pad}}};"]


def record_header(layout, decl):
    std = {"cstdint", "sstream", "string", "tuple", "vector"}
    platform, package = set(), set()
    for d in walk(decl):
        for f in d.fields:
            if f.type.nullable:
                std.add("optional")
            if f.type.name == "ParcelFileDescriptor":
                platform.add("#include <android/binder_auto_utils.h>")
            target = f.type.decl
            if target is not None and target.top() is not decl:
                package.add(layout.include(target))
    includes = sorted(platform) + ([""] if platform else []) + sorted(package)
    includes += ([""] if package else []) + layout.std(std)
    return layout.header(decl, includes, _record_class(decl, 0))

def record_source(layout, decl):
    lines = layout.banner(decl) + [layout.include(decl), "", f"namespace {layout.namespace} {{", ""]
    for d in walk(decl):
        scoped = "::".join(d.path())
        lines.append(f'const char* {scoped}::descriptor = "{d.qualified()}";')
    for d in walk(decl):
        if not has_fd(d):
            continue
        scoped = "::".join(d.path())

        def copy(f):
            return f"other.{f.name}" + (
                ".dup()" if f.type.name == "ParcelFileDescriptor" else ""
            )

        lines.append("")
        inits = ", ".join(f"{f.name}({copy(f)})" for f in d.fields)
        lines.append(f"{scoped}::{d.name}(const {d.name}& other) : {inits} {{}}")
        lines.append("")
        lines.append(f"{scoped}& {scoped}::operator=(const {d.name}& other) {{")
        for f in d.fields:
            lines.append(f"    {f.name} = {copy(f)};")
        lines.append("    return *this;")
        lines.append("}")
    lines += ["", f"}}  // namespace {layout.namespace}"]
    return "\n".join(lines) + "\n"

def enum_header(layout, decl):
    name, qualified = decl.name, decl.cpp_name()
    body = [f"enum class {name} : int32_t {{"]
    body += [f"    {m} = {v}," for m, v in decl.members]
    body += ["};", ""]
    body += ["// The member's name, or the decimal number for a value that is no member."]
    body += [f"inline std::string toString({name} value) {{", "    switch (value) {"]
    body += [f'        case {name}::{m}: return "{m}";' for m, _ in decl.members]
    body += ["        default: return std::to_string(static_cast<int32_t>(value));"]
    body += ["    }", "}"]
    text = layout.header(
        decl,
        ["#include <android/binder_enums.h>", ""] + layout.std({"array", "cstdint", "string"}),
        body,
    )
    text += "\n".join(
        [
            "",
            "namespace ndk {",
            "namespace internal {",
            "",
            "template <>",
            f"constexpr inline std::array<{qualified}, {len(decl.members)}>",
            f"        enum_values<{qualified}> = {{",
        ]
        + [f"                {qualified}::{m}," for m, _ in decl.members]
        + [
            "};",
            "",
            "}  // namespace internal",
            "}  // namespace ndk",
        ]
    )
    return text + "\n"
