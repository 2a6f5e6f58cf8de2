// The diarization error rate of what the engine says against who really spoke when: missed
// speech, false alarm and speaker confusion over the reference speech.
#ifndef VOXA_BENCH_ERROR_RATE_H
#define VOXA_BENCH_ERROR_RATE_H

#include <vector>

#include "Segment.h"

namespace voxa_bench {

struct ErrorRate {
    double missed = 0;      // share of the reference speech that no speaker covers
    double falseAlarm = 0;  // speech said where there is none, over the reference speech
    double confusion = 0;   // speech given to the wrong speaker, under the best mapping
    double total() const { return missed + falseAlarm + confusion; }
};

// The diarization error rate of `said` against `reference`, at 10 ms, no collar; each speaker
// of `said` maps to at most one of `reference`, the mapping that agrees most.
ErrorRate diarizationErrorRate(const std::vector<Segment>& reference,
                               const std::vector<Segment>& said);

}  // namespace voxa_bench

#endif  // VOXA_BENCH_ERROR_RATE_H
