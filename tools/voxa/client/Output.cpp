#include "Output.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace voxa_tool {

Status StreamOutput::begin(const std::string&, const std::string& name, size_t index,
                           size_t count) {
    mFormatter->beginFile(name, index, count);
    return Status::ok();
}

void StreamOutput::end(bool) {
    mFormatter->endFile();
}

Status FileOutput::begin(const std::string& input, const std::string& name, size_t, size_t) {
    mPath = mOptions.outputDir.empty() ? mOptions.outputFile : outputPath(mOptions, input);
    mFile.open(mPath, std::ios::binary | std::ios::trunc);
    if (!mFile) return Status::failure("cannot write " + mPath + ": " + std::strerror(errno));
    mFormatter = makeFormatter(mSettings, mFile);
    mFormatter->beginFile(name, 0, 1);
    return Status::ok();
}

void FileOutput::end(bool complete) {
    mFormatter->endFile();
    mFormatter.reset();
    mFile.close();
    if (!complete) unlink(mPath.c_str());
}

}  // namespace voxa_tool
