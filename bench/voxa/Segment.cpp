#include "Segment.h"

#include <cmath>

namespace voxa_bench {

namespace {

constexpr int64_t kFrameMs = 10;
constexpr int64_t kBridgeMs = 300;

}  // namespace

void appendSpeech(const std::vector<short>& samples, int rate, int32_t speaker, int64_t offsetMs,
                  std::vector<Segment>* speech) {
    const size_t frame = static_cast<size_t>(rate * kFrameMs / 1000);
    bool open = false;
    for (size_t f = 0; (f + 1) * frame <= samples.size(); ++f) {
        double energy = 0;
        for (size_t i = f * frame; i < (f + 1) * frame; ++i)
            energy += double(samples[i]) * samples[i];
        if (std::sqrt(energy / frame) < 32768 * 0.01) continue;
        const int64_t startMs = offsetMs + static_cast<int64_t>(f) * kFrameMs;
        if (open && startMs - speech->back().endMs < kBridgeMs) {
            speech->back().endMs = startMs + kFrameMs;
        } else {
            speech->push_back({speaker, startMs, startMs + kFrameMs});
            open = true;
        }
    }
}

}  // namespace voxa_bench
