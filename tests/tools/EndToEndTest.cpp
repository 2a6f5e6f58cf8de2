// The whole stack in one process, as the voxa program runs it: libvoxa.so loaded and registered,
// IVoxa taken from the service manager, the recogniser-backed PAL engine underneath.
#include <aidl/vendor/orbo/hardware/voxa/IVoxa.h>
#include <android/log.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pal/pal_engine.h>
#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "Cli.h"
#include "EngineHost.h"
#include "Formatters.h"
#include "ReferenceRecogniser.h"
#include "Transcriber.h"
#include "support/RecordingCallback.h"

namespace voxa_test {
namespace {

using aidl::vendor::orbo::hardware::voxa::IVoxa;
using aidl::vendor::orbo::hardware::voxa::VoxaConfig;
using aidl::vendor::orbo::hardware::voxa::VoxaModel;
using std::chrono::milliseconds;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

// The recordings and the transcription that pocketsphinx-testdata ships for them, one line each:
// "<s> words </s> (recording)".
const std::vector<std::pair<std::string, std::string>> kRecordings = [] {
    std::vector<std::pair<std::string, std::string>> recordings;
    std::ifstream transcription(kLibriVox + "transcription");
    std::string line;
    while (std::getline(transcription, line)) {
        size_t open = line.rfind(" (");
        if (line.rfind("<s> ", 0) != 0 || open == std::string::npos) continue;
        std::string text = line.substr(4, open - 4);
        text = text.substr(0, text.rfind(" </s>"));
        recordings.emplace_back(line.substr(open + 2, line.size() - open - 3), text);
    }
    return recordings;
}();
// "and mister john dashwood had then leisure to consider how much ...", 7.1 s.
const std::string kLongRecording = kLibriVox + kRecordings[0].first + ".wav";

// Keeps what the program's formatter is given, by file.
class CapturingFormatter : public voxa_tool::Formatter {
  public:
    void beginFile(const std::string& file, size_t, size_t) override { mFile = file; }
    void asrEvent(int32_t, const VoxaEvent& event) override { events[mFile].push_back(event); }
    void sdzEvent(int32_t, const SpeakerDiarizationEvent&) override {
        ADD_FAILURE() << "no diarization was asked for";
    }

    std::map<std::string, std::vector<VoxaEvent>> events;

  private:
    std::string mFile;
};

class EndToEndTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
        ASSERT_TRUE(voxa_tool::connectToService(sHost, VOXA_LIBRARY, &sService).isOk());
        sGlobal = ndk::SharedRefBase::make<CountingGlobalCallback>();
        ASSERT_TRUE(sService->registerGlobalCallback(sGlobal).isOk());
    }

    void TearDown() override { pal_engine::clearSource(); }

    static ndk::ScopedAStatus initSession(const std::shared_ptr<RecordingCallback>& callback,
                                          int32_t* handle) {
        VoxaModel model;
        int fd = open(VOXA_ENGINE_MODEL, O_RDONLY | O_CLOEXEC);
        struct stat info;
        fstat(fd, &info);
        model.vendorUuid = pal_engine::kEngineUuid;
        model.data = ndk::ScopedFileDescriptor(fd);
        model.dataSize = static_cast<int32_t>(info.st_size);
        return sService->initSession(model, callback, handle);
    }

    static inline voxa_tool::EngineHost sHost;
    static inline std::shared_ptr<IVoxa> sService;
    static inline std::shared_ptr<CountingGlobalCallback> sGlobal;
};

// One run of `voxa transcribe` over the recordings in each family of modes: whole utterances
// decoded again (buffering), or the first pass's results (partial-continuous).
struct ModeFamily {
    const char* mode;
    bool wholeUtterance;
    double maxErrorRate;
};

class EndToEndWerTest : public EndToEndTest, public ::testing::WithParamInterface<ModeFamily> {};

INSTANTIATE_TEST_SUITE_P(Modes, EndToEndWerTest,
                         ::testing::Values(ModeFamily{"buffering", true, 0.29},
                                           ModeFamily{"partial-continuous", false, 0.35}),
                         [](const auto& info) {
                             return info.param.wholeUtterance ? "Buffered" : "Partial";
                         });

