#include "ReferenceRecogniser.h"

#include <pocketsphinx.h>
#include <sndfile.h>
#include <sphinxbase/err.h>
#include <sphinxbase/fe.h>
#include <sphinxbase/feat.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>
#include <numeric>
#include <sstream>

namespace voxa_bench {

namespace {

constexpr size_t kRate = 16000;
constexpr size_t kBlock = kRate / 20;
constexpr size_t kLead = kRate / 2;  // 500 ms kept from before the detector hears speech
constexpr int kSilenceFrames = 50;   // 500 ms at 100 frames a second

void appendHypothesis(ps_decoder_t* decoder, std::vector<std::string>* words) {
    int32 score = 0;
    const char* text = ps_get_hyp(decoder, &score);
    if (text == nullptr) return;
    for (const std::string& word : splitWords(text)) words->push_back(word);
}

bool isFiller(const char* word) {
    return word[0] == '<' || word[0] == '[' || (word[0] == '+' && word[1] == '+');
}

// Frames from the last word of the first pass's hypothesis to where its search stands.
int framesAfterLastWord(ps_decoder_t* decoder) {
    int lastWord = -1;
    int searched = -1;
    for (ps_seg_t* seg = ps_seg_iter(decoder); seg != nullptr; seg = ps_seg_next(seg)) {
        int start = 0;
        ps_seg_frames(seg, &start, &searched);
        if (!isFiller(ps_seg_word(seg))) lastWord = searched;
    }
    return lastWord < 0 ? -1 : searched - lastWord;
}

// Whether the voice-activity detector `detector` hears speech after `count` more samples.
bool hearsSpeech(fe_t* detector, const int16_t* samples, size_t count) {
    const size_t size = static_cast<size_t>(fe_get_output_size(detector));
    std::vector<mfcc_t> frames(64 * size);
    std::vector<mfcc_t*> rows(64);
    for (size_t i = 0; i < rows.size(); ++i) rows[i] = frames.data() + i * size;
    const int16* next = samples;
    while (count > 0) {
        const size_t before = count;
        int32 made = static_cast<int32>(rows.size());
        fe_process_frames(detector, &next, &count, rows.data(), &made, nullptr);
        if (made == 0 && count == before) break;
    }
    return fe_get_vad_state(detector) != 0;
}

// The second pass over `audio`: a search with the forward-flat pass on cepstra of the model's
// front end, with the utterance's own cepstral mean.
void decodeWhole(ps_decoder_t* decoder, fe_t* frontEnd, const std::vector<int16_t>& audio,
                 std::vector<std::string>* words) {
    const int size = fe_get_output_size(frontEnd);
    std::vector<mfcc_t> cepstra((audio.size() / 160 + 3) * static_cast<size_t>(size));
    std::vector<mfcc_t*> rows(cepstra.size() / static_cast<size_t>(size));
    for (size_t i = 0; i < rows.size(); ++i) rows[i] = cepstra.data() + i * size;
    fe_start_stream(frontEnd);
    fe_start_utt(frontEnd);
    const int16* next = audio.data();
    size_t left = audio.size();
    int32 frames = static_cast<int32>(rows.size());
    fe_process_frames(frontEnd, &next, &left, rows.data(), &frames, nullptr);
    int32 last = 0;
    fe_end_utt(frontEnd, rows[frames], &last);
    frames += last;

    ps_get_feat(decoder)->cmn = CMN_BATCH;
    ps_start_utt(decoder);
    ps_process_cep(decoder, rows.data(), frames, FALSE, TRUE);
    ps_end_utt(decoder);
    appendHypothesis(decoder, words);
}

}  // namespace

std::vector<std::string> splitWords(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> words;
    std::string word;
    while (stream >> word) words.push_back(word);
    return words;
}

bool recogniseDirectly(const std::string& modelImage, const std::string& path, bool wholeUtterance,
                       std::vector<std::string>* words) {
    std::map<std::string, std::string> files;  // from the image's "acoustic-model /usr/..." lines
    std::ifstream image(modelImage);
    for (std::string line, key, value; std::getline(image, line);) {
        if (std::istringstream(line) >> key >> value) files[key] = value;
    }
    SF_INFO info = {};
    SNDFILE* sound = sf_open(path.c_str(), SFM_READ, &info);
    if (sound == nullptr) return false;
    std::vector<float> read(static_cast<size_t>(info.frames));
    sf_count_t count = sf_readf_float(sound, read.data(), info.frames);
    sf_close(sound);
    if (info.samplerate != static_cast<int>(kRate) || info.channels != 1 || count != info.frames) {
        return false;
    }
    // Quantised as the engine quantises what it reads.
    std::vector<int16_t> samples(read.size());
    for (size_t i = 0; i < read.size(); ++i) {
        samples[i] = static_cast<int16_t>(std::lround(std::clamp(read[i], -1.0f, 1.0f) * 32767.0f));
    }

    err_set_logfp(nullptr);
    const std::string silence = std::to_string(kSilenceFrames);
    cmd_ln_t* config =
            cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", files["acoustic-model"].c_str(), "-lm",
                        files["language-model"].c_str(), "-dict", files["dictionary"].c_str(),
                        "-vad_postspeech", silence.c_str(), nullptr);
    ps_decoder_t* decoder = config == nullptr ? nullptr : ps_init(config);
    if (decoder == nullptr) {
        if (config != nullptr) cmd_ln_free_r(config);
        return false;
    }
    if (!wholeUtterance) {
        // The decoder's own search is the whole-utterance pass's; the first pass's is another
        // without the forward-flat pass, on the language model itself rather than on the set of
        // it that the decoder's search holds.
        ngram_model_set_iter_t* first = ngram_model_set_iter(ps_get_lm(decoder, "_default"));
        const char* name = nullptr;
        ngram_model_t* model = ngram_model_set_iter_model(first, &name);
        ngram_model_set_iter_free(first);
        cmd_ln_set_boolean_r(config, "-fwdflat", FALSE);
        ps_set_lm(decoder, "first", model);
        cmd_ln_set_boolean_r(config, "-fwdflat", TRUE);
        ps_set_search(decoder, "first");
    }
    // The decoder's configuration holds the model's feature parameters now: a twin of its own
    // front end, voice-activity detector included.
    fe_t* detector = fe_init_auto_r(config);
    cmd_ln_t* frontEndConfig =
            cmd_ln_init(nullptr, ps_args(), TRUE, "-remove_silence", "no", nullptr);
    const std::string params = files["acoustic-model"] + "/feat.params";
    cmd_ln_parse_file_r(frontEndConfig, ps_args(), params.c_str(), FALSE);
    fe_t* frontEnd = fe_init_auto_r(frontEndConfig);
    cmd_ln_free_r(frontEndConfig);  // the front end keeps its own reference

