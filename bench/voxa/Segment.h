// Who spoke when in a recording made for the diarization benchmark, and how that is found from
// a turn's audio: its 10 ms frames louder than -40 dBFS, short pauses bridged.
#ifndef VOXA_BENCH_SEGMENT_H
#define VOXA_BENCH_SEGMENT_H

#include <cstdint>
#include <vector>

namespace voxa_bench {

// A stretch of one speaker's speech, in ms from the start of the recording.
struct Segment {
    int32_t speaker = 0;
    int64_t startMs = 0;
    int64_t endMs = 0;
};

// Appends to `speech` the speech of `samples` (mono, `rate` Hz) that `speaker` says from
// `offsetMs` on: its 10 ms frames louder than -40 dBFS, pauses under 300 ms bridged.
void appendSpeech(const std::vector<short>& samples, int rate, int32_t speaker, int64_t offsetMs,
                  std::vector<Segment>* speech);

}  // namespace voxa_bench

#endif  // VOXA_BENCH_SEGMENT_H
