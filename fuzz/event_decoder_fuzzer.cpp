// The three event payloads through PalToAidlConverter, built from the fuzz bytes so that their
// counts agree with their length: the PAL is trusted for its counts (the number of results, a
// result's trailing data size and speaker count), so this target never hands the decoders a
// payload shorter than its counts say. Every other byte, texts without a NUL and word counts
// beyond the word slots included, comes from the fuzz input.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

#include "PalToAidlConverter.h"

using namespace aidl::vendor::orbo::hardware::voxa;

namespace {

constexpr uint32_t kMaxTrailingData = 256;

void put32(std::vector<uint8_t>& payload, size_t offset, uint32_t value) {
    std::memcpy(payload.data() + offset, &value, sizeof(value));
}

// `size` bytes of the fuzz input, repeated as needed (zeros when there is none).
std::vector<uint8_t> filled(const std::vector<uint8_t>& bytes, size_t size) {
    std::vector<uint8_t> payload(size, 0);
    for (size_t i = 0; !bytes.empty() && i < size; ++i) payload[i] = bytes[i % bytes.size()];
    return payload;
}

// `Event`'s results at their fixed stride, each with trailing data that the payload holds in
// full.
template <typename Event, typename Result>
std::vector<uint8_t> resultsPayload(FuzzedDataProvider& input, uint32_t maxResults) {
    const size_t first = offsetof(Event, event);
    uint32_t count = input.ConsumeIntegralInRange<uint32_t>(0, maxResults);
    std::vector<uint32_t> dataSizes;
    size_t size = first + count * sizeof(Result);
    for (uint32_t i = 0; i < count; ++i) {
        dataSizes.push_back(input.ConsumeIntegralInRange<uint32_t>(0, kMaxTrailingData));
        size = std::max(size, first + i * sizeof(Result) + offsetof(Result, data) + dataSizes[i]);
    }
    std::vector<uint8_t> payload = filled(input.ConsumeRemainingBytes<uint8_t>(), size);
    put32(payload, offsetof(Event, num_events), count);
    for (uint32_t i = 0; i < count; ++i) {
        put32(payload, first + i * sizeof(Result) + offsetof(Result, data_size), dataSizes[i]);
    }
    return payload;
}

// Diarization results at their 8-byte stride, each with the speakers its count gives.
std::vector<uint8_t> sdzPayload(FuzzedDataProvider& input) {
    const size_t first = offsetof(pal_sdz_event, event);
    uint32_t count = input.ConsumeIntegralInRange<uint32_t>(0, 16);
    std::vector<uint32_t> speakers;
    size_t size = first;
    for (uint32_t i = 0; i < count; ++i) {
        speakers.push_back(input.ConsumeIntegralInRange<uint32_t>(0, 8));
        size = std::max(size, first + i * sizeof(pal_sdz_result) +
                                      offsetof(pal_sdz_result, speakers) +
                                      speakers[i] * sizeof(pal_sdz_speaker));
    }
    std::vector<uint8_t> payload = filled(input.ConsumeRemainingBytes<uint8_t>(), size);
    put32(payload, offsetof(pal_sdz_event, num_events), count);
    for (uint32_t i = 0; i < count; ++i) {
        put32(payload, first + i * sizeof(pal_sdz_result), speakers[i]);
    }
    return payload;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 64 * 1024) return 0;
    FuzzedDataProvider input(data, size);
    switch (input.ConsumeIntegralInRange<int>(0, 2)) {
        case 0: {
            std::vector<uint8_t> payload = resultsPayload<pal_asr_event, pal_asr_result>(input, 4);
            VoxaEvent event;
            PalToAidlConverter::convertAsrEvent(reinterpret_cast<pal_asr_event*>(payload.data()),
                                                event);
            break;
        }
        case 1: {
            std::vector<uint8_t> payload =
                    resultsPayload<pal_asr_ts_event, pal_asr_ts_result>(input, 3);
            VoxaEvent event;
            PalToAidlConverter::convertAsrTimeStampEvent(
                    reinterpret_cast<pal_asr_ts_event*>(payload.data()), event);
            break;
        }
        default: {
            std::vector<uint8_t> payload = sdzPayload(input);
            SpeakerDiarizationEvent event;
            PalToAidlConverter::convertSdzEvent(reinterpret_cast<pal_sdz_event*>(payload.data()),
                                                event);
            break;
        }
    }
    return 0;
}
