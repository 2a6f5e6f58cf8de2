#include "PalToAidlConverter.h"

#include <cstddef>
#include <cstring>

namespace aidl::vendor::orbo::hardware::voxa {

namespace {

template <size_t N>
std::string textOf(const char (&field)[N]) {
    return std::string(field, strnlen(field, N));
}

std::vector<uint8_t> trailingData(const uint8_t* data, uint32_t size) {
    return std::vector<uint8_t>(data, data + size);
}

// Speaker j of a result, addressed from the result's start. GCC's -Warray-bounds rejects indexing
// this zero-length array, which sits inside an element of another one.
const pal_sdz_speaker& speakerOf(const pal_sdz_result& result, uint32_t j) {
    const auto* speakers = reinterpret_cast<const pal_sdz_speaker*>(
            reinterpret_cast<const uint8_t*>(&result) + offsetof(pal_sdz_result, speakers));
    return speakers[j];
}

}  // namespace

void PalToAidlConverter::convertAsrEvent(pal_asr_event* event, VoxaEvent& out) {
    out.events.emplace();
    out.status = event->status == 0 ? kResultSucceeded : kResultFailed;

    // The count is read again for every result, as the payload defines it.
    for (uint32_t i = 0; i < event->num_events; ++i) {
        const pal_asr_result& result = event->event[i];
        VoxaEvent::Event item;
        item.flag = result.flag != 0;
        item.value = result.value;
        item.text = textOf(result.text);
        item.aux_text = textOf(result.aux_text);
        item.data = trailingData(result.data, result.data_size);
        out.events->push_back(item);
    }
}

void PalToAidlConverter::convertAsrTimeStampEvent(pal_asr_ts_event* event, VoxaEvent& out) {
    out.timestamp_events.emplace();
    out.status = event->status == 0 ? kResultSucceeded : kResultFailed;

    for (uint32_t i = 0; i < event->num_events; ++i) {
        const pal_asr_ts_result& result = event->event[i];
        VoxaEvent::EventTS item;
        item.flag = result.flag != 0;
        item.value = result.value;
        item.text = textOf(result.text);
        item.aux_text = textOf(result.aux_text);
        item.start_ts = result.start_ts;
        item.end_ts = result.end_ts;
        item.word_count = result.word_count;
        for (int32_t j = 0; j < item.word_count && j < PAL_ASR_MAX_WORDS; ++j) {
            const pal_asr_word& slot = result.words[j];
            VoxaEvent::Word word;
            word.value = slot.value;
            word.word = textOf(slot.word);
            word.start_ts = slot.start_ts;
            word.end_ts = slot.end_ts;
            item.words.push_back(word);
        }
        item.data = trailingData(result.data, result.data_size);
        out.timestamp_events->push_back(item);
    }
}

void PalToAidlConverter::convertSdzEvent(pal_sdz_event* event, SpeakerDiarizationEvent& out) {
    for (uint32_t i = 0; i < event->num_events; ++i) {
        const pal_sdz_result& result = event->event[i];
        SpeakerDiarizationEvent::Event item;
        item.speaker_count = static_cast<int32_t>(result.speaker_count);
        item.flag = result.flag != 0;
        out.events.push_back(item);

        // Results overlap their predecessors' speaker records; the layout defines it so.
        for (uint32_t j = 0; j < result.speaker_count; ++j) {
            const pal_sdz_speaker& speaker = speakerOf(result, j);
            SpeakerDiarizationEvent::SpeakerInfo info;
            info.value = speaker.value;
            info.start_ts = speaker.start_ts;
            info.end_ts = speaker.end_ts;
            out.events[i].speakers.push_back(info);
        }
    }
}

}  // namespace aidl::vendor::orbo::hardware::voxa
