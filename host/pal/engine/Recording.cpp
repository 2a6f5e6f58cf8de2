#include "Recording.h"

#include <algorithm>
#include <cerrno>

namespace pal_engine {

namespace {

// Audio kept from before the voice-activity detector hears speech: it decides a little late.
constexpr int64_t kLeadMs = 500;

// What one speaker said in an utterance: the turns, and the words, of a final result.
struct Part {
    std::vector<SpeakerTurn> turns;
    Result result;
};

// The utterance's result cut where the speaker changes: a part for each run of turns of one
// speaker, whose stretch reaches halfway to the next speaker's first turn, each word going to the
// part whose stretch holds its middle. With fewer than two speakers, the result whole.
std::vector<Part> splitBySpeaker(const Result& result, const std::vector<SpeakerTurn>& turns) {
    std::vector<Part> parts;
    for (const SpeakerTurn& turn : turns) {
        if (parts.empty() || parts.back().turns.back().speaker != turn.speaker) {
            parts.emplace_back();
        }
        parts.back().turns.push_back(turn);
    }
    if (parts.size() < 2) {
        return {{turns, result}};
    }
    size_t p = 0;
    for (const Word& word : result.words) {
        while (p + 1 < parts.size() &&
               word.startMs + word.endMs >=
                       parts[p].turns.back().span.endMs + parts[p + 1].turns.front().span.startMs) {
            ++p;
        }
        parts[p].result.words.push_back(word);
    }
    for (Part& part : parts) {
        Result& said = part.result;
        said.startMs = part.turns.front().span.startMs;
        said.endMs = part.turns.back().span.endMs;
        if (said.words.empty()) {
            continue;
        }
        int64_t sum = 0;
        for (const Word& word : said.words) {
            said.text += (said.text.empty() ? "" : " ") + word.text;
            sum += word.confidence;
        }
        said.startMs = said.words.front().startMs;
        said.endMs = said.words.back().endMs;
        said.confidence = static_cast<int32_t>(sum / static_cast<int64_t>(said.words.size()));
    }
    return parts;
}

}  // namespace

Recording::Recording(Recogniser& recogniser, const Settings& settings, Translator* translator,
                     std::unique_ptr<FrontEnd> frontEnd, Raise raise)
    : mRecogniser(recogniser),
      mSettings(settings),
      mTranslator(translator),
      mFrontEnd(std::move(frontEnd)),
      mRaise(std::move(raise)),
      mDiarizer(mFrontEnd == nullptr ? 1 : mFrontEnd->size()) {
    mRecogniser.beginRecording(mSettings.partial);
}

Recording::~Recording() {
    mRecogniser.endRecording();
}

void Recording::keep(const std::vector<int16_t>& pcm) {
    mAudio.insert(mAudio.end(), pcm.begin(), pcm.end());
    const size_t lead = static_cast<size_t>(kLeadMs * kRecogniserRate / 1000);
    if (!mInUtterance && mAudio.size() > lead) {
        const size_t dropped = mAudio.size() - lead;
        mAudio.erase(mAudio.begin(), mAudio.begin() + static_cast<std::ptrdiff_t>(dropped));
        mAudioStart += static_cast<int64_t>(dropped);
    }
}

std::unique_ptr<Translation> Recording::translate(const std::string& text) {
    if (mTranslator == nullptr) {
        return nullptr;
    }
    auto translation = std::make_unique<Translation>();
    translation->language = mTranslator->code();
    if (!text.empty()) {
        int32_t status = mTranslator->translate(text, &translation->text, kTranslationTimeout);
        if (status != 0) {
            translation->text.clear();
            translation->error = status == PAL_STATUS_TIMED_OUT ? "timeout" : "failed";
        }
    }
    return translation;
}

bool Recording::finishUtterance(Ending ending) {
    Result result;
    if (mSettings.partial) {
        result = mRecogniser.endUtterance();
    } else {
        result = mRecogniser.decodeWhole(mAudio.data(), mAudio.size(),
                                         mAudioStart * 1000 / kRecogniserRate);
        mAudioStart += static_cast<int64_t>(mAudio.size());
        mAudio.clear();
    }
    const Span heard = {mUtteranceStartMs, nowMs()};
    mInUtterance = false;
    mQuietSinceMs = nowMs();
    mPartial.clear();
    // The speakers first, so that a client can name the speaker beside the result; whether or
    // not the words are raised, someone spoke. Where the speaker changes, the utterance ends for
    // the words so far: each speaker's words are a final result of their own.
    const std::vector<Part> parts = mFrontEnd == nullptr
                                            ? std::vector<Part>{{{}, result}}
                                            : splitBySpeaker(result, mDiarizer.assign(heard));
    for (size_t p = 0; p < parts.size(); ++p) {
        if (!parts[p].turns.empty()) {
            Event speakers = makeDiarizationEvent(parts[p].turns);
            if (!mRaise(speakers)) {
                return false;
            }
        }
        const Ending reason = p + 1 < parts.size() ? Ending::SpeakerChange : ending;
        const Result& said = parts[p].result;
        const bool wanted = reason == Ending::Forced ||
                            (!said.words.empty() && said.confidence >= mSettings.threshold);
        if (!wanted) {
            continue;
        }
        std::unique_ptr<Translation> translation = translate(said.text);
        Event event = makeFinalEvent(said, reason, mSettings.timestamps, translation.get());
        if (!mRaise(event) || !mSettings.continuous) {
            return false;
        }
    }
    return true;
}

bool Recording::feed(const std::vector<int16_t>& pcm) {
    if (pcm.empty()) {
        return true;
    }
    const bool speech = mRecogniser.process(pcm.data(), pcm.size());
    if (mFrontEnd != nullptr) {
        mCepstra.clear();
        mFrontEnd->process(pcm.data(), pcm.size(), &mCepstra);
        mDiarizer.addFrames(mCepstra.data(),
                            mCepstra.size() / static_cast<size_t>(mFrontEnd->size()));
    }
    mSamples += static_cast<int64_t>(pcm.size());
    if (speech && !mInUtterance) {
        mInUtterance = true;
        mUtteranceStartMs = std::max(mQuietSinceMs, nowMs() - kLeadMs);
    }
    if (!mSettings.partial) {
        keep(pcm);
    }
    if (mInUtterance) {
        // The detector's silence, or (with the first pass's search, in the partial modes) as
        // much after the last word: breaths and noise after it keep the detector hearing speech.
        const int64_t quiet = mRecogniser.silenceAfterLastWordMs();
        if (!speech || quiet >= mSettings.silenceMs) {
            return finishUtterance(Ending::Silence);
        }
        if (!mSettings.partial &&
            static_cast<int64_t>(mAudio.size()) * 1000 / kRecogniserRate >= kMaxUtteranceMs) {
            return finishUtterance(Ending::MaxDuration);
        }
    }
    if (mInUtterance && mSettings.partial) {
        std::string hypothesis = mRecogniser.hypothesis();
        if (!hypothesis.empty() && hypothesis != mPartial) {
            mPartial = hypothesis;
            Event event = makePartialEvent(hypothesis);
            if (!mRaise(event)) {
                return false;
            }
        }
    }
    if (!mInUtterance && mSettings.timeoutMs > 0 &&
        nowMs() - mQuietSinceMs >= mSettings.timeoutMs) {
        Result silence;
        silence.startMs = mQuietSinceMs;
        silence.endMs = nowMs();
        std::unique_ptr<Translation> translation = translate("");
        Event event =
                makeFinalEvent(silence, Ending::TimeOut, mSettings.timestamps, translation.get());
        mRaise(event);
        return false;
    }
    return true;
}

}  // namespace pal_engine