    words->clear();
    ps_start_stream(decoder);
    if (wholeUtterance) {
        fe_start_stream(detector);
        fe_start_utt(detector);
    } else {
        ps_start_utt(decoder);
    }
    bool inUtterance = false;
    std::vector<int16_t> audio;
    auto endUtterance = [&] {
        if (wholeUtterance) {
            decodeWhole(decoder, frontEnd, audio, words);
        } else {
            ps_end_utt(decoder);
            appendHypothesis(decoder, words);
            ps_start_utt(decoder);
        }
        audio.clear();
        inUtterance = false;
    };
    for (size_t at = 0; at < samples.size(); at += kBlock) {
        const size_t count = std::min(kBlock, samples.size() - at);
        bool speech = false;
        if (wholeUtterance) {
            speech = hearsSpeech(detector, samples.data() + at, count);
        } else {
            ps_process_raw(decoder, samples.data() + at, count, FALSE, FALSE);
            speech = ps_get_in_speech(decoder) != 0;
        }
        inUtterance = inUtterance || speech;
        audio.insert(audio.end(), samples.begin() + at, samples.begin() + at + count);
        if (!inUtterance && audio.size() > kLead) {
            audio.erase(audio.begin(), audio.end() - kLead);
        }
        if (inUtterance &&
            (!speech || (!wholeUtterance && framesAfterLastWord(decoder) >= kSilenceFrames))) {
            endUtterance();
        }
    }
    if (inUtterance) endUtterance();
    if (!wholeUtterance) ps_end_utt(decoder);
    fe_free(frontEnd);
    fe_free(detector);
    ps_free(decoder);
    cmd_ln_free_r(config);
    return true;
}

double wordErrorRate(const std::vector<std::string>& reference,
                     const std::vector<std::string>& hypothesis) {
    // Levenshtein distance over words, one row at a time.
    std::vector<size_t> previous(hypothesis.size() + 1), current(hypothesis.size() + 1);
    std::iota(previous.begin(), previous.end(), 0);
    for (size_t i = 1; i <= reference.size(); ++i) {
        current[0] = i;
        for (size_t j = 1; j <= hypothesis.size(); ++j) {
            current[j] =
                    std::min({previous[j - 1] + (reference[i - 1] == hypothesis[j - 1] ? 0 : 1),
                              previous[j] + 1, current[j - 1] + 1});
        }
        std::swap(previous, current);
    }
    return reference.empty() ? 0.0 : static_cast<double>(previous.back()) / reference.size();
}

}  // namespace voxa_bench
