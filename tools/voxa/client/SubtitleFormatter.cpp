#include "SubtitleFormatter.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <sstream>

namespace voxa_tool {

namespace {

constexpr size_t kCueLineLength = 42;
constexpr int64_t kCueMaxMs = 7000;
constexpr int64_t kCueMinMs = 1000;

// The words on one line of at most kCueLineLength, else on two split where the longer line is
// shortest; empty when they do not fit. A word longer than a line has one of its own.
std::string lines(const std::vector<SubtitleFormatter::Word>& words) {
    std::string best;
    size_t bestLonger = SIZE_MAX;
    for (size_t split = 1; split <= words.size(); ++split) {
        std::string first, second;
        for (size_t i = 0; i < words.size(); ++i) {
            std::string& line = i < split ? first : second;
            line += (line.empty() ? "" : " ") + words[i].text;
        }
        if (second.size() <= kCueLineLength && first.size() <= kCueLineLength) {
            if (second.empty()) return first;
            const size_t longer = std::max(first.size(), second.size());
            if (longer < bestLonger) {
                bestLonger = longer;
                best = first + "\n" + second;
            }
        }
    }
    return words.size() == 1 ? words[0].text : best;
}

}  // namespace

void SubtitleFormatter::beginFile(const std::string&, size_t, size_t) {
    if (mWebVtt) mOut << "WEBVTT\n\n";
    mCues = 0;
    forgetSpeakers();
}

void SubtitleFormatter::asrEvent(int32_t, const VoxaEvent& event) {
    for (const Result& result : resultsOf(event)) {
        if (!result.final || !result.startMs) continue;
        std::optional<int32_t> speaker;
        if (mSettings.diarize) speaker = speakerOf(*result.startMs, *result.endMs);
        std::vector<Word> words;
        for (const Word& word : wordsOf(result)) {
            words.push_back(word);
            if (words.size() > 1 &&
                (lines(words).empty() || word.endMs - words.front().startMs > kCueMaxMs)) {
                words.pop_back();
                queue(words, speaker);
                words = {word};
            }
        }
        queue(words, speaker);
    }
}

void SubtitleFormatter::endFile() {
    if (mPending) write(INT64_MAX);
    mPending.reset();
    mOut.flush();
}

std::vector<SubtitleFormatter::Word> SubtitleFormatter::wordsOf(const Result& result) const {
    std::vector<Word> words;
    if (mSettings.translatedFrom.empty()) {
        for (const VoxaEvent::Word& word : result.words) {
            words.push_back({markedWord(word, mSettings), word.start_ts, word.end_ts});
        }
        return words;
    }
    std::istringstream text(result.text);
    std::vector<std::string> spoken;
    size_t letters = 0;
    for (std::string word; text >> word; letters += word.size()) spoken.push_back(word);
    const int64_t span = std::max<int64_t>(*result.endMs - *result.startMs, 0);
    size_t before = 0;
    for (const std::string& word : spoken) {
        const auto at = [&](size_t position) {
            return *result.startMs + static_cast<int64_t>(span * position / letters);
        };
        words.push_back({word, at(before), at(before + word.size())});
        before += word.size();
    }
    return words;
}

void SubtitleFormatter::queue(const std::vector<Word>& words,
                              const std::optional<int32_t>& speaker) {
    if (words.empty()) return;
    std::string text = lines(words);
    if (mWebVtt && speaker) text = "<v " + speakerName(*speaker) + ">" + text;
    const Cue cue{words.front().startMs, words.back().endMs, text};
    if (mPending) write(std::max(mPending->startMs, cue.startMs));
    mPending = cue;
}

void SubtitleFormatter::write(int64_t limitMs) {
    const Cue& cue = *mPending;
    const int64_t endMs = std::min(std::max(cue.endMs, cue.startMs + kCueMinMs), limitMs);
    const char separator = mWebVtt ? '.' : ',';
    ++mCues;
    if (!mWebVtt) mOut << mCues << "\n";
    mOut << clockTime(cue.startMs, separator, true) << " --> " << clockTime(endMs, separator, true)
         << "\n"
         << cue.text << "\n\n";
}

}  // namespace voxa_tool
