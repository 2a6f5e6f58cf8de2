"""The package as declared: declarations, fields, methods and type references, and the Package that
resolves every reference and refuses what the emitters do not understand."""


class AidlError(Exception):
    """A problem with the input, its message starting with the file and line."""


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


def kind(type_ref):
    """The declaration kind a resolved reference names, or the built-in type's own name."""
    return type_ref.decl.kind if type_ref.decl else type_ref.name


def walk(decl):
    """The declaration and every record nested in it, depth first."""
    yield decl
    for nested in decl.nested:
        yield from walk(nested)


_BUILT_IN = ("int", "long", "boolean", "byte", "String", "ParcelFileDescriptor", "void")


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
        elif type_ref.name not in _BUILT_IN:
            type_ref.decl = self._lookup(scope, type_ref)

    def _resolve_decl(self, decl):
        for field in decl.fields:
            self.resolve(decl, field.type)
            self._check_field(decl, field)
        for method in decl.methods:
            self.resolve(decl, method.ret)
            self._check_method(decl, method)
        for nested in decl.nested:
            self._resolve_decl(nested)

    def _check_field(self, decl, field):
        t = field.type
        where = self.where(decl, field.line)
        if t.arg is not None:
            raise AidlError(f"{where}: List fields are not supported; use an array")
        k = kind(t)
        if t.array:
            if k not in ("byte", "parcelable"):
                raise AidlError(f"{where}: arrays of {t.name} are not supported")
            if t.nullable and k != "parcelable":
                raise AidlError(f"{where}: only arrays of records may be @nullable")
        elif k not in ("int", "long", "boolean", "String", "ParcelFileDescriptor", "enum"):
            raise AidlError(f"{where}: fields of type {t.name} are not supported")
        elif t.nullable:
            raise AidlError(f"{where}: only arrays of records may be @nullable")
        if field.default is not None:
            if k != "int" or t.array:
                raise AidlError(f"{where}: only int fields may have a default")
            if not -(2**31) <= field.default < 2**31:
                raise AidlError(f"{where}: default does not fit an int")

    def _check_method(self, decl, method):
        where = self.where(decl, method.line)
        if method.ret.array or method.ret.arg or method.ret.name not in ("void", "int"):
            raise AidlError(f"{where}: methods may only return void or int")
        for arg in method.args:
            where = self.where(decl, arg.line)
            self.resolve(decl, arg.type)
            t, k = arg.type, kind(arg.type)
            if arg.direction == "out":
                ok = t.arg is not None and t.arg.name == "String" and not t.arg.array
            elif k == "int" and not t.array:
                ok = arg.direction is None
            else:
                ok = arg.direction == "in" and not t.array and k in ("parcelable", "interface")
            if not ok:
                raise AidlError(
                    f"{where}: argument '{arg.name}' has an unsupported direction or type"
                )
