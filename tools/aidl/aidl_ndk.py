#!/usr/bin/env python3
"""Generates the NDK-backend C++ of an AIDL package for the host build.

The .aidl files stay the one source of the interface; this turns them into the headers and
sources that the platform's AIDL compiler lays out for the NDK backend (namespace
aidl::<package>, headers aidl/<package path>/<Type>.h and Bn<Name>.h), so that code including them
builds the same way on the host and on a device.

The host has no parcels and no binder driver: a call on an interface is a direct C++ call on the
local object. So nothing here reads or writes parcels, the transaction handler of every binder
class rejects every transaction, and no Bp proxy classes are generated: fromBinder() only ever
hands back the local object.

Only the constructs that vendor.orbo.hardware.voxa uses are understood; anything else stops the
generator with an error naming the file and line:
  - one top-level @VintfStability parcelable, enum or interface per file, named as the file;
  - parcelables with nested @VintfStability parcelables, and fields of type int, long, boolean,
    String, ParcelFileDescriptor, byte[], an enum, an array of records or a @nullable array of
    records; int fields may carry an integer default;
  - @Backing(type="int") enums whose members all have explicit, distinct values;
  - interface methods returning void or int, with arguments `int`, `in <record>`,
    `in <interface>` or `out List<String>`.

Usage:
  aidl_ndk.py --out DIR --version N --hash-file FILE X.aidl...   writes DIR/include, DIR/src
  aidl_ndk.py --list X.aidl...                                   prints the paths it would write
"""

import argparse
import os
import re
import sys

_TOKEN_RE = re.compile(
    r"""
      (?P<ws>[ \t\r\n]+)
    | (?P<comment>//[^\n]*|/\*.*?\*/)
    | (?P<string>"[^"\n]*")
    | (?P<number>-?[0-9]+)
    | (?P<ident>[A-Za-z_][A-Za-z0-9_]*(?:\.[A-Za-z_][A-Za-z0-9_]*)*)
    | (?P<punct>[{}()\[\];,=<>@])
    """,
    re.S | re.X,
)

_SCALARS = {"int": "int32_t", "long": "int64_t", "boolean": "bool"}


class AidlError(Exception):
    pass


class Token:
    def __init__(self, kind, text, line):
        self.kind = kind
        self.text = text
        self.line = line


class TypeRef:
    """A type as written: a (possibly qualified) name, an optional List<> argument, []."""

    def __init__(self, name, line, arg=None, array=False):
        self.name = name
        self.line = line
        self.arg = arg
        self.array = array
        self.nullable = False
        self.decl = None  # the package declaration it names, once resolved


class Field:
    def __init__(self, type_ref, name, default, line):
        self.type = type_ref
        self.name = name
        self.default = default
        self.line = line


class Arg:
    def __init__(self, direction, type_ref, name, line):
        self.direction = direction
        self.type = type_ref
        self.name = name
        self.line = line


class Method:
    def __init__(self, ret, name, args, line):
        self.ret = ret
        self.name = name
        self.args = args
        self.line = line


class Decl:
    """A parcelable, enum or interface; nested parcelables hang off their parent."""

    def __init__(self, kind, name, line, parent=None):
        self.kind = kind
        self.name = name
        self.line = line
        self.parent = parent
        self.fields = []
        self.nested = []
        self.members = []  # enum: (name, value)
        self.methods = []
        self.package = None
        self.source = None  # path below the package root
        self.file = None  # path as given

    def path(self):
        return (self.parent.path() if self.parent else []) + [self.name]

    def top(self):
        return self.parent.top() if self.parent else self

    def qualified(self):
        return ".".join([self.top().package] + self.path())

    def cpp_name(self):
        return "::" + "::".join(["aidl"] + self.top().package.split(".") + self.path())


