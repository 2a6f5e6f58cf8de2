#include "InputFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace voxa_tool {

Status openInputFile(const std::string& path, int* fd) {
    struct stat info;
    if (stat(path.c_str(), &info) != 0) {
        return Status::failure("cannot open " + path + ": " + std::strerror(errno));
    }
    if (S_ISDIR(info.st_mode)) {
        return Status::failure("cannot read " + path + ": it is a directory");
    }
    *fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (*fd < 0) return Status::failure("cannot read " + path + ": " + std::strerror(errno));
    return Status::ok();
}

}  // namespace voxa_tool
