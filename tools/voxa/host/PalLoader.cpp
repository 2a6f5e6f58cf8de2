#include "PalLoader.h"

#include <dlfcn.h>

namespace voxa_tool {

Status loadPal(const std::string& path, const char* entryPoint, const void** controls) {
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL);
    if (library == nullptr)
        return Status::failure(std::string("cannot load the PAL: ") + dlerror());
    auto entry = reinterpret_cast<const void* (*)()>(dlsym(library, entryPoint));
    if (entry == nullptr) {
        return Status::failure("cannot load the PAL: " + path + " has no " + entryPoint);
    }
    *controls = entry();
    return Status::ok();
}

}  // namespace voxa_tool
