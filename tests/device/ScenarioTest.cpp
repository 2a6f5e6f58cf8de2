// The service on the scripted engine: each shipped scenario played to a client that uses IVoxa
// alone, the scenario reader's refusals, the engine's stream contract, and the VINTF fragment
// against what registerService registers.

#include <aidl/vendor/orbo/hardware/voxa/BnVoxaCallback.h>
#include <aidl/vendor/orbo/hardware/voxa/BnVoxaGlobalCallback.h>
#include <aidl/vendor/orbo/hardware/voxa/IVoxa.h>
#include <aidl/vendor/orbo/hardware/voxa/ServiceError.h>
#include <android/binder_manager.h>
#include <binder_host/test_controls.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pal/pal_scripted.h>

#include <atomic>
#include <condition_variable>
#include <fstream>
#include <future>
#include <mutex>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Service.h"

namespace aidl::vendor::orbo::hardware::voxa {
namespace {

using namespace std::chrono_literals;

constexpr char kInstance[] = "vendor.orbo.hardware.voxa.IVoxa/default";

// What a client saw, in order: the statuses of its calls and the callbacks it got.
class Transcript {
  public:
    void add(const std::string& line) {
        std::lock_guard<std::mutex> lock(mLock);
        mLines.push_back(line);
        mChanged.notify_all();
    }
    bool waitFor(const std::string& line) {
        std::unique_lock<std::mutex> lock(mLock);
        return mChanged.wait_for(lock, 10s, [&] {
            return std::find(mLines.begin(), mLines.end(), line) != mLines.end();
        });
    }
    std::vector<std::string> lines() {
        std::lock_guard<std::mutex> lock(mLock);
        return mLines;
    }

  private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<std::string> mLines;  // guarded by mLock
};

class SessionClient : public BnVoxaCallback {
  public:
    explicit SessionClient(Transcript& transcript) : mTranscript(transcript) {}
    ndk::ScopedAStatus onAsrEvent(int32_t handle, const VoxaEvent& event) override {
        mTranscript.add("onAsrEvent " + std::to_string(handle) + " " + event.toString());
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus onSdzEvent(int32_t handle, const SpeakerDiarizationEvent& event) override {
        mTranscript.add("onSdzEvent " + std::to_string(handle) + " " + event.toString());
        return ndk::ScopedAStatus::ok();
    }

  private:
    Transcript& mTranscript;
};

class GlobalClient : public BnVoxaGlobalCallback {
  public:
    explicit GlobalClient(Transcript& transcript) : mTranscript(transcript) {}
    ndk::ScopedAStatus onResourcesAvailable() override {
        mTranscript.add("onResourcesAvailable");
        return ndk::ScopedAStatus::ok();
    }

