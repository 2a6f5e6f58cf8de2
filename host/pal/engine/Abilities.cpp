#include <pal/pal_engine.h>

#include "Translator.h"

namespace pal_engine {

Abilities abilities() {
    // The model image's language (ModelImage), the installed Apertium pairs (Translator), the
    // resampler's limits (Resampler).
    Abilities abilities;
    abilities.recognised = {"en-US"};
    abilities.diarizes = true;
    for (int32_t id = 0; id < PAL_ASR_LANGUAGE_COUNT; ++id) {
        if (const char* target = Translator::target(id)) abilities.translatedTo.push_back(target);
    }
    abilities.minSampleRate = 8000;
    abilities.maxSampleRate = 384000;
    abilities.maxChannels = 8;
    return abilities;
}

}  // namespace pal_engine
