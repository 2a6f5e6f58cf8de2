// A scenario: what the scripted engine does, one step after the other. It is read from JSON Lines
// (docs/DEVICE.md lists the steps), and every event's payload is built while reading, so that a
// scenario that loads plays without further checks.
#ifndef PAL_SCRIPTED_SCENARIO_H
#define PAL_SCRIPTED_SCENARIO_H

#include <pal/pal_functions.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace pal_scripted {

using Function = pal_host::PalFunction;
using pal_host::toString;
constexpr size_t kFunctionCount = pal_host::kPalFunctionCount;

// A reply or await that concerns every parameter id of its function.
constexpr uint32_t kAnyParam = UINT32_MAX;

struct Step {
    enum class Kind {
        Reply,               // the next `times` matching calls return `status` and do nothing else
        Await,               // wait until the `ordinal`-th matching call since the load was made
        Delay,               // wait `duration`
        Event,               // raise the payload on a started stream
        ResourcesAvailable,  // call the function registered with PAL_PARAM_ID_RESOURCES_AVAILABLE
    };

    Kind kind = Kind::Delay;
    int line = 0;  // in the scenario's text, 1-based

    // Reply and Await: the calls concerned.
    Function call = Function::StreamStart;
    uint32_t param = kAnyParam;  // a parameter id for the two set_param functions
    int32_t status = 0;
    int times = 1;
    int ordinal = 0;

    // Delay: how long. Await and Event: how long to wait at most before the scenario fails.
    std::chrono::milliseconds duration{0};

    // Event: the stream, by its order of opening since the load (1 is the first); 0 for the
    // latest opened stream that is not closed.
    int stream = 0;
    uint32_t eventId = 0;
    std::vector<uint64_t> payload;  // `payloadSize` bytes, aligned for the 64-bit fields
    uint32_t payloadSize = 0;
};

struct Scenario {
    std::string name;  // how messages name it: the file's path
    std::vector<Step> steps;
};

// Reads a scenario from `text`, one JSON object a line; blank lines are skipped. Returns "" and
// fills `*scenario`, or returns "<name>:<line>: <what is wrong>" for the first bad line.
std::string readScenario(const std::string& text, const std::string& name, Scenario* scenario);

}  // namespace pal_scripted

#endif  // PAL_SCRIPTED_SCENARIO_H
