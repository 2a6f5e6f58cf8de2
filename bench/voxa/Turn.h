// The turns of the recordings made for the diarization benchmark: a text that an espeak-ng voice
// speaks, or a sound file, and the conversations built of them.
#ifndef VOXA_BENCH_TURN_H
#define VOXA_BENCH_TURN_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace voxa_bench {

// One turn: a text an espeak-ng voice speaks, or a sound file when `file` is set.
struct Turn {
    int32_t speaker = 0;
    std::string voice;  // espeak-ng's -v, with its pitch (-p) and speed (-s)
    int pitch = 50;
    int speed = 160;
    std::string text;
    std::string file;
    int64_t pauseMs = 0;   // silence before the turn
    bool trimmed = false;  // cut to its speech: no silence of its own before or after it
};

// Writes the turn's text, spoken by its voice, as a WAV file at `path`. Returns false when
// espeak-ng fails.
bool speak(const Turn& turn, const std::string& path);

// Three voices taking turns in a conversation of `turns` turns (at most 12), with pauses of
// 250 ms to 1 s; `voices` of them (2 or 3) speak.
std::vector<Turn> conversation(int voices, size_t turns);

// `voices` voices (3 or 4) talking as people do, each turn (2 to 6 s) following the last with
// no pause, the voices coming back in no fixed order; `turns` turns, at most 15.
std::vector<Turn> unbrokenConversation(int voices, size_t turns);

}  // namespace voxa_bench

#endif  // VOXA_BENCH_TURN_H
