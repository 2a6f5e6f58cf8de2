// The service on the scripted engine, found under the instance its VINTF fragment declares: each
// scenario played to a client that uses IVoxa alone, the scenario reader's refusals, and the
// engine's stream contract.

#include <aidl/vendor/orbo/hardware/voxa/IVoxa.h>
#include <aidl/vendor/orbo/hardware/voxa/ServiceError.h>
#include <android/binder_manager.h>
#include <binder_host/test_controls.h>
#include <gtest/gtest.h>
#include <pal/pal_scripted.h>

#include <atomic>
#include <filesystem>
#include <future>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "Service.h"
#include "support/Bytes.h"
#include "support/RecordingCallback.h"

namespace aidl::vendor::orbo::hardware::voxa {
namespace {

using namespace std::chrono_literals;
using voxa_test::CountingGlobalCallback;
using voxa_test::readFile;
using voxa_test::RecordingCallback;

class ScenarioTest : public testing::TestWithParam<std::filesystem::path> {};

// Plays the client's part as an app would: one session, started with partial results and time
// stamps; after a busy start it waits for the engine to come free and tries once more; once the
// scenario has played it stops and releases the session. What it saw, its calls' statuses, the
// callbacks it got and how often it heard that resources were available, is expected/<name>.txt.
TEST_P(ScenarioTest, ClientReceivesWhatTheScenarioSays) {
    // The service is found under the instance that the VINTF fragment declares: a fragment that
    // names another instance than registerService registers finds no service.
    std::string xml = readFile(VOXA_SOURCE_DIR "/service/vendor.orbo.hardware.voxa-service.xml");
    std::smatch hal;
    ASSERT_TRUE(std::regex_search(
            xml, hal, std::regex("<name>([^<]+)</name>[\\s\\S]*<fqname>([^<]+)</fqname>")));
    binder_host::clearServices();
    ASSERT_EQ(0, registerService());
    std::shared_ptr<IVoxa> voxa = IVoxa::fromBinder(ndk::SpAIBinder(
            AServiceManager_checkService((hal[1].str() + "." + hal[2].str()).c_str())));
    ASSERT_NE(nullptr, voxa);
    ASSERT_EQ("", pal_scripted::loadScenarioFile(GetParam()));
    auto client = ndk::SharedRefBase::make<RecordingCallback>();
    auto global = ndk::SharedRefBase::make<CountingGlobalCallback>();
    VoxaModel model;
    model.vendorUuid = "6f1d2c3b-8a47-4e95-b0c2-5d7e9a31f648";
    model.dataSize = 1024;
    VoxaConfig config;
    config.input_lang_code = config.output_lang_code = "en-US";
    config.enable_partial_transcription = config.enable_text_timestamp = true;
    config.mode = TranscriptionMode::PARTIAL_CONTINUOUS;

    std::string seen;
    auto note = [&](const std::string& call, const ndk::ScopedAStatus& status) {
        seen += call + " " + status.getDescription() + "\n";
        return status.getServiceSpecificError();
    };
    note("registerGlobalCallback", voxa->registerGlobalCallback(global));
    int32_t handle = -1;
    ndk::ScopedAStatus opened = voxa->initSession(model, client, &handle);
    note("initSession", opened);
    if (opened.isOk() && note("startListening", voxa->startListening(handle, config)) ==
                                 static_cast<int>(ServiceError::RESOURCE_CONTENTION)) {
        for (int i = 0; i < 1000 && global->count() == 0; ++i) std::this_thread::sleep_for(10ms);
        note("startListening", voxa->startListening(handle, config));
    }
    std::string error;
    EXPECT_EQ(0, pal_scripted::waitUntilPlayed(10s, &error)) << error;
    for (const auto& delivery : client->deliveries()) {
        seen += (delivery.asr ? "onAsrEvent " : "onSdzEvent ") + std::to_string(delivery.handle) +
                " " + (delivery.asr ? delivery.asr->toString() : delivery.sdz->toString()) + "\n";
    }
    if (opened.isOk()) {
        note("stopListening", voxa->stopListening(handle));
        note("releaseSession", voxa->releaseSession(handle));
    }
    binder_host::clearServices();
    seen += "onResourcesAvailable " + std::to_string(global->count()) + "\n";
    EXPECT_EQ(readFile(VOXA_SOURCE_DIR "/tests/device/expected/" + GetParam().stem().string() +
                       ".txt"),
              seen);
}

// The shipped scenarios and those of fields that no shipped one sets.
std::vector<std::filesystem::path> scenarios() {
    std::vector<std::filesystem::path> found;
    for (const char* dir : {"/tools/voxa/scenarios", "/tests/device/scenarios"}) {
        for (const auto& entry :
             std::filesystem::directory_iterator(VOXA_SOURCE_DIR + std::string(dir))) {
            if (entry.path().extension() == ".jsonl") found.push_back(entry.path());
        }
    }
    return found;
}

INSTANTIATE_TEST_SUITE_P(Scenarios, ScenarioTest, testing::ValuesIn(scenarios()));

TEST(ScenarioReaderTest, BadScenariosAreRefusedWithTheirLine) {
    const std::string longText(1028, 'a');
    const std::string badText = R"(s:1: "text" must be a string of at most 1027 bytes without NUL)";
    const std::vector<std::pair<std::string, std::string>> cases = {
            {"", "s:1: the scenario has no step"},
            {"{\"step\": \"delay\", \"ms\": 5}\n\nnot json", "s:3: column 1: unexpected character"},
            {R"({"step": "dance"})", R"(s:1: unknown step "dance" (reply, await, delay, result, )"
                                     R"(timed_result, speakers, resources_available))"},
            {R"([{"step": "delay"}])", "s:1: a step is a JSON object"},
            {R"({"step": "delay"})", R"(s:1: "ms" is missing)"},
            {R"({"step": "delay", "ms": -1})", R"(s:1: "ms" must be an integer from 0 to 3600000)"},
            {R"({"step": "delay", "ms": 1, "ms": 2})", R"(s:1: column 28: key "ms" given twice)"},
            {R"({"step": "delay", "ms": 1.5})", "s:1: column 26: numbers are integers"},
            {R"({"step": "delay", "ms": 99999999999999999999})",
             "s:1: column 43: number out of range"},
            {R"({"step": "result", "confidance": 5})", R"(s:1: unknown key "confidance")"},
            {R"({"step": "result", "text": ")" + longText + "\"}", badText},
            {R"({"step": "result", "text": "a\u0000"})", badText},
            {R"({"step": "result", "text": "\ud800"})", "s:1: column 35: lone high surrogate"},
            {"{\"step\": \"result\", \"text\": \"\xff\"}", "s:1: column 29: invalid UTF-8"},
            {R"({"step": "result", "event_id": 2})",
             R"(s:1: "event_id" of a plain result must not be 1 or 2)"},
            {R"({"step": "result", "data": [256]})",
             R"(s:1: "data" must be an array of at most 4096 integers from 0 to 255)"},
            {R"({"step": "timed_result", "word_count": 201})",
             R"(s:1: "word_count" must be an integer from -2147483648 to 200)"},
            {R"({"step": "timed_result", "words": [{"word": "a"}, {"start_ms": 1}]})",
             R"(s:1: words[1]: "word" is missing)"},
            {R"({"step": "speakers", "speakers": [], "speaker_count": 1})",
             R"(s:1: "speaker_count" must be an integer from 0 to 0)"},
            {R"({"step": "reply", "call": "pal_stream_start", "param": "model", "status": 0})",
             R"(s:1: "param" does not apply to pal_stream_start)"},
            {R"({"step": "await", "call": "open"})",
             R"(s:1: "call" must be one of pal_set_param, pal_stream_close, pal_stream_open, )"
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

// A stream opened and started through the PAL functions; its callback counts and runs `onEvent`.
struct Probe {
    explicit Probe(std::function<void(pal_stream_handle*)> action) : onEvent(std::move(action)) {
        auto callback = [](pal_stream_handle* stream, unsigned, unsigned*, unsigned,
                           unsigned long me) {
            ++reinterpret_cast<Probe*>(me)->events;
            reinterpret_cast<Probe*>(me)->onEvent(stream);
            return 0;
        };
        EXPECT_EQ(0, pal_stream_open(nullptr, 0, nullptr, 0, nullptr, callback,
                                     reinterpret_cast<unsigned long>(this), &stream));
        EXPECT_EQ(0, pal_stream_start(stream));
    }
    std::function<void(pal_stream_handle*)> onEvent;
    std::atomic<int> events{0};
    pal_stream_handle* stream = nullptr;
};

// After pal_stream_stop no event begins until the stream starts again; pal_stream_close from
// inside the stream's callback does not wait on itself, and from elsewhere it waits for the
// callback in progress.
TEST(ScriptedEngineTest, StreamsKeepThePalContract) {
    constexpr char kTwoEvents[] = R"({"step": "result", "text": "one"}
{"step": "result", "text": "two", "timeout_ms": 300})";
    ASSERT_EQ("", pal_scripted::loadScenario(kTwoEvents, "stop"));
    Probe stopping([](pal_stream_handle* stream) { EXPECT_EQ(0, pal_stream_stop(stream)); });
    EXPECT_EQ(-110, pal_scripted::waitUntilPlayed(150ms));
    EXPECT_EQ(1, stopping.events);
    EXPECT_EQ(0, pal_stream_start(stopping.stream));
    EXPECT_EQ(0, pal_scripted::waitUntilPlayed(1s));
    EXPECT_EQ(2, stopping.events);
    EXPECT_EQ(0, pal_stream_close(stopping.stream));
    EXPECT_EQ(-22, pal_stream_close(stopping.stream));

    ASSERT_EQ("", pal_scripted::loadScenario(kTwoEvents, "close"));
    Probe closing([](pal_stream_handle* stream) { EXPECT_EQ(0, pal_stream_close(stream)); });
    std::string error;
    EXPECT_EQ(-5, pal_scripted::waitUntilPlayed(2s, &error));
    EXPECT_EQ("close:2: no started stream within 300 ms", error);
    EXPECT_EQ(1, closing.events);

    ASSERT_EQ("", pal_scripted::loadScenario(R"({"step": "result"})", "wait"));
    std::promise<void> entered, release;
    std::atomic<bool> returned{false};
    Probe waiting([&](pal_stream_handle*) {
        entered.set_value();
        release.get_future().wait();
        returned = true;
    });
    entered.get_future().wait();
    auto closed = std::async(std::launch::async, [&] {
        EXPECT_EQ(0, pal_stream_close(waiting.stream));
        return returned.load();
    });
    EXPECT_EQ(std::future_status::timeout, closed.wait_for(100ms));
    release.set_value();
    EXPECT_TRUE(closed.get());
    EXPECT_EQ(0, pal_scripted::waitUntilPlayed(1s));
}

}  // namespace
}  // namespace aidl::vendor::orbo::hardware::voxa