def _tokenize(text, source):
    tokens = []
    pos, line = 0, 1
    while pos < len(text):
        m = _TOKEN_RE.match(text, pos)
        if not m:
            raise AidlError(f"{source}:{line}: unexpected text {text[pos:pos + 20]!r}")
        kind = m.lastgroup
        if kind not in ("ws", "comment"):
            tokens.append(Token(kind, m.group(), line))
        line += m.group().count("\n")
        pos = m.end()
    tokens.append(Token("eof", "", line))
    return tokens


class _Parser:
    def __init__(self, text, source):
        self.source = source
        self.tokens = _tokenize(text, source)
        self.pos = 0

    def error(self, message, line=None):
        line = self.peek().line if line is None else line
        return AidlError(f"{self.source}:{line}: {message}")

    def peek(self):
        return self.tokens[self.pos]

    def take(self):
        token = self.tokens[self.pos]
        self.pos += 1
        return token

    def accept(self, text):
        if self.peek().text == text and self.peek().kind != "string":
            self.pos += 1
            return True
        return False

    def expect(self, text):
        if not self.accept(text):
            raise self.error(f"expected '{text}', found '{self.peek().text}'")

    def ident(self, what, qualified=False):
        token = self.take()
        if token.kind != "ident" or (not qualified and "." in token.text):
            raise self.error(f"expected {what}, found '{token.text}'", token.line)
        return token.text

    def annotations(self):
        found = {}
        while self.accept("@"):
            line = self.peek().line
            name = self.ident("an annotation name")
            value = None
            if self.accept("("):
                key = self.ident("an annotation parameter")
                self.expect("=")
                token = self.take()
                if token.kind != "string":
                    raise self.error("expected a string", token.line)
                value = (key, token.text[1:-1])
                self.expect(")")
            if name in found:
                raise self.error(f"@{name} given twice", line)
            found[name] = (value, line)
        return found

    def document(self):
        self.expect("package")
        package = self.ident("a package name", qualified=True)
        self.expect(";")
        imports = []
        while self.accept("import"):
            imports.append((self.ident("an imported type", qualified=True), self.peek().line))
            self.expect(";")
        annotations = self.annotations()
        decl = self.declaration(annotations, None)
        if self.peek().kind != "eof":
            raise self.error("one type per file: unexpected text after the declaration")
        decl.package = package
        return decl, imports

    def declaration(self, annotations, parent):
        line = self.peek().line
        keyword = self.take().text
        if keyword not in ("parcelable", "enum", "interface"):
            raise self.error(f"unsupported declaration '{keyword}'", line)
        if parent is not None and keyword != "parcelable":
            raise self.error(f"nested {keyword} is not supported", line)
        allowed = {"VintfStability"} | ({"Backing"} if keyword == "enum" else set())
        for name, (value, at) in annotations.items():
            if name not in allowed:
                raise self.error(f"unsupported annotation @{name} on {keyword}", at)
            if name == "VintfStability" and value is not None:
                raise self.error("@VintfStability takes no parameters", at)
        if "VintfStability" not in annotations:
            raise self.error(f"{keyword} must be @VintfStability", line)
        decl = Decl(keyword, self.ident(f"a {keyword} name"), line, parent)
        self.expect("{")
        if keyword == "parcelable":
            self.parcelable_body(decl)
        elif keyword == "enum":
            backing = annotations.get("Backing", (None, line))
            if backing[0] != ("type", "int"):
                raise self.error('enum must be @Backing(type="int")', backing[1])
            self.enum_body(decl)
        else:
            self.interface_body(decl)
        return decl

    def type_ref(self):
        line = self.peek().line
        name = self.ident("a type", qualified=True)
        arg = None
        if self.accept("<"):
            arg = self.type_ref()
            self.expect(">")
        array = False
        if self.accept("["):
            self.expect("]")
            array = True
        return TypeRef(name, line, arg, array)

    def parcelable_body(self, decl):
        while not self.accept("}"):
            annotations = self.annotations()
            if self.peek().text in ("parcelable", "enum", "interface"):
                decl.nested.append(self.declaration(annotations, decl))
                continue
            line = self.peek().line
            if self.peek().text == "const":
                raise self.error("constants are not supported")
            type_ref = self.type_ref()
            for name, (value, at) in annotations.items():
                if name != "nullable" or value is not None:
                    raise self.error(f"unsupported annotation @{name} on a field", at)
            type_ref.nullable = "nullable" in annotations
            name = self.ident("a field name")
            default = None
            if self.accept("="):
                token = self.take()
                if token.kind != "number":
                    raise self.error("only integer defaults are supported", token.line)
                default = int(token.text)
            self.expect(";")
            if any(f.name == name for f in decl.fields):
                raise self.error(f"field '{name}' declared twice", line)
            decl.fields.append(Field(type_ref, name, default, line))

    def enum_body(self, decl):
        while not self.accept("}"):
            line = self.peek().line
            name = self.ident("an enumerator")
            if not self.accept("="):
                raise self.error(f"enumerator '{name}' needs an explicit value", line)
            token = self.take()
            if token.kind != "number":
                raise self.error("enumerator values must be integer literals", token.line)
            value = int(token.text)
            if not -(2**31) <= value < 2**31:
                raise self.error(f"value of '{name}' does not fit an int", line)
            for other, other_value in decl.members:
                if other == name or other_value == value:
                    raise self.error(f"enumerator '{name}' repeats '{other}'", line)
            decl.members.append((name, value))
            if not self.accept(","):
                self.expect("}")
                break
        if not decl.members:
            raise self.error(f"enum {decl.name} has no members", decl.line)

    def interface_body(self, decl):
        while not self.accept("}"):
            if self.peek().text == "@":
                raise self.error("annotations on methods are not supported")
            if self.peek().text in ("oneway", "const"):
                raise self.error(f"'{self.peek().text}' is not supported")
            line = self.peek().line
            ret = self.type_ref()
            name = self.ident("a method name")
            self.expect("(")
            args = []
            if not self.accept(")"):
                while True:
                    arg_line = self.peek().line
                    direction = None
                    if self.peek().text in ("in", "out", "inout"):
                        direction = self.take().text
                    type_ref = self.type_ref()
                    arg_name = self.ident("an argument name")
                    if any(a.name == arg_name for a in args):
                        raise self.error(f"argument '{arg_name}' declared twice", arg_line)
                    args.append(Arg(direction, type_ref, arg_name, arg_line))
                    if self.accept(")"):
                        break
                    self.expect(",")
            self.expect(";")
            if name in ("getInterfaceVersion", "getInterfaceHash") or any(
                m.name == name for m in decl.methods
            ):
                raise self.error(f"method '{name}' is declared twice or is reserved", line)
            decl.methods.append(Method(ret, name, args, line))


