/*
 * The six functions of the PAL API by name, for the host's PALs that record or script calls.
 */
#ifndef PAL_FUNCTIONS_H
#define PAL_FUNCTIONS_H

#include <cstddef>
#include <ostream>

namespace pal_host {

enum class PalFunction {
    StreamOpen,
    StreamSetParam,
    StreamStart,
    StreamStop,
    StreamClose,
    SetParam
};
constexpr size_t kPalFunctionCount = 6;

// "pal_stream_open", ...: the name of the PAL function.
inline const char* toString(PalFunction function) {
    static const char* const kNames[kPalFunctionCount] = {
            "pal_stream_open", "pal_stream_set_param", "pal_stream_start",
            "pal_stream_stop", "pal_stream_close",     "pal_set_param"};
    const auto index = static_cast<size_t>(function);
    return index < kPalFunctionCount ? kNames[index] : "?";
}

// For test frameworks' messages.
inline void PrintTo(PalFunction function, std::ostream* os) {
    *os << toString(function);
}

}  // namespace pal_host

#endif  // PAL_FUNCTIONS_H
