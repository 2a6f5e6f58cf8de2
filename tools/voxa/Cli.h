// The voxa program as a function, so that it runs the same from main and from a test.
#ifndef VOXA_TOOL_CLI_H
#define VOXA_TOOL_CLI_H

#include <ostream>
#include <string>
#include <vector>

namespace voxa_tool {

// Runs the program with `args`, the arguments after its name. Results go to `out`; errors, and
// the progress bar when `errIsTerminal`, go to `err`. Sets liblog's minimum priority for the
// whole process (the service's log lines show only with --verbose). Returns the exit status
// (Outcome.h).
int runVoxa(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
            bool errIsTerminal);

}  // namespace voxa_tool

#endif  // VOXA_TOOL_CLI_H
