#include "Recording.h"

#include <algorithm>
#include <cerrno>

namespace pal_engine {

namespace {

// Audio kept from before the voice-activity detector hears speech: it decides a little late.
constexpr int64_t kLeadMs = 500;

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
    // not the words are raised, someone spoke.
    if (mFrontEnd != nullptr) {
        std::vector<SpeakerTurn> turns = mDiarizer.assign(heard);
        if (!turns.empty()) {
            Event speakers = makeDiarizationEvent(turns);
            if (!mRaise(speakers)) {
                return false;
            }
        }
    }
    const bool wanted = ending == Ending::Forced ||
                        (!result.words.empty() && result.confidence >= mSettings.threshold);
    if (!wanted) {
        return true;
    }
    std::unique_ptr<Translation> translation = translate(result.text);
    Event event = makeFinalEvent(result, ending, mSettings.timestamps, translation.get());
    return mRaise(event) && mSettings.continuous;
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
