"""Emits the interfaces: the abstract class with its descriptor, version and hash, its Bn base
for local implementations, and their definitions. On the host a call is a direct C++ call on the
local object, so no transaction is ever handled and no proxy is generated."""

from .cpp import SCALARS, bn_name, cpp_type
from .model import kind


def _signature(method):
    params = []
    for arg in method.args:
        cpp = cpp_type(arg.type)
        if arg.direction == "out":
            params.append(f"{cpp}* out_{arg.name}")
        elif kind(arg.type) == "int":
            params.append(f"{cpp} in_{arg.name}")
        else:
            params.append(f"const {cpp}& in_{arg.name}")
    if method.ret.name != "void":
        params.append(f"{SCALARS[method.ret.name]}* _aidl_return")
    return f"{method.name}({', '.join(params)})"

def interface_header(layout, decl, version, hash_value):
    package = set()
    for method in decl.methods:
        for arg in method.args:
            if arg.type.decl is not None:
                package.add(layout.include(arg.type.decl))
    includes = ["#include <android/binder_auto_utils.h>",
                "#include <android/binder_interface_utils.h>", ""]
    includes += sorted(package) + ([""] if package else [])
    includes += layout.std({"cstdint", "memory", "string", "vector"})
    name = decl.name
    body = [
        f"class {name} : public ::ndk::ICInterface {{",
        "  public:",
        "    static const char* descriptor;",
        f"    static inline const int32_t version = {version};",
        f'    static inline const std::string hash = "{hash_value}";',
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
        body.append(f"    virtual ::ndk::ScopedAStatus {_signature(method)} = 0;")
    body += [
        "    virtual ::ndk::ScopedAStatus getInterfaceVersion(int32_t* _aidl_return) = 0;",
        "    virtual ::ndk::ScopedAStatus getInterfaceHash(std::string* _aidl_return) = 0;",
        "};",
    ]
    return layout.header(decl, includes, body)

def bn_header(layout, decl):
    bn = bn_name(decl)
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
        layout.include(decl),
        "",
        "#include <cstdint>",
        "#include <string>",
    ]
    return layout.header(decl, includes, body)

def interface_source(layout, decl):
    name, bn = decl.name, bn_name(decl)
    lines = layout.banner(decl) + [
        f"#include <{layout.include_dir}/{bn}.h>",
        layout.include(decl),
        "",
        "#include <android/binder_ibinder.h>",
        "",
        f"namespace {layout.namespace} {{",
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
        f"}}  // namespace {layout.namespace}",
    ]
    return "\n".join(lines) + "\n"