TEST_P(EndToEndWerTest, LibriVoxRecordingsMatchTheRecogniserAloneWithWordTimesInsideTheAudio) {
    ASSERT_EQ(5u, kRecordings.size());
    voxa_tool::Options options;
    std::vector<std::string> args = {"transcribe", "--timestamps", "--mode", GetParam().mode};
    for (const auto& [name, text] : kRecordings) args.push_back(kLibriVox + name + ".wav");
    ASSERT_TRUE(voxa_tool::parseOptions(args, &options).isOk());
    CapturingFormatter formatter;
    voxa_tool::StreamOutput output(&formatter);
    std::ostringstream terminal;
    voxa_tool::Progress progress(terminal, true);
    voxa_tool::Status outcome =
            voxa_tool::Transcriber(sService, &sHost, &progress, terminal).run(options, &output);
    ASSERT_TRUE(outcome.isOk()) << outcome.message();

    std::vector<std::string> allReference, allStack;
    for (const auto& [name, text] : kRecordings) {
        SCOPED_TRACE(name);
        const std::string path = kLibriVox + name + ".wav";
        voxa_tool::SoundFacts facts;
        ASSERT_TRUE(voxa_tool::probeSoundFile(path, {8000, 384000, 8}, &facts).isOk());
        const int64_t durationMs = facts.frames * 1000 / facts.rate;
        std::vector<std::string> words;
        int64_t previousEnd = 0;
        for (const VoxaEvent& event : formatter.events[path]) {
            ASSERT_EQ(0, event.status);
            if (event.events.has_value()) {  // a partial result
                ASSERT_EQ(1u, event.events->size());
                EXPECT_FALSE((*event.events)[0]->flag);
                continue;
            }
            ASSERT_EQ(1u, event.timestamp_events->size());
            const VoxaEvent::EventTS& result = *(*event.timestamp_events)[0];
            EXPECT_TRUE(result.flag);
            ASSERT_EQ(static_cast<size_t>(result.word_count), result.words.size());
            ASSERT_FALSE(result.words.empty());
            EXPECT_EQ(result.words.front().start_ts, result.start_ts);
            EXPECT_EQ(result.words.back().end_ts, result.end_ts);
            std::string joined;
            for (const VoxaEvent::Word& word : result.words) {
                EXPECT_GE(word.start_ts, previousEnd) << word.word;
                EXPECT_LT(word.start_ts, word.end_ts) << word.word;
                previousEnd = word.end_ts;
                words.push_back(word.word);
                joined += (joined.empty() ? "" : " ") + word.word;
            }
            EXPECT_EQ(result.text, joined);
        }
        EXPECT_LE(previousEnd, durationMs);

        std::vector<std::string> direct;
        ASSERT_TRUE(recogniseDirectly(VOXA_ENGINE_MODEL, path, GetParam().wholeUtterance, &direct));
        EXPECT_EQ(direct, words) << "the stack hears what the recogniser alone hears";
        const std::vector<std::string> reference = splitWords(text);
        allReference.insert(allReference.end(), reference.begin(), reference.end());
        allStack.insert(allStack.end(), words.begin(), words.end());
    }
    const double stackRate = wordErrorRate(allReference, allStack);
    EXPECT_LE(stackRate, GetParam().maxErrorRate);
    RecordProperty("word_error_rate_percent", std::to_string(stackRate * 100));
    std::cout << GetParam().mode << ": word error rate over the five recordings " << stackRate * 100
              << "%\n";
    if (!GetParam().wholeUtterance) return;

    // A progress bar, erased whenever a result comes, for the recordings of 5 s or more only.
    const std::string erase = "\r\033[K";
    EXPECT_THAT(terminal.str(), StartsWith("\r[" + std::string(30, '.') +
                                           "]   0%  0.0 s of 7.1 s\033[K" + erase + "\r[#"));
    EXPECT_THAT(terminal.str(), HasSubstr("s of 5.3 s\033[K" + erase));
    EXPECT_THAT(terminal.str(), EndsWith("s of 6.0 s\033[K" + erase));
    EXPECT_THAT(terminal.str(), Not(HasSubstr(" of 3.")));
}

TEST_F(EndToEndTest, SecondSessionMeetsContentionUntilTheFirstIsReleased) {
    auto first = ndk::SharedRefBase::make<RecordingCallback>();
    int32_t firstHandle = -1;
    ASSERT_TRUE(initSession(first, &firstHandle).isOk());

    auto second = ndk::SharedRefBase::make<RecordingCallback>();
    int32_t secondHandle = -1;
    ndk::ScopedAStatus status = initSession(second, &secondHandle);
    EXPECT_EQ(EX_SERVICE_SPECIFIC, status.getExceptionCode());
    EXPECT_EQ(-2, status.getServiceSpecificError());
    EXPECT_STREQ("RESOURCE_CONTENTION", status.getMessage());

    // The program reports the busy engine with its own exit status.
    std::ostringstream out, err;
    EXPECT_EQ(voxa_tool::kExitBusy,
              voxa_tool::runVoxa({"transcribe", kLongRecording}, sHost, {out, err}));
    EXPECT_EQ("voxa: the recognition engine is busy with another session (RESOURCE_CONTENTION)\n",
              err.str());
    EXPECT_EQ("", out.str());
    // The program registered a global callback of its own; this test's comes back.
    ASSERT_TRUE(sService->registerGlobalCallback(sGlobal).isOk());

    const int notified = sGlobal->count();
    std::this_thread::sleep_for(milliseconds(200));
    EXPECT_EQ(notified, sGlobal->count()) << "nothing was released yet";
    ASSERT_TRUE(sService->releaseSession(firstHandle).isOk());
    const auto deadline = std::chrono::steady_clock::now() + milliseconds(5000);
    while (sGlobal->count() == notified && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(milliseconds(10));
    }
    EXPECT_EQ(notified + 1, sGlobal->count());

    ASSERT_TRUE(initSession(second, &secondHandle).isOk()) << "the engine is free again";
    EXPECT_TRUE(sService->releaseSession(secondHandle).isOk());
    EXPECT_TRUE(first->deliveries().empty());
    EXPECT_TRUE(second->deliveries().empty());
}

}  // namespace
}  // namespace voxa_test
