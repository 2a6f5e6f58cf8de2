// A recording made for the diarization benchmark from turns (Turn.h): the files that the engine's
// file source plays one after the other, and who spoke when in them.
#ifndef VOXA_BENCH_RECORDING_H
#define VOXA_BENCH_RECORDING_H

#include <string>
#include <vector>

#include "Segment.h"
#include "Turn.h"

namespace voxa_bench {

struct Recording {
    std::vector<std::string> files;
    std::vector<Segment> speech;
};

// Writes the turns as WAV files under `directory` (the pauses as silent files, a trimmed turn
// cut to its speech) and finds the speech of each (Segment.h). Returns false when espeak-ng or a
// file fails.
bool makeRecording(const std::vector<Turn>& turns, const std::string& directory,
                   Recording* recording);

}  // namespace voxa_bench

#endif  // VOXA_BENCH_RECORDING_H
