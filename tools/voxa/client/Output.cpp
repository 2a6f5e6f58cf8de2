#include "Output.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "Signals.h"

namespace voxa_tool {

namespace {

std::string failure(const std::string& what, const std::string& path) {
    return what + " " + path + ": " + std::strerror(errno);
}

// Creates `directory` and the folders above it that are missing.
Status createFolder(const std::string& directory) {
    for (size_t slash = directory.find('/', 1);; slash = directory.find('/', slash + 1)) {
        const std::string folder = directory.substr(0, slash);
        struct stat info;
        if (stat(folder.c_str(), &info) != 0 && mkdir(folder.c_str(), 0777) != 0) {
            return Status::failure(failure("cannot create the folder", folder));
        }
        if (stat(folder.c_str(), &info) == 0 && !S_ISDIR(info.st_mode)) {
            return Status::failure("cannot create the folder " + folder + ": a file has its name");
        }
        if (slash == std::string::npos) return Status::ok();
    }
}

}  // namespace

Status prepareOutputs(const Options& options) {
    for (size_t i = 0; i < options.files.size(); ++i) {
        struct stat output;
        if (options.outputs[i].empty() || stat(options.outputs[i].c_str(), &output) != 0) continue;
        for (const std::string& file : options.files) {
            struct stat input;
            if (file != kStandardInput && stat(file.c_str(), &input) == 0 &&
                input.st_dev == output.st_dev && input.st_ino == output.st_ino) {
                return Status::usage("the output " + options.outputs[i] + " is the input " + file +
                                     "; voxa never writes over an input");
            }
        }
    }
    return options.outputDir.empty() ? Status::ok() : createFolder(options.outputDir);
}

Status StreamOutput::begin(const std::string&, const std::string& name, size_t index,
                           size_t count) {
    mFormatter->beginFile(name, index, count);
    return Status::ok();
}

Status StreamOutput::end(bool) {
    mFormatter->endFile();
    return Status::ok();
}

FileOutput::FileOutput(const Options& options, const FormatSettings& settings)
    : mOptions(options), mSettings(settings), mCreationMask(umask(0)) {
    umask(mCreationMask);
}

Status FileOutput::begin(const std::string&, const std::string& name, size_t index, size_t) {
    mPath = mOptions.outputs[index];
    const size_t slash = mPath.rfind('/');
    const std::string folder = slash == std::string::npos ? "" : mPath.substr(0, slash + 1);
    std::string temporary = folder + "." + mPath.substr(folder.size()) + ".XXXXXX";
    const int fd = mkstemp(temporary.data());
    if (fd < 0) return Status::failure(failure("cannot write", mPath));
    // The mode a new file gets, or the one the file it replaces has.
    struct stat existing;
    fchmod(fd,
           stat(mPath.c_str(), &existing) == 0 ? existing.st_mode & 07777 : 0666 & ~mCreationMask);
    close(fd);
    mTemporaryPath = temporary;
    removeOnSignal(mTemporaryPath);
    mFile.open(mTemporaryPath, std::ios::binary | std::ios::trunc);
    mFormatter = makeFormatter(mSettings, mFile);
    mFormatter->beginFile(name, 0, 1);
    return Status::ok();
}

Status FileOutput::end(bool complete) {
    mFormatter->endFile();
    mFormatter.reset();
    mFile.close();
    Status status = Status::ok();
    if (mFile.fail()) {
        status = Status::failure(failure("cannot write", mPath));
    } else if (complete && rename(mTemporaryPath.c_str(), mPath.c_str()) != 0) {
        status = Status::failure(failure("cannot write", mPath));
    }
    if (!complete || !status.isOk()) unlink(mTemporaryPath.c_str());
    removeOnSignal("");
    mTemporaryPath.clear();
    return status;
}

}  // namespace voxa_tool
