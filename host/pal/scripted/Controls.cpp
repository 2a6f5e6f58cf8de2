// The entry point of libpal_scripted.so's host controls.
#include <pal/pal_scripted.h>

extern "C" const pal_scripted::Controls* pal_scripted_controls() {
    static const pal_scripted::Controls controls = {
            pal_scripted::loadScenario,
            pal_scripted::waitUntilPlayed,
            pal_scripted::waitUntilPlayedOrStopped,
    };
    return &controls;
}
