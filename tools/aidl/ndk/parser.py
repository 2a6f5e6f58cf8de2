"""Reads one .aidl file into the declarations of model.py.

Only the constructs that the emitters understand are accepted; anything else is an AidlError that
names the file and line (aidl_ndk.py lists the constructs).
"""

import os
import re

from .model import AidlError, Arg, Decl, Field, Method, TypeRef

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


class Token:
    def __init__(self, kind, text, line):
        self.kind = kind
        self.text = text
        self.line = line


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
