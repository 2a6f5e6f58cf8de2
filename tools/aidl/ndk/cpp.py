"""What every emitter shares: the C++ spelling of a type, and where and how the package's files
are laid out (namespace aidl::<package>, headers under aidl/<package path>/, the banner)."""

import re

SCALARS = {"int": "int32_t", "long": "int64_t", "boolean": "bool"}


def cpp_type(t):
    """The C++ type of a field, or of an argument's value."""
    if t.arg is not None:
        return f"std::vector<{cpp_type(t.arg)}>"
    if t.array:
        element = "uint8_t" if t.name == "byte" else t.decl.cpp_name()
        if t.nullable:
            return f"std::optional<std::vector<std::optional<{element}>>>"
        return f"std::vector<{element}>"
    if t.name in SCALARS:
        return SCALARS[t.name]
    if t.name == "String":
        return "std::string"
    if t.name == "ParcelFileDescriptor":
        return "::ndk::ScopedFileDescriptor"
    if t.decl.kind == "interface":
        return f"std::shared_ptr<{t.decl.cpp_name()}>"
    return t.decl.cpp_name()


def has_fd(decl):
    return any(f.type.name == "ParcelFileDescriptor" for f in decl.fields)


def bn_name(decl):
    """BnFoo for the interface IFoo."""
    base = decl.name[1:] if re.match(r"I[A-Z]", decl.name) else decl.name
    return "Bn" + base


class Layout:
    """The package's namespace, include paths and file frame."""

    def __init__(self, package_name):
        self.namespace = "aidl::" + package_name.replace(".", "::")
        self.include_dir = "aidl/" + package_name.replace(".", "/")
        self.source_dir = package_name.replace(".", "/")

    def banner(self, decl):
        return [
            f"// Generated from {decl.source} by tools/aidl/aidl_ndk.py.",
            "// Change the .aidl file, not this one.",
        ]

    def include(self, decl):
        return f"#include <{self.include_dir}/{decl.top().name}.h>"

    def header(self, decl, includes, body):
        """A header of `includes` and `body` inside the package's namespace."""
        lines = self.banner(decl) + ["#pragma once", ""]
        lines += includes + ["", f"namespace {self.namespace} {{", ""]
        lines += body
        lines += ["", f"}}  // namespace {self.namespace}"]
        return "\n".join(lines) + "\n"

    @staticmethod
    def std(names):
        return [f"#include <{n}>" for n in sorted(names)]
