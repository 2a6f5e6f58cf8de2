// The speech recogniser behind a stream: a PocketSphinx decoder fed 16 kHz mono 16-bit PCM,
// which splits the audio into utterances by voice activity and reports words with times.
#ifndef PAL_ENGINE_RECOGNISER_H
#define PAL_ENGINE_RECOGNISER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ModelImage.h"

struct cmd_ln_s;
struct ps_decoder_s;

namespace pal_engine {

// Sample rate the recogniser takes, Hz.
constexpr int kRecogniserRate = 16000;
// Silence that ends an utterance unless the configuration says otherwise.
constexpr int32_t kDefaultSilenceMs = 500;

struct Word {
    std::string text;
    int64_t startMs = 0;  // from the start of the recording
    int64_t endMs = 0;
    int32_t confidence = 0;  // 0 to 100
};

struct Result {
    std::string text;  // the words, separated by single blanks
    std::vector<Word> words;
    int64_t startMs = 0;  // first word's start, or the utterance's when it has no word
    int64_t endMs = 0;
    int32_t confidence = 0;  // mean of the words' confidences; 0 without words
};

// Not thread-safe: one thread at a time drives a recogniser.
class Recogniser {
  public:
    // Loads the model that `image` names. Returns 0, or -22 when the recogniser cannot load it.
    static int32_t create(const ModelImage& image, std::unique_ptr<Recogniser>* recogniser);
    ~Recogniser();
    Recogniser(const Recogniser&) = delete;
    Recogniser& operator=(const Recogniser&) = delete;

    // Makes `ms` of silence end an utterance; reloads the decoder when the value changes.
    // Precondition: no recording in progress. Returns 0, or -22 when the reload fails.
    int32_t setSilence(int32_t ms);

    // Begins a recording: times restart at 0 and a first utterance opens.
    void beginRecording();
    // Ends the recording, dropping the open utterance.
    void endRecording();
    // Feeds samples of the recording. Returns whether the recogniser hears speech: it turns
    // false once the configured silence has followed speech.
    bool process(const int16_t* samples, size_t count);
    // The current utterance's best hypothesis so far ("" when there is none).
    std::string hypothesis();
    // Closes the current utterance, returns its result, and opens the next one.
    Result endUtterance();

  private:
    Recogniser(cmd_ln_s* config, ps_decoder_s* decoder);

    cmd_ln_s* mConfig;
    ps_decoder_s* mDecoder;
    int32_t mSilenceMs = kDefaultSilenceMs;
    int64_t mFrameMs;  // duration of one decoder frame
    bool mUtteranceOpen = false;
};

}  // namespace pal_engine

#endif  // PAL_ENGINE_RECOGNISER_H
