#include "Recogniser.h"

#include <pocketsphinx.h>
#include <sphinxbase/err.h>

#include <cmath>
#include <string>

namespace pal_engine {

namespace {

// Words that mark silence, breath or noise rather than speech: "<s>", "<sil>", "[NOISE]"...
bool isFiller(const std::string& word) {
    return word.empty() || word[0] == '<' || word[0] == '[' || word.compare(0, 2, "++") == 0;
}

// "read(2)" names the second pronunciation of "read".
std::string baseForm(const std::string& word) {
    size_t paren = word.find('(');
    return paren == std::string::npos || paren == 0 ? word : word.substr(0, paren);
}

int32_t percent(double probability) {
    if (!(probability > 0)) {
        return 0;
    }
    return probability >= 1 ? 100 : static_cast<int32_t>(std::lround(probability * 100));
}

}  // namespace

int32_t Recogniser::create(const ModelImage& image, std::unique_ptr<Recogniser>* recogniser) {
    // The recogniser's own log would go to stderr; the engine reports through its statuses.
    err_set_logfp(nullptr);
    std::string silenceFrames = std::to_string(kDefaultSilenceMs / 10);
    cmd_ln_t* config =
            cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", image.acousticModel.c_str(), "-lm",
                        image.languageModel.c_str(), "-dict", image.dictionary.c_str(),
                        "-vad_postspeech", silenceFrames.c_str(), nullptr);
    if (config == nullptr) {
        return -22;
    }
    ps_decoder_t* decoder = ps_init(config);
    if (decoder == nullptr) {
        cmd_ln_free_r(config);
        return -22;
    }
    recogniser->reset(new Recogniser(config, decoder));
    return 0;
}

Recogniser::Recogniser(cmd_ln_t* config, ps_decoder_t* decoder)
    : mConfig(config), mDecoder(decoder), mFrameMs(1000 / cmd_ln_int32_r(config, "-frate")) {}

Recogniser::~Recogniser() {
    ps_free(mDecoder);
    cmd_ln_free_r(mConfig);
}

int32_t Recogniser::setSilence(int32_t ms) {
    if (ms == mSilenceMs) {
        return 0;
    }
    // The voice-activity detector counts whole frames; round up so that no utterance ends early.
    cmd_ln_set_int32_r(mConfig, "-vad_postspeech", (ms + mFrameMs - 1) / mFrameMs);
    if (ps_reinit(mDecoder, nullptr) < 0) {
        return -22;
    }
    mSilenceMs = ms;
    return 0;
}

void Recogniser::beginRecording() {
    endRecording();
    ps_start_stream(mDecoder);
    ps_start_utt(mDecoder);
    mUtteranceOpen = true;
}

void Recogniser::endRecording() {
    if (mUtteranceOpen) {
        ps_end_utt(mDecoder);
    }
    mUtteranceOpen = false;
}

bool Recogniser::process(const int16_t* samples, size_t count) {
    ps_process_raw(mDecoder, samples, count, FALSE, FALSE);
    return ps_get_in_speech(mDecoder) != 0;
}

std::string Recogniser::hypothesis() {
    int32 score = 0;
    const char* text = ps_get_hyp(mDecoder, &score);
    return text == nullptr ? "" : text;
}

Result Recogniser::endUtterance() {
    ps_end_utt(mDecoder);
    Result result;
    logmath_t* logmath = ps_get_logmath(mDecoder);
    int64_t sum = 0;
    bool first = true;
    for (ps_seg_t* seg = ps_seg_iter(mDecoder); seg != nullptr; seg = ps_seg_next(seg)) {
        int startFrame = 0;
        int endFrame = 0;
        ps_seg_frames(seg, &startFrame, &endFrame);
        if (first) {
            result.startMs = startFrame * mFrameMs;
            first = false;
        }
        result.endMs = (endFrame + 1) * mFrameMs;
        std::string text = ps_seg_word(seg);
        if (isFiller(text)) {
            continue;
        }
        int32 acoustic = 0;
        int32 language = 0;
        int32 backoff = 0;
        int32 posterior = ps_seg_prob(seg, &acoustic, &language, &backoff);
        Word word;
        word.text = baseForm(text);
        word.startMs = startFrame * mFrameMs;
        word.endMs = (endFrame + 1) * mFrameMs;
        word.confidence = percent(logmath_exp(logmath, posterior));
        sum += word.confidence;
        result.words.push_back(word);
    }
    if (!result.words.empty()) {
        result.startMs = result.words.front().startMs;
        result.endMs = result.words.back().endMs;
        result.confidence = static_cast<int32_t>(sum / static_cast<int64_t>(result.words.size()));
    }
    for (const Word& word : result.words) {
        if (!result.text.empty()) {
            result.text += ' ';
        }
        result.text += word.text;
    }
    ps_start_utt(mDecoder);
    return result;
}

}  // namespace pal_engine
