// The payloads that the engine raises through the stream callback, laid out as pal_types.h
// declares them: partial hypotheses and final results as pal_asr_event (id 0), final results with
// word times as pal_asr_ts_event (PAL_ASR_EVENT_ID_TIMESTAMP), each with one result whose aux_text
// repeats it as JSON; the speakers of an utterance as pal_sdz_event
// (PAL_ASR_EVENT_ID_SPEAKER_DIARIZATION).
#ifndef PAL_ENGINE_EVENT_PAYLOAD_H
#define PAL_ENGINE_EVENT_PAYLOAD_H

#include <cstdint>
#include <string>
#include <vector>

#include "Diarizer.h"
#include "Recogniser.h"

namespace pal_engine {

// Event id of plain results.
constexpr uint32_t kPlainEventId = 0;

// Why a final result was raised.
enum class Ending {
    Silence,        // the configured silence followed speech
    Forced,         // PAL_PARAM_ID_ASR_FORCE_OUTPUT
    TimeOut,        // no speech within the configured time-out
    EndOfAudio,     // the source ended
    MaxDuration,    // the utterance reached kMaxUtteranceMs (Recording.h)
    SpeakerChange,  // another speaker took over within the utterance (diarization)
};

const char* toString(Ending ending);

// What became of a final result's translation, when one was asked for.
struct Translation {
    std::string language;         // the code of the language translated into
    std::string text;             // the translation; empty when `error` is set
    const char* error = nullptr;  // why there is none: "timeout" or "failed"
};

struct Event {
    uint32_t id = kPlainEventId;
    uint32_t size = 0;              // bytes of payload
    std::vector<uint64_t> storage;  // the payload, aligned for its 64-bit fields
    unsigned int* data() { return reinterpret_cast<unsigned int*>(storage.data()); }
    const uint8_t* bytes() const { return reinterpret_cast<const uint8_t*>(storage.data()); }
};

// A partial hypothesis: flag 0, value 0.
Event makePartialEvent(const std::string& hypothesis);

// A final result: with `timestamps` a time-stamped event with flag 1, one word slot per word
// (at most PAL_ASR_MAX_WORDS) and times in milliseconds; otherwise a plain event with flag 1.
// `value` is the result's confidence, 0 to 100. With a `translation` the text is the
// translation, the JSON carries the recognised text as "original", and the word slots keep the
// recognised words; a failed translation leaves the recognised text and says why.
Event makeFinalEvent(const Result& result, Ending ending, bool timestamps,
                     const Translation* translation = nullptr);

// The JSON form of a final result, at most `limit` bytes: words that do not fit are left out
// and "words_truncated" says so.
std::string finalJson(const Result& result, Ending ending, size_t limit,
                      const Translation* translation = nullptr);

// The speakers of an utterance: one result (flag 1) with one speaker record per turn, its value
// the speaker's number and its times in milliseconds.
Event makeDiarizationEvent(const std::vector<SpeakerTurn>& turns);

// Copies `text` into a field of `size` bytes, NUL-terminated, cut short on a character boundary
// of UTF-8 when it does not fit.
void copyText(char* field, size_t size, const std::string& text);

}  // namespace pal_engine

#endif  // PAL_ENGINE_EVENT_PAYLOAD_H
