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

void put32(std::vector<uint8_t>& payload, size_t offset, uint32_t value) {
    std::memcpy(payload.data() + offset, &value, sizeof(value));
}

// `size` bytes of the fuzz input, repeated as needed (zeros when there is none).
std::vector<uint8_t> filled(const std::vector<uint8_t>& bytes, size_t size) {
    std::vector<uint8_t> payload(size, 0);
    for (size_t i = 0; !bytes.empty() && i < size; ++i) payload[i] = bytes[i % bytes.size()];
    return payload;
}

// Up to `maxResults` of `Event`'s results at their fixed stride, each followed by as many units of
// its tail (trailing data bytes, or speakers) as the count at `countAt` in the result says, up to
// `maxCount`, and held in full by the payload; then decoded by `convert`.
template <typename Event, typename Result, typename Out>
void decode(FuzzedDataProvider& input, uint32_t maxResults, size_t countAt, size_t tailAt,
            size_t unit, uint32_t maxCount, void (*convert)(Event*, Out&)) {
    const size_t first = offsetof(Event, event);
    uint32_t results = input.ConsumeIntegralInRange<uint32_t>(0, maxResults);
    std::vector<uint32_t> counts;
    size_t size = first + results * sizeof(Result);
    for (uint32_t i = 0; i < results; ++i) {
        counts.push_back(input.ConsumeIntegralInRange<uint32_t>(0, maxCount));
        size = std::max(size, first + i * sizeof(Result) + tailAt + counts[i] * unit);
    }
    std::vector<uint8_t> payload = filled(input.ConsumeRemainingBytes<uint8_t>(), size);
    put32(payload, offsetof(Event, num_events), results);
    for (uint32_t i = 0; i < results; ++i) {
        put32(payload, first + i * sizeof(Result) + countAt, counts[i]);
    }
    Out out;
    convert(reinterpret_cast<Event*>(payload.data()), out);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 64 * 1024) return 0;
    FuzzedDataProvider input(data, size);
    switch (input.ConsumeIntegralInRange<int>(0, 2)) {
        case 0:
            decode<pal_asr_event, pal_asr_result>(input, 4, offsetof(pal_asr_result, data_size),
                                                  offsetof(pal_asr_result, data), 1, 256,
                                                  &PalToAidlConverter::convertAsrEvent);
            break;
        case 1:
            decode<pal_asr_ts_event, pal_asr_ts_result>(
                    input, 3, offsetof(pal_asr_ts_result, data_size),
                    offsetof(pal_asr_ts_result, data), 1, 256,
                    &PalToAidlConverter::convertAsrTimeStampEvent);
            break;
        default:
            decode<pal_sdz_event, pal_sdz_result>(
                    input, 16, offsetof(pal_sdz_result, speaker_count),
                    offsetof(pal_sdz_result, speakers), sizeof(pal_sdz_speaker), 8,
                    &PalToAidlConverter::convertSdzEvent);
            break;
    }
    return 0;
}
