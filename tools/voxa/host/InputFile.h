// Opening an input file by its path, for either host part: the one wording of why it cannot be.
#ifndef VOXA_TOOL_INPUT_FILE_H
#define VOXA_TOOL_INPUT_FILE_H

#include <string>

#include "Status.h"

namespace voxa_tool {

// Opens `path` for reading, close-on-exec, into `*fd`, which the caller then owns. Fails with
// "cannot open PATH: <reason>" when there is no such file, "cannot read PATH: it is a directory"
// or "cannot read PATH: <reason>".
Status openInputFile(const std::string& path, int* fd);

}  // namespace voxa_tool

#endif  // VOXA_TOOL_INPUT_FILE_H
