// The entry point of libpal_engine.so's host controls.
#include <pal/pal_engine.h>

extern "C" const pal_engine::Controls* pal_engine_controls() {
    static const pal_engine::Controls controls = {
            pal_engine::setFileSource, pal_engine::setPcmSource, pal_engine::clearSource,
            pal_engine::waitUntilDone, pal_engine::abilities,
    };
    return &controls;
}