def parse_file(path):
    with open(path, encoding="utf-8") as f:
        text = f.read()
    decl, imports = _Parser(text, path).document()
    expected = os.path.join(*decl.package.split("."), decl.name + ".aidl")
    if not os.path.abspath(path).endswith(os.sep + expected):
        raise AidlError(f"{path}:{decl.line}: {decl.qualified()} belongs in .../{expected}")
    decl.source = expected.replace(os.sep, "/")
    decl.file = path
    return decl, imports


class Package:
    """All declarations of the package, with every type reference resolved."""

    def __init__(self, parsed):
        self.decls = [decl for decl, _ in parsed]
        packages = {decl.package for decl in self.decls}
        if len(packages) != 1:
            raise AidlError(f"the files declare more than one package: {sorted(packages)}")
        self.name = packages.pop()
        self.by_name = {}
        for decl in self.decls:
            self._index(decl)
        for decl, imports in parsed:
            for name, line in imports:
                if name not in self.by_name:
                    raise AidlError(f"{self.where(decl, line)}: import of unknown type {name}")
            self._resolve_decl(decl)

    def where(self, decl, line):
        return f"{decl.top().file}:{line}"

    def _index(self, decl):
        name = decl.qualified()
        if name in self.by_name:
            raise AidlError(f"{self.where(decl, decl.line)}: {name} declared twice")
        self.by_name[name] = decl
        for nested in decl.nested:
            self._index(nested)

    def _lookup(self, scope, type_ref):
        candidates = []
        if type_ref.name.startswith(self.name + "."):
            candidates.append(type_ref.name)
        else:
            s = scope
            while s is not None:
                candidates.append(s.qualified() + "." + type_ref.name)
                s = s.parent
            candidates.append(self.name + "." + type_ref.name)
        for candidate in candidates:
            if candidate in self.by_name:
                return self.by_name[candidate]
        raise AidlError(f"{self.where(scope, type_ref.line)}: unknown type '{type_ref.name}'")

    def resolve(self, scope, type_ref):
        if type_ref.arg is not None:
            if type_ref.name != "List" or type_ref.array:
                raise AidlError(f"{self.where(scope, type_ref.line)}: unsupported generic type")
            self.resolve(scope, type_ref.arg)
        elif type_ref.name == "List":
            raise AidlError(f"{self.where(scope, type_ref.line)}: List needs a type argument")
        elif type_ref.name not in ("int", "long", "boolean", "byte", "String",
                                   "ParcelFileDescriptor", "void"):
            type_ref.decl = self._lookup(scope, type_ref)

    def _resolve_decl(self, decl):
        for field in decl.fields:
            self.resolve(decl, field.type)
            _check_field(self, decl, field)
        for method in decl.methods:
            self.resolve(decl, method.ret)
            _check_method(self, decl, method)
        for nested in decl.nested:
            self._resolve_decl(nested)


