// SIGINT and SIGTERM, routed to the program instead of ending it. The first one goes to the
// handler in force; without a handler, when the handler does not take it, and at any signal
// after the first, the process ends at once with 128 + the signal's number.
#ifndef VOXA_TOOL_SIGNALS_H
#define VOXA_TOOL_SIGNALS_H

#include <functional>
#include <string>

namespace voxa_tool {

// Blocks SIGINT and SIGTERM in the calling thread, and so in every thread it starts later, and
// starts the thread that waits for them. Call from main before any other thread starts; without
// it, the signals keep their default action.
void watchSignals();

// Sets the function that the first signal is given to (with its number, on the watching
// thread); it returns whether it takes the signal. Null: none. Thread-safe.
void setSignalHandler(std::function<bool(int)> handler);

// Names the file to remove when a signal ends the process at once: one the program is writing
// and would otherwise leave half-written. Empty: none. Thread-safe.
void removeOnSignal(const std::string& path);

}  // namespace voxa_tool

#endif  // VOXA_TOOL_SIGNALS_H
