// A configuration payload (PAL_PARAM_ID_ASR_CONFIG) as the engine uses it.
#ifndef PAL_ENGINE_SETTINGS_H
#define PAL_ENGINE_SETTINGS_H

#include <pal/pal_api.h>
#include <pal/pal_types.h>

#include <cstdint>

#include "Recogniser.h"

namespace pal_engine {

struct Settings {
    bool continuous = true;    // keep recognising after the first final result
    bool partial = false;      // raise partial hypotheses; else decode each utterance again whole
    bool timestamps = false;   // raise final results as time-stamped events
    bool diarize = false;      // raise the speakers of each final result
    int32_t translateTo = -1;  // language id that final results are translated into; -1: none
    int32_t threshold = 0;     // lowest confidence of a final result that is raised
    int32_t timeoutMs = 0;     // end the recognition after this long without speech; 0: never
    int32_t silenceMs = kDefaultSilenceMs;
};

// Reads a configuration payload. Returns 0; PAL_STATUS_INVALID for a malformed payload or a value
// out of range; PAL_STATUS_NOT_SUPPORTED for what the engine cannot do: an input language other
// than en-US (id 0), an output language other than en-US that is not a translation the engine
// serves.
int32_t parseSettings(const pal_param_payload* payload, Settings* settings);

}  // namespace pal_engine

#endif  // PAL_ENGINE_SETTINGS_H
