// The speech recogniser behind a stream: a PocketSphinx decoder fed 16 kHz mono 16-bit PCM. The
// audio goes through it as it comes in one of two ways:
// - searched: the first pass's tree search runs, offers partial hypotheses, and its words are
//   an ended utterance's result;
// - heard only: its voice-activity detector alone runs, and an ended utterance is decoded as a
//   whole (the tree search, forward-flat and best-path passes over the complete utterance, with
//   the cepstral mean taken from the utterance itself), which is slower and more accurate.
#ifndef PAL_ENGINE_RECOGNISER_H
#define PAL_ENGINE_RECOGNISER_H

#include <pal/pal_api.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "FrontEnd.h"
#include "ModelImage.h"

struct cmd_ln_s;
struct fe_s;
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
    // Loads the model that `image` names; `identity` is modelIdentity(image), taken before the
    // files were read. Returns 0, or PAL_STATUS_INVALID when it cannot be loaded.
    static int32_t create(const ModelImage& image, const std::string& identity,
                          std::unique_ptr<Recogniser>* recogniser);
    ~Recogniser();
    Recogniser(const Recogniser&) = delete;
    Recogniser& operator=(const Recogniser&) = delete;

    // The identity of the files the model was loaded from (modelIdentity).
    const std::string& identity() const { return mIdentity; }

    // Readies the recogniser for recordings in which `silenceMs` of silence end an utterance
    // and, with `search`, the first pass searches the audio: reloads the decoder when the
    // silence changes, and makes the first pass's search the first time one is wanted.
    // Precondition: no recording in progress. Returns 0, or PAL_STATUS_INVALID when either fails.
    int32_t prepare(int32_t silenceMs, bool search);

    // Begins a recording as a newly loaded recogniser would: times restart at 0, the running
    // cepstral mean goes back to the model's initial one, and the voice-activity detector starts
    // anew. With `search`, the first pass searches the audio and a first utterance opens;
    // without, the detector alone hears it and results come from decodeWhole. Precondition:
    // prepare() succeeded for this `search` since the last reload.
    void beginRecording(bool search);
    // Ends the recording, dropping the open utterance.
    void endRecording();
    // Feeds samples of the recording to the first pass. Returns whether its voice-activity
    // detector hears speech: it turns false once the configured silence has followed speech.
    bool process(const int16_t* samples, size_t count);
    // The first pass's best hypothesis of the current utterance so far ("" when none, and
    // without a search).
    std::string hypothesis();
    // How long the first pass has heard no word since the last word of its hypothesis, in ms;
    // -1 when the hypothesis has no word yet or there is no search. Unlike the voice-activity
    // detector, it counts breaths and noise after the last word as silence.
    int64_t silenceAfterLastWordMs();
    // Closes the current utterance, returns the first pass's result, opens the next one.
    // Precondition: a recording begun with a search.
    Result endUtterance();
    // Decodes `count` samples of the recording that begin at `startMs` as one whole utterance
    // and returns that result. Precondition: a recording begun without a search.
    Result decodeWhole(const int16_t* samples, size_t count, int64_t startMs);

  private:
    Recogniser(cmd_ln_s* config, ps_decoder_s* decoder, std::unique_ptr<FrontEnd> frontEnd,
               std::string identity);
    // After the decoder was (re)loaded: notes its initial cepstral-mean state and makes the
    // detector. Returns 0 or PAL_STATUS_INVALID.
    int32_t loaded();
    // The words of the utterance just ended. Frames count from the start of the recording, or
    // with `relative` from `offsetMs` at the utterance's first frame.
    Result collect(int64_t offsetMs, bool relative);

    cmd_ln_s* mConfig;
    ps_decoder_s* mDecoder;
    // A twin of the decoder's own front end, made from its configuration: the same
    // voice-activity detector, which hears the audio without the search behind it.
    fe_s* mDetector = nullptr;
    std::vector<float> mDetectorFrames;         // its cepstra, unused
    const std::unique_ptr<FrontEnd> mFrontEnd;  // cepstra of the whole-utterance pass
    const std::string mIdentity;
    // The first pass's cepstral-mean state as the decoder was loaded: what it adapts across
    // utterances, and all that it carries from one recording to the next besides the frame count
    // and the front end's state, which ps_start_stream resets.
    std::vector<float> mInitialMean;
    std::vector<float> mInitialSum;
    int32_t mInitialFrames = 0;
    int32_t mSilenceMs = kDefaultSilenceMs;
    bool mFirstPassSearch = false;  // the first pass's search has been made
    bool mSearching = false;        // the recording's audio goes to the first pass's search
    bool mUtteranceOpen = false;    // an utterance of the first pass's search is open
    std::vector<float> mCepstra;    // scratch of the whole-utterance pass
};

}  // namespace pal_engine

#endif  // PAL_ENGINE_RECOGNISER_H
