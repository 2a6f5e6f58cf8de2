// Recordings made for the diarization tests and benchmark, and their scoring: turns spoken by
// espeak-ng voices (or taken from recordings), with pauses between them, and the diarization
// error rate of what the engine says against who really spoke when.
#ifndef VOXA_BENCH_SYNTHETIC_SPEECH_H
#define VOXA_BENCH_SYNTHETIC_SPEECH_H

#include <cstdint>
#include <string>
#include <vector>

namespace voxa_bench {

// Who spoke when, in ms from the start of the recording.
struct Segment {
    int32_t speaker = 0;
    int64_t startMs = 0;
    int64_t endMs = 0;
};

// One turn: a text an espeak-ng voice speaks, or a sound file when `file` is set.
struct Turn {
    int32_t speaker = 0;
    std::string voice;  // espeak-ng's -v, with its pitch (-p) and speed (-s)
    int pitch = 50;
    int speed = 160;
    std::string text;
    std::string file;
    int64_t pauseMs = 0;  // silence before the turn
};

// A recording as the engine's file source plays it: the files in order, and who spoke when.
struct Recording {
    std::vector<std::string> files;
    std::vector<Segment> speech;
};

// Writes the turns as WAV files under `directory` (the pauses as silent files) and finds the
// speech of each: its 10 ms frames louder than -40 dBFS, pauses under 300 ms bridged. Returns
// false when espeak-ng or a file fails.
bool makeRecording(const std::vector<Turn>& turns, const std::string& directory,
                   Recording* recording);

// Three voices taking turns in a conversation of `turns` turns (at most 12), with pauses of
// 250 ms to 1 s; `voices` of them (2 or 3) speak.
std::vector<Turn> conversation(int voices, size_t turns);

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

#endif  // VOXA_BENCH_SYNTHETIC_SPEECH_H