def _kind(type_ref):
    return type_ref.decl.kind if type_ref.decl else type_ref.name


def _check_field(package, decl, field):
    t = field.type
    where = package.where(decl, field.line)
    if t.arg is not None:
        raise AidlError(f"{where}: List fields are not supported; use an array")
    kind = _kind(t)
    if t.array:
        if kind not in ("byte", "parcelable"):
            raise AidlError(f"{where}: arrays of {t.name} are not supported")
        if t.nullable and kind != "parcelable":
            raise AidlError(f"{where}: only arrays of records may be @nullable")
    elif kind not in ("int", "long", "boolean", "String", "ParcelFileDescriptor", "enum"):
        raise AidlError(f"{where}: fields of type {t.name} are not supported")
    elif t.nullable:
        raise AidlError(f"{where}: only arrays of records may be @nullable")
    if field.default is not None:
        if kind != "int" or t.array:
            raise AidlError(f"{where}: only int fields may have a default")
        if not -(2**31) <= field.default < 2**31:
            raise AidlError(f"{where}: default does not fit an int")


def _check_method(package, decl, method):
    where = package.where(decl, method.line)
    if method.ret.array or method.ret.arg or method.ret.name not in ("void", "int"):
        raise AidlError(f"{where}: methods may only return void or int")
    for arg in method.args:
        where = package.where(decl, arg.line)
        package.resolve(decl, arg.type)
        t, kind = arg.type, _kind(arg.type)
        if arg.direction == "out":
            ok = t.arg is not None and t.arg.name == "String" and not t.arg.array
        elif kind == "int" and not t.array:
            ok = arg.direction is None
        else:
            ok = arg.direction == "in" and not t.array and kind in ("parcelable", "interface")
        if not ok:
            raise AidlError(f"{where}: argument '{arg.name}' has an unsupported direction or type")


# ----------------------------------------------------------------------------------------------
# C++ emission


def _cpp_type(t):
    """The C++ type of a field, or of an argument's value."""
    if t.arg is not None:
        return f"std::vector<{_cpp_type(t.arg)}>"
    if t.array:
        element = "uint8_t" if t.name == "byte" else t.decl.cpp_name()
        if t.nullable:
            return f"std::optional<std::vector<std::optional<{element}>>>"
        return f"std::vector<{element}>"
    if t.name in _SCALARS:
        return _SCALARS[t.name]
    if t.name == "String":
        return "std::string"
    if t.name == "ParcelFileDescriptor":
        return "::ndk::ScopedFileDescriptor"
    if t.decl.kind == "interface":
        return f"std::shared_ptr<{t.decl.cpp_name()}>"
    return t.decl.cpp_name()


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


