// PalToAidlConverter: the PAL's event payloads decoded into the interface's event records.
#ifndef VOXA_SERVICE_PAL_TO_AIDL_CONVERTER_H
#define VOXA_SERVICE_PAL_TO_AIDL_CONVERTER_H

#include <aidl/vendor/orbo/hardware/voxa/SpeakerDiarizationEvent.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaEvent.h>
#include <pal/pal_types.h>

namespace aidl::vendor::orbo::hardware::voxa {

// Decodes the engine's event payloads into interface records. Stateless; logs nothing.
//
// The payload must be the one the PAL handed to the stream callback, never null. The counts inside
// it are trusted (the PAL sizes its payloads by them); texts are read up to their first NUL within
// their field, and a time-stamped result yields at most its PAL_ASR_MAX_WORDS word slots.
class PalToAidlConverter {
  public:
    // What VoxaEvent.status says of the engine's result; not a PAL status.
    static constexpr int32_t kResultSucceeded = 0;
    static constexpr int32_t kResultFailed = 2;

    // Sets out.status (kResultSucceeded when the engine reported success, else kResultFailed) and
    // replaces out.events with one entry per result. out.timestamp_events is left as it is.
    static void convertAsrEvent(pal_asr_event* event, VoxaEvent& out);

    // Sets out.status and replaces out.timestamp_events with one entry per result. out.events is
    // left as it is.
    static void convertAsrTimeStampEvent(pal_asr_ts_event* event, VoxaEvent& out);

    // Appends one entry per result to out.events, speakers included. `out` must be empty: the
    // speakers of result i go to out.events[i].
    static void convertSdzEvent(pal_sdz_event* event, SpeakerDiarizationEvent& out);
};

}  // namespace aidl::vendor::orbo::hardware::voxa

#endif  // VOXA_SERVICE_PAL_TO_AIDL_CONVERTER_H
