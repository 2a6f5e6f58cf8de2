/*
 * Host-side controls of the scripted engine (the pal_scripted library), an implementation of the
 * PAL API (pal/pal_api.h, see palFunctions below) that plays a scenario instead of listening:
 * results of every kind, delays, the statuses that PAL calls return, resources becoming available.
 * It lets tests and app developers drive the service, and so their recognition UI, without
 * speaking. Scenarios are JSON Lines, one step a line; docs/DEVICE.md describes them and
 * tools/voxa/scenarios holds examples.
 *
 * The library raises every event and resources-available notification on its own thread, one at
 * a time, holding none of its locks. Without a scenario every PAL call succeeds and nothing is
 * raised. Streams honour pal_api.h: after pal_stream_stop returns no event begins until the
 * stream is started again; pal_stream_close waits for a callback in progress on its stream,
 * except when called from inside that callback, and no callback of the stream follows it.
 *
 * Thread safety: every function may be called from any thread, concurrently with the PAL
 * functions; the waits not from inside a callback of this library (it would wait on itself).
 */
#ifndef PAL_SCRIPTED_H
#define PAL_SCRIPTED_H

#include <pal/pal_api.h>

#include <chrono>
#include <cstdint>
#include <string>

namespace pal_scripted {

// Reads the scenario in the file at `path` and starts playing it at once, in place of any scenario
// still playing (its waits end; an event being delivered is finished first). Its leading replies,
// up to its first step that waits, are in force when this returns. Returns "", or what is wrong:
// "<path>:<line>: <reason>" for a bad step, "<path>: <reason>" when the file cannot be read. On
// an error nothing changes.
std::string loadScenarioFile(const std::string& path);

// As loadScenarioFile, for a scenario in memory; `name` stands for the path in messages.
std::string loadScenario(const std::string& text, const std::string& name);

// Waits until the loaded scenario has played: every step done and the callback of its last event
// returned. Returns 0; PAL_STATUS_TIMED_OUT when `timeout` passes first (a negative timeout waits
// without limit); PAL_STATUS_INVALID when no scenario was loaded; PAL_STATUS_IO when a step could
// not be played (an await or an event whose wait timed out, a notification with no function
// registered), and then sets `*error`, when not null, to "<name>:<line>: <reason>". The scenario
// stops at such a step.
int32_t waitUntilPlayed(std::chrono::milliseconds timeout, std::string* error = nullptr);

// As waitUntilPlayed without a time limit, but returns 0 as well once a stream started since the
// load has been stopped: its client is done listening, whatever the scenario still holds.
int32_t waitUntilPlayedOrStopped(std::string* error = nullptr);

// The scripted engine's implementations of the six PAL functions, with pal_api.h's signatures and
// contracts. An executable whose only PAL is the scripted engine links pal_scripted_pal, which
// defines the pal_* functions as these. One that also links another PAL (a program that both
// transcribes and replays) defines its pal_* functions itself and routes them here while it
// replays.
struct PalFunctions {
    decltype(&pal_stream_open) streamOpen;
    decltype(&pal_stream_set_param) streamSetParam;
    decltype(&pal_stream_start) streamStart;
    decltype(&pal_stream_stop) streamStop;
    decltype(&pal_stream_close) streamClose;
    decltype(&pal_set_param) setParam;
};
const PalFunctions& palFunctions();

// The host controls as one record, for a host that loads the scripted engine as a shared library
// (libpal_scripted.so), which exports the PAL functions and pal_scripted_controls alone.
struct Controls {
    std::string (*loadScenario)(const std::string& text, const std::string& name);
    int32_t (*waitUntilPlayed)(std::chrono::milliseconds timeout, std::string* error);
    int32_t (*waitUntilPlayedOrStopped)(std::string* error);
};

}  // namespace pal_scripted

extern "C" const pal_scripted::Controls* pal_scripted_controls();

#endif  // PAL_SCRIPTED_H
