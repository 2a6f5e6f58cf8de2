// Scenario text of any content through the scripted engine's reader (pal_scripted::loadScenario).
// It must load or give an error that names a line of the text, never crash or hang.
#include <pal/pal_scripted.h>

#include <algorithm>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 64 * 1024) return 0;
    std::string text(reinterpret_cast<const char*>(data), size);
    std::string error = pal_scripted::loadScenario(text, "fuzz");
    if (error.empty()) return 0;
    // "fuzz:<line>: <reason>", the line within the text.
    size_t end = error.find(": ", 5);
    if (error.compare(0, 5, "fuzz:") != 0 || end == std::string::npos) __builtin_trap();
    long line = std::strtol(error.c_str() + 5, nullptr, 10);
    long lines = 1 + static_cast<long>(std::count(text.begin(), text.end(), '\n'));
    if (line < 1 || line > lines) __builtin_trap();
    return 0;
}