  private:
    Transcript& mTranscript;
};

std::string describe(const ndk::ScopedAStatus& status) {
    if (status.isOk()) return "OK";
    return std::to_string(status.getServiceSpecificError()) + " " + status.getMessage();
}

std::shared_ptr<IVoxa> freshService() {
    binder_host::clearServices();
    EXPECT_EQ(0, registerService());
    return IVoxa::fromBinder(ndk::SpAIBinder(AServiceManager_checkService(kInstance)));
}

// Plays the client's part as an app would: one session, started with partial results and time
// stamps; after a busy start it waits for the engine to come free and tries once more; once the
// scenario has played it stops and releases the session.
std::vector<std::string> playAsClient(const std::string& scenario, const std::string& name) {
    std::shared_ptr<IVoxa> voxa = freshService();
    EXPECT_EQ("", pal_scripted::loadScenario(scenario, name));
    Transcript transcript;
    auto client = ndk::SharedRefBase::make<SessionClient>(transcript);
    auto global = ndk::SharedRefBase::make<GlobalClient>(transcript);
    VoxaModel model;
    model.vendorUuid = "6f1d2c3b-8a47-4e95-b0c2-5d7e9a31f648";
    model.dataSize = 1024;
    VoxaConfig config;
    config.input_lang_code = config.output_lang_code = "en-US";
    config.enable_partial_transcription = config.enable_text_timestamp = true;
    config.mode = TranscriptionMode::PARTIAL_CONTINUOUS;

    transcript.add("registerGlobalCallback " + describe(voxa->registerGlobalCallback(global)));
    int32_t handle = -1;
    ndk::ScopedAStatus opened = voxa->initSession(model, client, &handle);
    transcript.add("initSession " + describe(opened));
    if (opened.isOk()) {
        ndk::ScopedAStatus started = voxa->startListening(handle, config);
        transcript.add("startListening " + describe(started));
        if (started.getServiceSpecificError() ==
                    static_cast<int>(ServiceError::RESOURCE_CONTENTION) &&
            transcript.waitFor("onResourcesAvailable")) {
            transcript.add("startListening " + describe(voxa->startListening(handle, config)));
        }
    }
    std::string error;
    EXPECT_EQ(0, pal_scripted::waitUntilPlayed(10s, &error)) << error;
    if (opened.isOk()) {
        transcript.add("stopListening " + describe(voxa->stopListening(handle)));
        transcript.add("releaseSession " + describe(voxa->releaseSession(handle)));
    }
    binder_host::clearServices();
    return transcript.lines();
}

std::string readFile(const std::string& path) {
    std::ifstream file(path);
    EXPECT_TRUE(file) << path;
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

class ShippedScenarioTest : public testing::TestWithParam<const char*> {};

// The client's transcript of each shipped scenario is tests/device/expected/<name>.txt.
TEST_P(ShippedScenarioTest, ClientReceivesWhatTheScenarioSays) {
    std::string path = std::string(VOXA_SCENARIO_DIR "/") + GetParam() + ".jsonl";
    EXPECT_EQ(linesOf(readFile(std::string(VOXA_EXPECTED_DIR "/") + GetParam() + ".txt")),
              playAsClient(readFile(path), path));
}

INSTANTIATE_TEST_SUITE_P(Scenarios, ShippedScenarioTest,
                         testing::Values("dictation", "timestamps", "two-speakers", "contention",
                                         "engine-error", "unsupported-language"));

// Fields that no shipped scenario sets reach the client bit for bit: trailing data, another
// plain event id, a word count beyond the words given, a speaker count below the speakers given,
// and a refused model.
TEST(ScenarioTest, EveryFieldReachesTheClient) {
    std::vector<std::string> lines = playAsClient(
            R"({"step": "await", "call": "pal_stream_start"}
{"step": "delay", "ms": 100}
{"step": "result", "event_id": 7, "confidence": -3, "data": [0, 7, 255], "timeout_ms": 50})"
            "\n"
            R"({"step": "timed_result", "final": false, "word_count": 2, "words": [{"word": "hi"}]})"
            "\n"
            R"({"step": "speakers", "speaker_count": 1, "flag": 4, "speakers": [{"speaker": -9,)"
            R"( "start_ms": -1, "end_ms": 9223372036854775807}, {"speaker": 2}]})",
            "fields");
    EXPECT_THAT(lines, testing::ElementsAre(
                               "registerGlobalCallback OK", "initSession OK", "startListening OK",
                               "onAsrEvent 0 VoxaEvent{status: 0, events: [Event{flag: true, "
                               "value: -3, text: , "
                               "aux_text: , data: [0, 7, 255]}], timestamp_events: null}",
                               "onAsrEvent 0 VoxaEvent{status: 0, events: null, timestamp_events: "
                               "[EventTS{flag: "
                               "false, value: 0, text: , aux_text: , start_ts: 0, end_ts: 0, "
                               "word_count: 2, words: "
                               "[Word{value: 0, start_ts: 0, end_ts: 0, word: hi}, Word{value: 0, "
                               "start_ts: 0, "
                               "end_ts: 0, word: }], data: []}]}",
                               "onSdzEvent 0 SpeakerDiarizationEvent{events: [Event{speaker_count: "
                               "1, flag: true, "
                               "speakers: [SpeakerInfo{value: -9, start_ts: -1, end_ts: "
                               "9223372036854775807}], "
                               "data: []}]}",
                               "stopListening OK", "releaseSession OK"));

    EXPECT_THAT(playAsClient(R"({"step": "reply", "call": "pal_stream_set_param", "param": 77,)"
                             R"( "status": -22})",
                             "model"),
                testing::ElementsAre("registerGlobalCallback OK", "initSession -1 INVALID"));
}

TEST(ScenarioTest, BadScenariosAreRefusedWithTheirLine) {
    const std::string longText(1028, 'a');
    const std::vector<std::pair<std::string, std::string>> cases = {
            {"", "s:1: the scenario has no step"},
            {"{\"step\": \"delay\", \"ms\": 5}\n\nnot json", "s:3: column 1: unexpected character"},
            {"{\"step\": \"dance\"}",
             "s:1: unknown step \"dance\" (reply, await, delay, result, "
             "timed_result, speakers, resources_available)"},
            {"[{\"step\": \"delay\"}]", "s:1: a step is a JSON object"},
            {"{\"step\": \"delay\"}", "s:1: \"ms\" is missing"},
            {"{\"step\": \"delay\", \"ms\": -1}",
             "s:1: \"ms\" must be an integer from 0 to 3600000"},
            {"{\"step\": \"delay\", \"ms\": 1, \"ms\": 2}",
             "s:1: column 28: key \"ms\" given twice"},
            {"{\"step\": \"delay\", \"ms\": 1.5}", "s:1: column 26: numbers are integers"},
            {"{\"step\": \"delay\", \"ms\": 99999999999999999999}",
             "s:1: column 43: number out of range"},
            {"{\"step\": \"result\", \"confidance\": 5}", "s:1: unknown key \"confidance\""},
            {"{\"step\": \"result\", \"text\": \"" + longText + "\"}",
             "s:1: \"text\" must be a string of at most 1027 bytes without NUL"},
            {"{\"step\": \"result\", \"text\": \"a\\u0000\"}",
             "s:1: \"text\" must be a string of at most 1027 bytes without NUL"},
            {"{\"step\": \"result\", \"text\": \"\\ud800\"}",
             "s:1: column 35: lone high surrogate"},
            {"{\"step\": \"result\", \"text\": \"\xff\"}", "s:1: column 29: invalid UTF-8"},
            {"{\"step\": \"result\", \"event_id\": 2}",
             "s:1: \"event_id\" of a plain result must not be 1 or 2"},
            {"{\"step\": \"result\", \"data\": [256]}",
             "s:1: \"data\" must be an array of at most 4096 integers from 0 to 255"},
            {"{\"step\": \"timed_result\", \"word_count\": 201}",
             "s:1: \"word_count\" must be an integer from -2147483648 to 200"},
            {"{\"step\": \"timed_result\", \"words\": [{\"word\": \"a\"}, {\"start_ms\": 1}]}",
             "s:1: words[1]: \"word\" is missing"},
            {"{\"step\": \"speakers\", \"speakers\": [], \"speaker_count\": 1}",
             "s:1: \"speaker_count\" must be an integer from 0 to 0"},
            {"{\"step\": \"reply\", \"call\": \"pal_stream_start\", \"param\": \"model\", "
             "\"status\": 0}",
             "s:1: \"param\" does not apply to pal_stream_start"},
            {"{\"step\": \"await\", \"call\": \"open\"}",
             "s:1: \"call\" must be one of pal_set_param, pal_stream_close, pal_stream_open, "
             "pal_stream_set_param, pal_stream_start, pal_stream_stop"},
            {std::string(17, '[') + std::string(17, ']'), "s:1: column 17: nested too deeply"},
    };
    ASSERT_EQ("", pal_scripted::loadScenario("{\"step\": \"delay\", \"ms\": 0}", "s"));
    ASSERT_EQ(0, pal_scripted::waitUntilPlayed(1s));
    for (const auto& [text, error] : cases) {
        EXPECT_EQ(error, pal_scripted::loadScenario(text, "s")) << text;
    }
    EXPECT_EQ("/nonexistent.jsonl: No such file or directory",
              pal_scripted::loadScenarioFile("/nonexistent.jsonl"));
    // A refused scenario leaves the one before in place.
    EXPECT_EQ(0, pal_scripted::waitUntilPlayed(0s));
}

// A stream driven directly through the PAL functions, with a callback that runs `onEvent`.
struct Probe {
    std::function<void(pal_stream_handle*)> onEvent;
    std::atomic<int> events{0};

