#include "TextFormatter.h"

namespace voxa_tool {

namespace {

constexpr size_t kTextWidth = 100;
constexpr size_t kLiveWidth = 79;

}  // namespace

void TextFormatter::beginFile(const std::string& name, size_t, size_t count) {
    if (count > 1) mOut << (mFiles++ == 0 ? "" : "\n") << "==> " << name << " <==\n";
    forgetSpeakers();
}

void TextFormatter::asrEvent(int32_t, const VoxaEvent& event) {
    for (const Result& result : resultsOf(event)) {
        if (!result.final) {
            if (mSettings.liveTerminal) showPartial(result.text);
            continue;
        }
        clearPartial();
        if (result.text.empty()) continue;
        std::string speaker;
        if (mSettings.diarize && result.startMs) {
            const std::optional<int32_t> found = speakerOf(*result.startMs, *result.endMs);
            if (found) speaker = speakerName(*found) + ": ";
        }
        if (mSettings.timestamps && result.startMs) {
            mOut << "[" << clockTime(*result.startMs) << " --> " << clockTime(*result.endMs)
                 << "] ";
        }
        mOut << speaker << line(result) << "\n";
        if (mSettings.timestamps) writeWords(result.words);
    }
    mOut.flush();
}

void TextFormatter::endFile() {
    clearPartial();
    mOut.flush();
}

std::string TextFormatter::line(const Result& result) const {
    if (mSettings.markBelow < 0) return result.text;
    std::string text;
    if (result.words.empty() || !mSettings.translatedFrom.empty()) {
        text = result.text;
    } else {
        for (const VoxaEvent::Word& word : result.words) {
            text += (text.empty() ? "" : " ") + markedWord(word, mSettings);
        }
    }
    return text + " (confidence " + std::to_string(result.confidence) + ")";
}

void TextFormatter::writeWords(const std::vector<VoxaEvent::Word>& words) {
    std::string line;
    if (!words.empty() && !mSettings.translatedFrom.empty()) {
        line = "    " + mSettings.translatedFrom + ":";
    }
    for (const VoxaEvent::Word& word : words) {
        const std::string item = markedWord(word, mSettings) + " " + secondsText(word.start_ts) +
                                 "-" + secondsText(word.end_ts);
        if (!line.empty() && line.size() + 2 + item.size() > kTextWidth) {
            mOut << line << "\n";
            line.clear();
        }
        line += (line.empty() ? "    " : "  ") + item;
    }
    if (!line.empty()) mOut << line << "\n";
}

void TextFormatter::showPartial(const std::string& text) {
    size_t from = text.size() > kLiveWidth ? text.size() - kLiveWidth : 0;
    while (from < text.size() && (static_cast<unsigned char>(text[from]) & 0xc0) == 0x80) {
        ++from;
    }
    mOut << "\r\033[K" << text.substr(from) << std::flush;
    mPartialShown = true;
}

void TextFormatter::clearPartial() {
    if (mPartialShown) mOut << "\r\033[K";
    mPartialShown = false;
}

}  // namespace voxa_tool
