#include "Recogniser.h"

#include <pocketsphinx.h>
#include <sphinxbase/err.h>
#include <sphinxbase/fe.h>
#include <sphinxbase/feat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <string>

namespace pal_engine {

namespace {

// The decoder's own search, which ps_init makes as pocketsphinx_batch's: the whole-utterance
// pass's.
constexpr char kWholeSearch[] = "_default";
// The first pass's, made beside it when a recording first wants one.
constexpr char kFirstPassSearch[] = "first";
// Frames the detector makes at a time; a 50 ms block makes at most 5, and the onset of speech
// adds those the detector held back from before it.
constexpr size_t kDetectorFrames = 64;

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

int32_t Recogniser::create(const ModelImage& image, const std::string& identity,
                           std::unique_ptr<Recogniser>* recogniser) {
    // The recogniser's own log would go to stderr; the engine reports through its statuses.
    err_set_logfp(nullptr);
    std::string silenceFrames = std::to_string(kDefaultSilenceMs / kFrameMs);
    cmd_ln_t* config =
            cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", image.acousticModel.c_str(), "-lm",
                        image.languageModel.c_str(), "-dict", image.dictionary.c_str(),
                        "-vad_postspeech", silenceFrames.c_str(), nullptr);
    if (config == nullptr) {
        return PAL_STATUS_INVALID;
    }
    ps_decoder_t* decoder = ps_init(config);
    if (decoder == nullptr) {
        cmd_ln_free_r(config);
        return PAL_STATUS_INVALID;
    }
    std::unique_ptr<FrontEnd> frontEnd = FrontEnd::forModel(image.acousticModel);
    std::unique_ptr<Recogniser> made(
            new Recogniser(config, decoder, std::move(frontEnd), identity));
    if (made->mFrontEnd == nullptr || cmd_ln_int32_r(config, "-frate") != 1000 / kFrameMs ||
        made->loaded() != 0) {
        return PAL_STATUS_INVALID;
    }
    *recogniser = std::move(made);
    return 0;
}

Recogniser::Recogniser(cmd_ln_t* config, ps_decoder_t* decoder, std::unique_ptr<FrontEnd> frontEnd,
                       std::string identity)
    : mConfig(config),
      mDecoder(decoder),
      mFrontEnd(std::move(frontEnd)),
      mIdentity(std::move(identity)) {}

Recogniser::~Recogniser() {
    if (mDetector != nullptr) {
        fe_free(mDetector);
    }
    ps_free(mDecoder);
    cmd_ln_free_r(mConfig);
}

int32_t Recogniser::loaded() {
    const cmn_t* mean = ps_get_feat(mDecoder)->cmn_struct;
    mInitialMean.assign(mean->cmn_mean, mean->cmn_mean + mean->veclen);
    mInitialSum.assign(mean->sum, mean->sum + mean->veclen);
    mInitialFrames = mean->nframe;
    mFirstPassSearch = false;
    // The decoder's configuration now holds the model's feature parameters, from which it made
    // its own front end; the detector's silence is the decoder's.
    if (mDetector != nullptr) {
        fe_free(mDetector);
    }
    mDetector = fe_init_auto_r(mConfig);
    if (mDetector == nullptr) {
        return PAL_STATUS_INVALID;
    }
    mDetectorFrames.resize(kDetectorFrames * static_cast<size_t>(fe_get_output_size(mDetector)));
    return 0;
}

int32_t Recogniser::prepare(int32_t silenceMs, bool search) {
    if (silenceMs != mSilenceMs) {
        // The voice-activity detector counts whole frames; round up so that no utterance ends
        // early.
        cmd_ln_set_int32_r(mConfig, "-vad_postspeech", (silenceMs + kFrameMs - 1) / kFrameMs);
        if (ps_reinit(mDecoder, nullptr) < 0 || loaded() != 0) {
            return PAL_STATUS_INVALID;
        }
        mSilenceMs = silenceMs;
    }
    if (!search || mFirstPassSearch) {
        return 0;
    }
    // A second n-gram search on the same models, without the forward-flat pass, so that a
    // final result follows the end of its utterance at once: the decoder reads the switch when
    // a search is made. The decoder's own search holds its language model in a set of one; this
    // one takes the model itself, as ps_init does for a model file: a set of that set would put
    // every word of the dictionary, known to the model or not, in the search tree.
    ngram_model_t* set = ps_get_lm(mDecoder, kWholeSearch);
    if (set == nullptr || ngram_model_set_count(set) != 1) {
        return PAL_STATUS_INVALID;
    }
    ngram_model_set_iter_t* first = ngram_model_set_iter(set);
    const char* name = nullptr;
    ngram_model_t* model = ngram_model_set_iter_model(first, &name);
    ngram_model_set_iter_free(first);
    if (model == nullptr) {
        return PAL_STATUS_INVALID;
    }
    cmd_ln_set_boolean_r(mConfig, "-fwdflat", FALSE);
    const int status = ps_set_lm(mDecoder, kFirstPassSearch, model);
    cmd_ln_set_boolean_r(mConfig, "-fwdflat", TRUE);
    if (status < 0) {
        return PAL_STATUS_INVALID;
    }
    mFirstPassSearch = true;
    return 0;
}

void Recogniser::beginRecording(bool search) {
    endRecording();
    cmn_t* mean = ps_get_feat(mDecoder)->cmn_struct;
    std::copy(mInitialMean.begin(), mInitialMean.end(), mean->cmn_mean);
    std::copy(mInitialSum.begin(), mInitialSum.end(), mean->sum);
    mean->nframe = mInitialFrames;
    ps_set_search(mDecoder, search ? kFirstPassSearch : kWholeSearch);
    ps_start_stream(mDecoder);
    mSearching = search;
    if (search) {
        ps_start_utt(mDecoder);
        mUtteranceOpen = true;
    } else {
        fe_start_stream(mDetector);
        fe_start_utt(mDetector);
    }
}

void Recogniser::endRecording() {
    if (mUtteranceOpen) {
        ps_end_utt(mDecoder);
    }
    mUtteranceOpen = false;
}

bool Recogniser::process(const int16_t* samples, size_t count) {
    if (mSearching) {
        ps_process_raw(mDecoder, samples, count, FALSE, FALSE);
        return ps_get_in_speech(mDecoder) != 0;
    }
    const size_t size = static_cast<size_t>(fe_get_output_size(mDetector));
    mfcc_t* rows[kDetectorFrames];
    for (size_t i = 0; i < kDetectorFrames; ++i) {
        rows[i] = mDetectorFrames.data() + i * size;
    }
    const int16* next = samples;
    size_t left = count;
    while (left > 0) {
        const size_t before = left;
        int32 made = static_cast<int32>(kDetectorFrames);
        if (fe_process_frames(mDetector, &next, &left, rows, &made, nullptr) < 0 ||
            (made == 0 && left == before)) {
            break;
        }
    }
    return fe_get_vad_state(mDetector) != 0;
}

std::string Recogniser::hypothesis() {
    if (!mSearching) {
        return "";
    }
    int32 score = 0;
    const char* text = ps_get_hyp(mDecoder, &score);
    return text == nullptr ? "" : text;
}

int64_t Recogniser::silenceAfterLastWordMs() {
    if (!mSearching) {
        return -1;
    }
    // The best path so far reaches the frame the search has come to; its last segments are
    // fillers when nothing but silence or noise has followed the last word.
    int lastWordEnd = -1;
    int searched = -1;
    for (ps_seg_t* seg = ps_seg_iter(mDecoder); seg != nullptr; seg = ps_seg_next(seg)) {
        int startFrame = 0;
        int endFrame = 0;
        ps_seg_frames(seg, &startFrame, &endFrame);
        searched = endFrame;
        if (!isFiller(ps_seg_word(seg))) {
            lastWordEnd = endFrame;
        }
    }
    return lastWordEnd < 0 ? -1 : (searched - lastWordEnd) * kFrameMs;
}

Result Recogniser::endUtterance() {
    ps_end_utt(mDecoder);
    Result result = collect(0, false);
    ps_start_utt(mDecoder);
    return result;
}

Result Recogniser::decodeWhole(const int16_t* samples, size_t count, int64_t startMs) {
    mCepstra.clear();
    mFrontEnd->reset();
    mFrontEnd->process(samples, count, &mCepstra);
    mFrontEnd->finish(&mCepstra);
    const size_t frames = mCepstra.size() / static_cast<size_t>(mFrontEnd->size());
    std::vector<mfcc_t*> rows(frames);
    for (size_t i = 0; i < frames; ++i) {
        rows[i] = mCepstra.data() + i * static_cast<size_t>(mFrontEnd->size());
    }

    // The first pass keeps a running cepstral mean across utterances; this pass takes the mean
    // of the utterance itself (overwriting the running one, which beginRecording restores).
    feat_t* features = ps_get_feat(mDecoder);
    const cmn_type_t firstPassMean = features->cmn;
    features->cmn = CMN_BATCH;
    ps_start_utt(mDecoder);
    ps_process_cep(mDecoder, rows.data(), static_cast<int>(frames), FALSE, TRUE);
    ps_end_utt(mDecoder);
    Result result = collect(startMs, true);
    features->cmn = firstPassMean;
    return result;
}

Result Recogniser::collect(int64_t offsetMs, bool relative) {
    Result result;
    logmath_t* logmath = ps_get_logmath(mDecoder);
    int64_t sum = 0;
    bool first = true;
    for (ps_seg_t* seg = ps_seg_iter(mDecoder); seg != nullptr; seg = ps_seg_next(seg)) {
        int startFrame = 0;
        int endFrame = 0;
        ps_seg_frames(seg, &startFrame, &endFrame);
        if (first) {
            // The decoder numbers frames from the start of the stream, this pass's as well.
            if (relative) {
                offsetMs -= startFrame * kFrameMs;
            }
            result.startMs = offsetMs + startFrame * kFrameMs;
            first = false;
        }
        result.endMs = offsetMs + (endFrame + 1) * kFrameMs;
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
        word.startMs = offsetMs + startFrame * kFrameMs;
        word.endMs = offsetMs + (endFrame + 1) * kFrameMs;
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
    return result;
}

}  // namespace pal_engine