    static int32_t callback(pal_stream_handle* stream, unsigned int, unsigned int*, unsigned int,
                            unsigned long cookie) {
        auto* probe = reinterpret_cast<Probe*>(cookie);
        ++probe->events;
        if (probe->onEvent) probe->onEvent(stream);
        return 0;
    }

    pal_stream_handle* openAndStart() {
        pal_stream_handle* stream = nullptr;
        EXPECT_EQ(0, pal_stream_open(nullptr, 0, nullptr, 0, nullptr, &Probe::callback,
                                     reinterpret_cast<unsigned long>(this), &stream));
        EXPECT_EQ(0, pal_stream_start(stream));
        return stream;
    }
};

constexpr char kTwoEvents[] = R"({"step": "result", "text": "one"}
{"step": "result", "text": "two", "timeout_ms": 300})";

TEST(ScriptedEngineTest, NoEventAfterStopUntilRestarted) {
    ASSERT_EQ("", pal_scripted::loadScenario(kTwoEvents, "stop"));
    Probe probe;
    probe.onEvent = [](pal_stream_handle* stream) { EXPECT_EQ(0, pal_stream_stop(stream)); };
    pal_stream_handle* stream = probe.openAndStart();
    EXPECT_EQ(-110, pal_scripted::waitUntilPlayed(150ms));
    EXPECT_EQ(1, probe.events);
    EXPECT_EQ(0, pal_stream_start(stream));
    EXPECT_EQ(0, pal_scripted::waitUntilPlayed(1s));
    EXPECT_EQ(2, probe.events);
    EXPECT_EQ(0, pal_stream_close(stream));
    EXPECT_EQ(-22, pal_stream_close(stream));
}

TEST(ScriptedEngineTest, CloseInsideTheCallbackDoesNotWaitOnItself) {
    ASSERT_EQ("", pal_scripted::loadScenario(kTwoEvents, "close"));
    Probe probe;
    probe.onEvent = [](pal_stream_handle* stream) { EXPECT_EQ(0, pal_stream_close(stream)); };
    probe.openAndStart();
    std::string error;
    EXPECT_EQ(-5, pal_scripted::waitUntilPlayed(2s, &error));
    EXPECT_EQ("close:2: no started stream within 300 ms", error);
    EXPECT_EQ(1, probe.events);
}

TEST(ScriptedEngineTest, CloseWaitsForTheCallbackInProgress) {
    ASSERT_EQ("", pal_scripted::loadScenario(R"({"step": "result"})", "wait"));
    std::promise<void> entered, release;
    std::atomic<bool> returned{false};
    Probe probe;
    probe.onEvent = [&](pal_stream_handle*) {
        entered.set_value();
        release.get_future().wait();
        returned = true;
    };
    pal_stream_handle* stream = probe.openAndStart();
    entered.get_future().wait();
    auto closed = std::async(std::launch::async, [&] {
        EXPECT_EQ(0, pal_stream_close(stream));
        return returned.load();
    });
    EXPECT_EQ(std::future_status::timeout, closed.wait_for(100ms));
    release.set_value();
    EXPECT_TRUE(closed.get());
    EXPECT_EQ(0, pal_scripted::waitUntilPlayed(1s));
}

// The fragment's package, interface, instance and version are those of the registered service.
TEST(VintfFragmentTest, NamesTheRegisteredInstanceAndVersion) {
    std::string xml = readFile(VOXA_VINTF_FRAGMENT);
    std::smatch name, fqname, version;
    ASSERT_TRUE(std::regex_search(xml, name, std::regex("<name>([^<]+)</name>")));
    ASSERT_TRUE(std::regex_search(xml, fqname, std::regex("<fqname>([^<]+)</fqname>")));
    ASSERT_TRUE(std::regex_search(xml, version, std::regex("<version>([0-9]+)</version>")));
    std::shared_ptr<IVoxa> voxa = freshService();
    ndk::SpAIBinder binder(
            AServiceManager_checkService((name[1].str() + "." + fqname[1].str()).c_str()));
    ASSERT_NE(nullptr, binder.get());
    int32_t registered = 0;
    ASSERT_TRUE(IVoxa::fromBinder(binder)->getInterfaceVersion(&registered).isOk());
    EXPECT_EQ(std::stoi(version[1]), registered);
    binder_host::clearServices();
}

}  // namespace
}  // namespace aidl::vendor::orbo::hardware::voxa
