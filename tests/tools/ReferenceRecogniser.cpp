#include "ReferenceRecogniser.h"

#include <pocketsphinx.h>
#include <sndfile.h>
#include <sphinxbase/err.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

namespace voxa_test {

namespace {

constexpr int kRate = 16000;
constexpr size_t kBlock = kRate / 20;
constexpr char kSilenceFrames[] = "50";  // 500 ms at 100 frames a second

void appendHypothesis(ps_decoder_t* decoder, std::vector<std::string>* words) {
    int32 score = 0;
    const char* text = ps_get_hyp(decoder, &score);
    if (text == nullptr) return;
    for (const std::string& word : splitWords(text)) words->push_back(word);
}

}  // namespace

std::vector<std::string> splitWords(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> words;
    std::string word;
    while (stream >> word) words.push_back(word);
    return words;
}

bool recogniseDirectly(const std::string& modelImage, const std::string& path,
                       std::vector<std::string>* words) {
    std::map<std::string, std::string> files;  // from the image's "acoustic-model /usr/..." lines
    std::ifstream image(modelImage);
    for (std::string line, key, value; std::getline(image, line);) {
        if (std::istringstream(line) >> key >> value) files[key] = value;
    }
    SF_INFO info = {};
    SNDFILE* sound = sf_open(path.c_str(), SFM_READ, &info);
    if (sound == nullptr) return false;
    std::vector<int16_t> samples(static_cast<size_t>(info.frames));
    sf_count_t read = sf_readf_short(sound, samples.data(), info.frames);
    sf_close(sound);
    if (info.samplerate != kRate || info.channels != 1 || read != info.frames) return false;

    err_set_logfp(nullptr);
    cmd_ln_t* config =
            cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", files["acoustic-model"].c_str(), "-lm",
                        files["language-model"].c_str(), "-dict", files["dictionary"].c_str(),
                        "-vad_postspeech", kSilenceFrames, nullptr);
    if (config == nullptr) return false;
    ps_decoder_t* decoder = ps_init(config);
    if (decoder == nullptr) {
        cmd_ln_free_r(config);
        return false;
    }
    words->clear();
    ps_start_stream(decoder);
    ps_start_utt(decoder);
    bool inUtterance = false;
    for (size_t at = 0; at < samples.size(); at += kBlock) {
        size_t count = std::min(kBlock, samples.size() - at);
        ps_process_raw(decoder, samples.data() + at, count, FALSE, FALSE);
        bool speech = ps_get_in_speech(decoder) != 0;
        inUtterance = inUtterance || speech;
        if (inUtterance && !speech) {
            ps_end_utt(decoder);
            appendHypothesis(decoder, words);
            ps_start_utt(decoder);
            inUtterance = false;
        }
    }
    ps_end_utt(decoder);
    if (inUtterance) appendHypothesis(decoder, words);
    ps_free(decoder);
    cmd_ln_free_r(config);
    return true;
}

double wordErrorRate(const std::vector<std::string>& reference,
                     const std::vector<std::string>& hypothesis) {
    // Levenshtein distance over words, one row at a time.
    std::vector<size_t> previous(hypothesis.size() + 1);
    std::vector<size_t> current(hypothesis.size() + 1);
    for (size_t j = 0; j <= hypothesis.size(); ++j) previous[j] = j;
    for (size_t i = 1; i <= reference.size(); ++i) {
        current[0] = i;
        for (size_t j = 1; j <= hypothesis.size(); ++j) {
            size_t substitution = previous[j - 1] + (reference[i - 1] == hypothesis[j - 1] ? 0 : 1);
            current[j] = std::min({substitution, previous[j] + 1, current[j - 1] + 1});
        }
        std::swap(previous, current);
    }
    return reference.empty() ? 0.0
                             : static_cast<double>(previous[hypothesis.size()]) /
                                       static_cast<double>(reference.size());
}

}  // namespace voxa_test
