// PocketSphinx driven directly, without the service or the engine, the way the engine drives it
// (host/pal/engine/Recogniser.cpp, Recording.cpp): the files that the engine's model image
// names, audio fed in blocks of 50 ms, one of two ways.
// - The first pass's: a tree search without the forward-flat pass (made beside the decoder's
//   own search, on the language model itself), whose utterance ends at the first block after
//   which its voice-activity detector hears no speech or 500 ms have followed the last word of
//   its hypothesis; its words are the result.
// - The whole-utterance way: the voice-activity detector alone (a front end made from the
//   decoder's configuration) ends an utterance at the first block after which it hears no
//   speech; the utterance's audio (from 500 ms before the detector heard speech) is decoded by
//   the decoder's own search, as pocketsphinx_batch's (the forward-flat and best-path passes
//   included), on cepstra whose mean is the utterance's own.
// The yardstick for what the stack recognises.
#ifndef VOXA_BENCH_REFERENCE_RECOGNISER_H
#define VOXA_BENCH_REFERENCE_RECOGNISER_H

#include <cstdint>
#include <string>
#include <vector>

namespace voxa_bench {

inline const std::string kLibriVox = "/usr/share/pocketsphinx/test/data/librivox/";

// Words separated by blanks, in order.
std::vector<std::string> splitWords(const std::string& text);

// The recogniser's words for a 16 kHz mono sound file, utterance after utterance, with the model
// image at `modelImage`: the first pass's words, or with `wholeUtterance` those of the second.
// Returns false when the model or the file cannot be loaded.
bool recogniseDirectly(const std::string& modelImage, const std::string& path, bool wholeUtterance,
                       std::vector<std::string>* words);

// Word error rate of `hypothesis` against `reference`, in edits per reference word.
double wordErrorRate(const std::vector<std::string>& reference,
                     const std::vector<std::string>& hypothesis);

}  // namespace voxa_bench

#endif  // VOXA_BENCH_REFERENCE_RECOGNISER_H