def _has_fd(decl):
    return any(f.type.name == "ParcelFileDescriptor" for f in decl.fields)


def _walk(decl):
    yield decl
    for nested in decl.nested:
        yield from _walk(nested)


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
        for d in _walk(n):
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
        elif _kind(f.type) in _SCALARS and not f.type.array:
            init = " = false" if f.type.name == "boolean" else " = 0"
        elif _kind(f.type) == "enum" and not f.type.array:
            init = "{}"
        else:
            init = ""
        body.append(f"{pad}    {_cpp_type(f.type)} {f.name}{init};")
    body.append("")
    if _has_fd(decl):
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
        "int" if f.type.name == "ParcelFileDescriptor" else f"const {_cpp_type(f.type)}&"
        for f in decl.fields
    )
    values = ", ".join(
        f"{f.name}.get()" if f.type.name == "ParcelFileDescriptor" else f.name for f in decl.fields
    )
    body.append(f"{pad}    std::tuple<{types}> _aidl_fields() const {{")
    body.append(f"{pad}        return std::tuple<{types}>({values});")
    body.append(f"{pad}    }}")
    return [f"{pad}class {name} {{", f"{pad}  public:"] + body + [f"{pad}}};"]


class Generator:
    def __init__(self, package, version, hash_value):
        self.package = package
        self.version = version
        self.hash = hash_value
        self.namespace = "aidl::" + package.name.replace(".", "::")
        self.include_dir = "aidl/" + package.name.replace(".", "/")
        self.source_dir = package.name.replace(".", "/")

    def outputs(self):
        """(path below --out, declaration, kind of file) of every output, in a stable order."""
        files = []
        for decl in sorted(self.package.decls, key=lambda d: d.name):
            files.append((f"include/{self.include_dir}/{decl.name}.h", decl, "header"))
            if decl.kind == "interface":
                files.append((f"include/{self.include_dir}/{self._bn(decl)}.h", decl, "bn"))
            if decl.kind != "enum":
                files.append((f"src/{self.source_dir}/{decl.name}.cpp", decl, "source"))
        return files

    def render(self, decl, what):
        if what == "bn":
            return self._bn_header(decl)
        if what == "source":
            if decl.kind == "interface":
                return self._interface_source(decl)
            return self._record_source(decl)
        if decl.kind == "enum":
            return self._enum_header(decl)
        if decl.kind == "interface":
            return self._interface_header(decl)
        return self._record_header(decl)

    @staticmethod
    def _bn(decl):
        base = decl.name[1:] if re.match(r"I[A-Z]", decl.name) else decl.name
        return "Bn" + base

    def _banner(self, decl):
        return [
            f"// Generated from {decl.source} by tools/aidl/aidl_ndk.py.",
            "// Change the .aidl file, not this one.",
        ]

    def _include(self, decl):
        return f"#include <{self.include_dir}/{decl.top().name}.h>"

    def _wrap(self, decl, includes, body):
        lines = self._banner(decl) + ["#pragma once", ""]
        lines += includes + ["", f"namespace {self.namespace} {{", ""]
        lines += body
        lines += ["", f"}}  // namespace {self.namespace}"]
        return "\n".join(lines) + "\n"

    def _std(self, names):
        return [f"#include <{n}>" for n in sorted(names)]

    def _record_header(self, decl):
        std = {"cstdint", "sstream", "string", "tuple", "vector"}
        platform, package = set(), set()
        for d in _walk(decl):
            for f in d.fields:
                if f.type.nullable:
                    std.add("optional")
                if f.type.name == "ParcelFileDescriptor":
                    platform.add("#include <android/binder_auto_utils.h>")
                target = f.type.decl
                if target is not None and target.top() is not decl:
                    package.add(self._include(target))
        includes = sorted(platform) + ([""] if platform else []) + sorted(package)
        includes += ([""] if package else []) + self._std(std)
        return self._wrap(decl, includes, _record_class(decl, 0))

    def _record_source(self, decl):
        lines = self._banner(decl) + [self._include(decl), "", f"namespace {self.namespace} {{", ""]
        for d in _walk(decl):
            scoped = "::".join(d.path())
            lines.append(f'const char* {scoped}::descriptor = "{d.qualified()}";')
        for d in _walk(decl):
            if not _has_fd(d):
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
        lines += ["", f"}}  // namespace {self.namespace}"]
        return "\n".join(lines) + "\n"

    def _enum_header(self, decl):
        name, qualified = decl.name, decl.cpp_name()
        body = [f"enum class {name} : int32_t {{"]
        body += [f"    {m} = {v}," for m, v in decl.members]
        body += ["};", ""]
        body += ["// The member's name, or the decimal number for a value that is no member."]
        body += [f"inline std::string toString({name} value) {{", "    switch (value) {"]
        body += [f'        case {name}::{m}: return "{m}";' for m, _ in decl.members]
        body += ["        default: return std::to_string(static_cast<int32_t>(value));"]
        body += ["    }", "}"]
        text = self._wrap(
            decl,
            ["#include <android/binder_enums.h>", ""] + self._std({"array", "cstdint", "string"}),
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

    def _signature(self, method):
        params = []
        for arg in method.args:
            cpp = _cpp_type(arg.type)
            if arg.direction == "out":
                params.append(f"{cpp}* out_{arg.name}")
            elif _kind(arg.type) == "int":
                params.append(f"{cpp} in_{arg.name}")
            else:
                params.append(f"const {cpp}& in_{arg.name}")
        if method.ret.name != "void":
            params.append(f"{_SCALARS[method.ret.name]}* _aidl_return")
        return f"{method.name}({', '.join(params)})"

    def _interface_header(self, decl):
        package = set()
        for method in decl.methods:
            for arg in method.args:
                if arg.type.decl is not None:
                    package.add(self._include(arg.type.decl))
        includes = ["#include <android/binder_auto_utils.h>",
                    "#include <android/binder_interface_utils.h>", ""]
        includes += sorted(package) + ([""] if package else [])
        includes += self._std({"cstdint", "memory", "string", "vector"})
        name = decl.name
        body = [
            f"class {name} : public ::ndk::ICInterface {{",
            "  public:",
            "    static const char* descriptor;",
            f"    static inline const int32_t version = {self.version};",
            f'    static inline const std::string hash = "{self.hash}";',
            "",
            f"    {name}();",
            f"    ~{name}() override;",
            "",
            "    // The local object behind `binder`; null when `binder` is null or belongs to",
            "    // another interface.",
            f"    static std::shared_ptr<{name}> fromBinder(const ::ndk::SpAIBinder& binder);",
            "",
        ]
        for method in decl.methods:
            body.append(f"    virtual ::ndk::ScopedAStatus {self._signature(method)} = 0;")
        body += [
            "    virtual ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) = 0;",
            "    virtual ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) = 0;",
            "};",
        ]
        return self._wrap(decl, includes, body)

    def _bn_header(self, decl):
        bn = self._bn(decl)
        body = [
            f"// Base of the local implementations of {decl.name}.",
            f"class {bn} : public ::ndk::BnCInterface<{decl.name}> {{",
            "  public:",
            f"    {bn}();",
            f"    ~{bn}() override;",
            "",
            "    ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) final;",
            "    ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) final;",
            "",
            "  protected:",
            "    ::ndk::SpAIBinder createBinder() override;",
            "};",
        ]
        includes = [
            "#include <android/binder_auto_utils.h>",
            "#include <android/binder_interface_utils.h>",
            "",
            self._include(decl),
            "",
            "#include <cstdint>",
            "#include <string>",
        ]
        return self._wrap(decl, includes, body)

    def _interface_source(self, decl):
        name, bn = decl.name, self._bn(decl)
        lines = self._banner(decl) + [
            f"#include <{self.include_dir}/{bn}.h>",
            self._include(decl),
            "",
            "#include <android/binder_ibinder.h>",
            "",
            f"namespace {self.namespace} {{",
            "",
            "namespace {",
            "",
            "// Calls never travel as transactions here: they are made on the local object.",
            "binder_status_t onTransact(AIBinder*, transaction_code_t, const AParcel*, AParcel*) {",
            "    return STATUS_UNKNOWN_TRANSACTION;",
            "}",
            "",
            "AIBinder_Class* binderClass() {",
            "    static AIBinder_Class* const sClass =",
            f"            ::ndk::ICInterface::defineClass({name}::descriptor, onTransact);",
            "    return sClass;",
            "}",
            "",
            "}  // namespace",
            "",
            f'const char* {name}::descriptor = "{decl.qualified()}";',
            "",
            f"{name}::{name}() = default;",
            f"{name}::~{name}() = default;",
            "",
            f"std::shared_ptr<{name}> {name}::fromBinder(const ::ndk::SpAIBinder& binder) {{",
            "    if (binder.get() == nullptr ||",
            "        !AIBinder_associateClass(binder.get(), binderClass())) {",
            "        return nullptr;",
            "    }",
            "    auto object = ::ndk::ICInterface::asInterface(binder.get());",
            f"    return std::static_pointer_cast<{name}>(object);",
            "}",
            "",
            f"{bn}::{bn}() = default;",
            f"{bn}::~{bn}() = default;",
            "",
            f"::ndk::ScopedAStatus {bn}::getInterfaceVersion(int32_t* _aidl_return) {{",
            f"    *_aidl_return = {name}::version;",
            "    return ::ndk::ScopedAStatus::ok();",
            "}",
            "",
            f"::ndk::ScopedAStatus {bn}::getInterfaceHash(std::string* _aidl_return) {{",
            f"    *_aidl_return = {name}::hash;",
            "    return ::ndk::ScopedAStatus::ok();",
            "}",
            "",
            f"::ndk::SpAIBinder {bn}::createBinder() {{",
            "    // The binder's class turns its argument back into an ICInterface*.",
            "    ::ndk::ICInterface* object = this;",
            "    return ::ndk::SpAIBinder(",
            "            AIBinder_new(binderClass(), static_cast<void*>(object)));",
            "}",
            "",
            f"}}  // namespace {self.namespace}",
        ]
        return "\n".join(lines) + "\n"


def _read_hash(path):
    with open(path, encoding="ascii") as f:
        value = f.read().strip()
    if not re.fullmatch(r"[0-9a-f]{40}", value):
        raise AidlError(f"{path}: expected 40 lowercase hex digits")
    return value


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--out", help="output directory (gets include/ and src/)")
    parser.add_argument("--version", type=int, help="the frozen version the code reports")
    parser.add_argument("--hash-file", help="the .hash file of that version")
    parser.add_argument("--list", action="store_true", help="print the output paths and stop")
    parser.add_argument("aidl", nargs="+", help="the package's .aidl files")
    args = parser.parse_args(argv)
    try:
        package = Package([parse_file(p) for p in args.aidl])
        if args.list:
            generator = Generator(package, 0, "")
            for path, _, _ in generator.outputs():
                print(path)
            return 0
        if args.out is None or args.version is None or args.hash_file is None:
            parser.error("--out, --version and --hash-file are required to generate")
        generator = Generator(package, args.version, _read_hash(args.hash_file))
        for path, decl, what in generator.outputs():
            target = os.path.join(args.out, path)
            os.makedirs(os.path.dirname(target), exist_ok=True)
            with open(target, "w", encoding="utf-8") as f:
                f.write(generator.render(decl, what))
    except (AidlError, OSError) as e:
        print(f"aidl_ndk: error: {e}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
