#include <pal/pal_engine.h>

namespace pal_engine {

Abilities abilities() {
    // The model image's language (ModelImage), no translation, the resampler's limits (Resampler).
    Abilities abilities;
    abilities.recognised = {"en-US"};
    abilities.minSampleRate = 8000;
    abilities.maxSampleRate = 384000;
    abilities.maxChannels = 8;
    return abilities;
}

}  // namespace pal_engine
