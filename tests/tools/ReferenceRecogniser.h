// PocketSphinx driven directly, without the service or the engine, with the settings the engine
// gives it (host/pal/engine/Recogniser.cpp): the files that the engine's model image names, the
// voice-activity detector ending an utterance after 500 ms of silence, the audio fed in blocks of
// 50 ms and an utterance closed at the first block after which the detector hears no speech.
// The yardstick for what the whole stack recognises.
#ifndef VOXA_TESTS_TOOLS_REFERENCE_RECOGNISER_H
#define VOXA_TESTS_TOOLS_REFERENCE_RECOGNISER_H

#include <cstdint>
#include <string>
#include <vector>

namespace voxa_test {

inline const std::string kLibriVox = "/usr/share/pocketsphinx/test/data/librivox/";

// Words separated by blanks, in order.
std::vector<std::string> splitWords(const std::string& text);

// The recogniser's words for a 16 kHz mono sound file, utterance after utterance, with the model
// image at `modelImage`. Returns false when the model or the file cannot be loaded.
bool recogniseDirectly(const std::string& modelImage, const std::string& path,
                       std::vector<std::string>* words);

// Word error rate of `hypothesis` against `reference`, in edits per reference word.
double wordErrorRate(const std::vector<std::string>& reference,
                     const std::vector<std::string>& hypothesis);

}  // namespace voxa_test

#endif  // VOXA_TESTS_TOOLS_REFERENCE_RECOGNISER_H
