#include <climits>
#include <cstdio>
#include <cstring>
#include <functional>
#include <set>
#include <thread>

#include "ServiceTestSupport.h"

namespace aidl::vendor::orbo::hardware::voxa {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string pointerText(const void* address) {
    char text[32];
    snprintf(text, sizeof(text), "%p", address);
    return text;
}

TEST(RegisterServiceTest, PublishesTheServiceOrReturnsTheManagersStatus) {
    FakePal::instance().reset();
    binder_host::clearServices();
    LogCapture log;
    EXPECT_EQ(0, registerService());
    EXPECT_THAT(log.lines(), ElementsAre(Info("Register ASR Service"), Info("Voxa: ")));

    std::shared_ptr<IVoxa> voxa =
            IVoxa::fromBinder(ndk::SpAIBinder(AServiceManager_checkService(kInstance)));
    ASSERT_NE(nullptr, voxa);
    int32_t version = 0;
    EXPECT_TRUE(voxa->getInterfaceVersion(&version).isOk());
    EXPECT_EQ(3, version);
    voxa.reset();

    log.clear();
    binder_host::clearServices();  // the manager held the last reference
    EXPECT_THAT(log.lines(), ElementsAre(Info("~Voxa: ")));

    // A refused registration returns the manager's status.
    log.clear();
    binder_host::failNextAddService(STATUS_ALREADY_EXISTS);
    EXPECT_EQ(STATUS_ALREADY_EXISTS, registerService());
    EXPECT_EQ(Lines({"I Register ASR Service", "I Voxa: ",
                     "W Could not register " + std::string(kInstance) +
                             ", status=" + std::to_string(STATUS_ALREADY_EXISTS),
                     "I ~Voxa: "}),
              log.lines());
    EXPECT_EQ(nullptr, AServiceManager_checkService(kInstance));
}

class VoxaTest : public ServiceTest {};

TEST_F(VoxaTest, UnknownHandlesAreInvalid) {
    auto client = ndk::SharedRefBase::make<RecordingCallback>();
    int32_t released = openSession(client);
    ASSERT_TRUE(mVoxa->releaseSession(released).isOk());
    pal().clearCalls();
    const std::vector<std::pair<std::string, std::function<ndk::ScopedAStatus(int32_t)>>> calls = {
            {"releaseSession", [&](int32_t h) { return mVoxa->releaseSession(h); }},
            {"startListening",
             [&](int32_t h) { return mVoxa->startListening(h, englishConfig()); }},
            {"stopListening", [&](int32_t h) { return mVoxa->stopListening(h); }},
            {"setParameter", [&](int32_t h) { return mVoxa->setParameter(h, {}); }},
    };
    for (const auto& [name, call] : calls) {
        for (int32_t handle : {released, 42, -1}) {
            SCOPED_TRACE(name + " " + std::to_string(handle));
            mLog.clear();
            ndk::ScopedAStatus status = call(handle);
            EXPECT_EQ(-1, serviceError(status));
            EXPECT_STREQ("INVALID", status.getMessage());
            const std::string h = std::to_string(handle);
            EXPECT_THAT(mLog.lines(),
                        ElementsAre(Info(name + ": Enter handle " + h),
                                    Error("getSession: client not found for handle " + h),
                                    Error(name + ": invalid handle " + h)));
        }
    }
    EXPECT_THAT(pal().calls(), IsEmpty());
}

// What an operation did, one line each: the service's log lines ("I text", "E text") and then the
// PAL calls it made ("pal_stream_set_param 78"), with the test's model and configuration texts
// written {model} and {config}.
std::string transcript(const std::vector<voxa_test::LogLine>& lines,
                       const std::vector<fake_pal::Call>& calls) {
    std::string text;
    for (const voxa_test::LogLine& line : lines) {
        text += "\n" + std::string(line.priority == ANDROID_LOG_ERROR ? "E" : "I");
        text += (line.tag == "Voxa" ? " " : "/" + line.tag + " ") + line.message;
    }
    for (const fake_pal::Call& call : calls) {
        text += std::string("\n") + fake_pal::toString(call.function);
        if (call.paramId != 0) text += " " + std::to_string(call.paramId);
    }
    for (const auto& [written, as] : {std::pair(testModel().toString(), "{model}"),
                                      std::pair(englishConfig().toString(), "{config}")}) {
        for (size_t at; (at = text.find(written)) != std::string::npos;) {
            text.replace(at, written.size(), as);
        }
    }
    return text;
}

// Every operation, as it succeeds and as each of its steps fails: the status the client gets,
// every line the service logs and the PAL calls it makes. Handle 0 is the session's.
TEST_F(VoxaTest, EachOperationLogsAndCallsThePal) {
    using F = Function;
    using P = ParameterType;
    enum Before { kNothing, kOpen, kListening };
    struct Case {
        const char* name;
        Before before;
        std::vector<std::pair<Function, int32_t>> palResults;
        std::function<ndk::ScopedAStatus(IVoxa&)> call;
        int32_t error;
        const char* transcript;
    };
    auto client = ndk::SharedRefBase::make<RecordingCallback>();
    auto init = [](const std::shared_ptr<IVoxaCallback>& callback) {
        return [callback](IVoxa& voxa) {
            int32_t handle;
            return voxa.initSession(testModel(), callback, &handle);
        };
    };
    auto start = [](const std::string& language) {
        return [language](IVoxa& voxa) {
            VoxaConfig config = englishConfig();
            config.input_lang_code = language;
            return voxa.startListening(0, config);
        };
    };
    auto set = [](ParameterType type, size_t size) {
        return [type, size](IVoxa& voxa) {
            VoxaParameter parameter;
            parameter.param = type;
            parameter.data.assign(size, 7);
            return voxa.setParameter(0, parameter);
        };
    };
    auto global = [](IVoxa& voxa) { return voxa.registerGlobalCallback(nullptr); };
    auto stop = [](IVoxa& voxa) { return voxa.stopListening(0); };
    auto release = [](IVoxa& voxa) { return voxa.releaseSession(0); };
    const Case cases[] = {
            {"init", kNothing, {}, init(client), 0, R"(
I initSession: Enter
I VoxaSession: Enter, handle 0
I loadModel: Enter handle 0, model {model}
I loadModel: Exit, handle 0, status = 0
I initSession: Exit handle 0, status 0
pal_stream_open
pal_stream_set_param 77)"},
            {"init, no stream", kNothing, {{F::StreamOpen, -12}}, init(client), -4, R"(
I initSession: Enter
I VoxaSession: Enter, handle 0
I loadModel: Enter handle 0, model {model}
E openPalStream: failed to open pal stream, status -12
E initSession: Failed to load model with handle 0, status -12
I ~VoxaSession: Enter, handle 0
pal_stream_open)"},
            // A refused model closes its stream again, quietly.
            {"init, model refused", kNothing, {{F::StreamSetParam, -16}}, init(client), -2, R"(
I initSession: Enter
I VoxaSession: Enter, handle 0
I loadModel: Enter handle 0, model {model}
E loadModel: failed to set asr model, status = -16
E initSession: Failed to load model with handle 0, status -16
I ~VoxaSession: Enter, handle 0
pal_stream_open
pal_stream_set_param 77
pal_stream_close)"},
            {"init, null callback", kNothing, {}, init(nullptr), -1, R"(
I initSession: Enter
E initSession: null callback for handle 0)"},
            {"global, null callback", kNothing, {}, global, -1, R"(
E registerGlobalCallback: null callback
I registerGlobalCallback: Exit, status -22)"},
            {"start", kOpen, {}, start("en-US"), 0, R"(
I startListening: Enter handle 0
I start: Enter, handle 0, config {config}
I start: Exit, handle 0, status = 0
I startListening: Exit handle 0, status 0
pal_stream_set_param 78
pal_stream_start)"},
            {"start, bad language", kListening, {}, start("en_US"), -1, R"(
I startListening: Enter handle 0
I start: Enter, handle 0, config VoxaConfig{input_language_code: EN_US, output_language_code: EN_US, enable_language_detection: false, enable_translation: false, enable_continuous_mode: false, enable_partial_transcription: false, threshold: 0, timeout_duration: 0, silence_detection_duration: 0, outputBufferMode: false, data: [], input_lang_code: en_US, output_lang_code: en-US, mode: PARTIAL_CONTINUOUS, enable_text_timestamp: false, enable_speaker_diarization: false}
E convertConfig: Recieved invalid input lnaguage code en_US
E start: Failed to parse config, status = -22
E startListening: Failed to start with handle 0, status -22)"},
            {"start, configuration refused",
             kOpen,
             {{F::StreamSetParam, -5}},
             start("en-US"),
             -4,
             R"(
I startListening: Enter handle 0
I start: Enter, handle 0, config {config}
E start: failed to set asr config, status = -5
E startListening: Failed to start with handle 0, status -5
pal_stream_set_param 78)"},
            {"start refused", kOpen, {{F::StreamStart, -16}}, start("en-US"), -2, R"(
I startListening: Enter handle 0
I start: Enter, handle 0, config {config}
E start: failed to start pal stream, status = -16
E startListening: Failed to start with handle 0, status -16
pal_stream_set_param 78
pal_stream_start)"},
            // Stop reaches the PAL whether or not the session listens.
            {"stop, idle", kOpen, {}, stop, 0, R"(
I stopListening: Enter handle 0
I stop: Enter, handle 0
I stopL: Enter, handle 0
I stopL: Exit, handle 0, status = 0
I stop: Exit, handle 0, status = 0
I stopListening: Exit handle 0, status 0
pal_stream_stop)"},
            {"stop refused", kListening, {{F::StreamStop, -38}}, stop, -3, R"(
I stopListening: Enter handle 0
I stop: Enter, handle 0
I stopL: Enter, handle 0
E stopL: error, failed to stop pal stream, status = -38
I stopL: Exit, handle 0, status = -38
I stop: Exit, handle 0, status = -38
E stopListening: Failed to stop recognition model with handle 0, status -38
I stopListening: Exit handle 0, status -38
pal_stream_stop)"},
            {"force output", kListening, {}, set(P::FORCE_OUTPUT_EVENT, 2), 0, R"(
I setParameter: Enter handle 0
I setParameter: Enter, handle 0, parameters VoxaParameter{param: FORCE_OUTPUT_EVENT, data: [7, 7]}
I setParameter: Exit, handle 0, status = 0
I setParameter: Exit handle 0, status 0
pal_stream_set_param 80)"},
            {"extras refused", kOpen, {{F::StreamSetParam, -19}}, set(P::CUSTOM_EXTRAS, 0), -4, R"(
I setParameter: Enter handle 0
I setParameter: Enter, handle 0, parameters VoxaParameter{param: CUSTOM_EXTRAS, data: []}
E setParameter: failed to set asr param, status = -19
I setParameter: Exit, handle 0, status = -19
E setParameter: Failed to set param with handle 0, status -19
I setParameter: Exit handle 0, status -19
pal_stream_set_param 79)"},
            {"invalid parameter", kOpen, {}, set(P::INVALID, 0), -1, R"(
I setParameter: Enter handle 0
I setParameter: Enter, handle 0, parameters VoxaParameter{param: INVALID, data: []}
E setParameter: Invalid param -1
E setParameter: Failed to set param with handle 0, status -22
I setParameter: Exit handle 0, status -22)"},
            // Data that cannot be sent is shown by its size alone.
            {"parameter too long", kOpen, {}, set(P::FORCE_OUTPUT_EVENT, 21), -1, R"(
I setParameter: Enter handle 0
I setParameter: Enter, handle 0, parameters VoxaParameter{param: FORCE_OUTPUT_EVENT, data: [21 bytes]}
E setParameter: Invalid param data size 21, at most 20 bytes
E setParameter: Failed to set param with handle 0, status -22
I setParameter: Exit handle 0, status -22)"},
            {"release, idle", kOpen, {}, release, 0, R"(
I releaseSession: Enter handle 0
I close: Enter, handle 0
I close: Exit, handle 0, status = 0
I releaseSession: Exit handle 0, status 0
I ~VoxaSession: Enter, handle 0
pal_stream_close)"},
            // The session goes even when its stream fails to stop and to close.
            {"release refused",
             kListening,
             {{F::StreamStop, -32}, {F::StreamClose, -5}},
             release,
             -4,
             R"(
I releaseSession: Enter handle 0
I close: Enter, handle 0
I stopL: Enter, handle 0
E stopL: error, failed to stop pal stream, status = -32
I stopL: Exit, handle 0, status = -32
E close: failed to stop pal stream, status = -32
E close: failed to close pal stream, status = -5
I close: Exit, handle 0, status = -5
E releaseSession: Failed to unload model with handle 0, status -5
I releaseSession: Exit handle 0, status -5
I ~VoxaSession: Enter, handle 0
pal_stream_stop
pal_stream_close)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        binder_host::clearServices();
        pal().reset();
        ASSERT_EQ(0, registerService());
        mVoxa = IVoxa::fromBinder(ndk::SpAIBinder(AServiceManager_checkService(kInstance)));
        if (c.before != kNothing) openSession(client);
        if (c.before == kListening) {
            ASSERT_TRUE(mVoxa->startListening(0, englishConfig()).isOk());
        }
        pal().clearCalls();
        for (const auto& [function, result] : c.palResults) pal().queueResults(function, {result});
        mLog.clear();

        EXPECT_EQ(c.error, serviceError(c.call(*mVoxa)));
        EXPECT_EQ(c.transcript, transcript(mLog.lines(), pal().calls()));
        // A release drops the session even when its stream fails; no other operation does.
        const bool released = std::string(c.name).rfind("release", 0) == 0;
        const bool opened = c.before != kNothing || c.error == 0;
        EXPECT_EQ(opened && !released, mVoxa->releaseSession(0).isOk());
    }
}

TEST_F(VoxaTest, SupportedLanguagesAreAppendedForAnyHandle) {
    std::vector<std::string> languages = {"kept"};
    EXPECT_TRUE(mVoxa->getSupportedLanguages(-7, &languages).isOk());
    EXPECT_TRUE(mVoxa->getSupportedLanguages(12345, &languages).isOk());
    ASSERT_EQ(201u, languages.size());
    EXPECT_EQ("kept", languages[0]);
    EXPECT_EQ("english : en-US", languages[1]);
    EXPECT_EQ("cantonese : yue-CH", languages[100]);
    EXPECT_EQ("english : en-US", languages[101]);
    EXPECT_THAT(mLog.lines(),
                ElementsAre(Info("getSupportedLanguages: Enter handle -7"),
                            Info("getSupportedLanguages: Exit handle -7, status 0"),
                            Info("getSupportedLanguages: Enter handle 12345"),
                            Info("getSupportedLanguages: Exit handle 12345, status 0")));
}

TEST_F(VoxaTest, GlobalCallbackRegistration) {
    // The PAL may report resources with the service's cookie before any callback is stored.
    Voxa::onResourcesAvailable(serviceAddress());
    Voxa::onResourcesAvailable(0);
    EXPECT_THAT(mLog.lines(), ElementsAre(Info("onResourcesAvailable: Exit"),
                                          Info("onResourcesAvailable: Exit")));
    mLog.clear();

    auto first = ndk::SharedRefBase::make<CountingGlobalCallback>();
    ASSERT_TRUE(mVoxa->registerGlobalCallback(first).isOk());
    std::vector<fake_pal::Call> calls = pal().calls(Function::SetParam);
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(75u, calls[0].paramId);
    void (*function)(unsigned long) = &Voxa::onResourcesAvailable;
    EXPECT_EQ(16u, calls[0].payload.size());
    EXPECT_EQ(0, std::memcmp(calls[0].payload.data(), &function, 8));
    EXPECT_EQ(serviceAddress(), voxa_test::readAt<unsigned long>(calls[0].payload, 8));
    EXPECT_EQ(1u, binder_host::deathLinkCount(first->asBinder().get()));
    EXPECT_THAT(mLog.lines(), ElementsAre(Info("registerGlobalCallback: Exit, status 0")));

    EXPECT_TRUE(pal().notifyResourcesAvailable());
    EXPECT_EQ(1, first->count());
    EXPECT_EQ(FakePal::instance().eventThread(), first->lastThread());

    // A refused PAL registration keeps the callback there was.
    auto refused = ndk::SharedRefBase::make<CountingGlobalCallback>();
    pal().queueResults(Function::SetParam, {-38});
    mLog.clear();
    EXPECT_EQ(-3, serviceError(mVoxa->registerGlobalCallback(refused)));
    EXPECT_THAT(mLog.lines(),
                ElementsAre(Error("registerGlobalCallback: failed to set resources available "
                                  "callback, status -38"),
                            Info("registerGlobalCallback: Exit, status -38")));
    EXPECT_EQ(0u, binder_host::deathLinkCount(refused->asBinder().get()));
    EXPECT_TRUE(pal().notifyResourcesAvailable());
    EXPECT_EQ(2, first->count());
    EXPECT_EQ(0, refused->count());

    // A second registration replaces callback and recipient; the first recipient is deleted.
    auto second = ndk::SharedRefBase::make<CountingGlobalCallback>();
    ASSERT_TRUE(mVoxa->registerGlobalCallback(second).isOk());
    EXPECT_EQ(0u, binder_host::deathLinkCount(first->asBinder().get()));
    EXPECT_EQ(1u, binder_host::deathLinkCount(second->asBinder().get()));
    EXPECT_TRUE(pal().notifyResourcesAvailable());
    EXPECT_EQ(2, first->count());
    EXPECT_EQ(1, second->count());

    // A callback whose client cannot be watched is still kept.
    auto callback = ndk::SharedRefBase::make<CountingGlobalCallback>();
    binder_host::failNextDeathRecipientNew();
    mLog.clear();
    EXPECT_EQ(-1, serviceError(mVoxa->registerGlobalCallback(callback)));
    EXPECT_THAT(mLog.lines(),
                ElementsAre(Error("registerGlobalCallback: Unable to create death recepient"),
                            Info("registerGlobalCallback: Exit, status -22")));
    EXPECT_TRUE(pal().notifyResourcesAvailable());
    EXPECT_EQ(1, callback->count());

    binder_host::failNextLinkToDeath(STATUS_DEAD_OBJECT);
    mLog.clear();
    EXPECT_EQ(-4, serviceError(mVoxa->registerGlobalCallback(callback)));
    const std::string dead = std::to_string(STATUS_DEAD_OBJECT);
    ndk::ScopedAStatus expected(AStatus_fromStatus(STATUS_DEAD_OBJECT));
    EXPECT_EQ(Lines({"E registerGlobalCallback: link to death notification failed, status " + dead +
                             ": " + expected.getMessage(),
                     "I registerGlobalCallback: Exit, status " + dead}),
              mLog.lines());
    EXPECT_EQ(0u, binder_host::deathLinkCount(callback->asBinder().get()));
    EXPECT_TRUE(pal().notifyResourcesAvailable());
    EXPECT_EQ(2, callback->count());
}

// Handles count up from zero, a failed initSession's included, and are never reused; after the
// counter wraps around, a handle still in use is skipped: the live session keeps its handle and
// its events.
TEST_F(VoxaTest, WrappedHandlesSkipLiveSessions) {
    auto client = ndk::SharedRefBase::make<RecordingCallback>();
    int32_t live = openSession(client);
    pal_stream_handle* liveStream = lastStream();
    EXPECT_EQ(0, live);
    pal().queueResults(Function::StreamSetParam, {-16});
    int32_t failed = -100;
    EXPECT_EQ(-2, serviceError(mVoxa->initSession(testModel(), client, &failed)));
    EXPECT_EQ(1, failed);
    EXPECT_EQ(2, openSession(client));
    EXPECT_TRUE(mVoxa->releaseSession(2).isOk());
    EXPECT_EQ(3, openSession(client));
    EXPECT_EQ(-1, serviceError(mVoxa->startListening(1, englishConfig())));
    ASSERT_TRUE(mVoxa->startListening(live, englishConfig()).isOk());

    service().setNextHandle(INT32_MAX);
    EXPECT_EQ(INT32_MAX, openSession(client));
    EXPECT_EQ(INT32_MIN, openSession(client));
    service().setNextHandle(live);
    EXPECT_EQ(live + 1, openSession(client));

    EXPECT_EQ(0, pal().raiseEvent(liveStream, 0, asrPayload("still here")));
    ASSERT_EQ(1u, client->deliveries().size());
    EXPECT_EQ(live, client->deliveries()[0].handle);
}

// The client is watched while it has sessions, from its global callback's registration on:
// releasing the last session stops watching it, and its next session watches it again. When it
// dies, each of its sessions is stopped, then closed, and handles go on.
TEST_F(VoxaTest, ClientDeathClosesItsSessions) {
    auto global = ndk::SharedRefBase::make<CountingGlobalCallback>();
    auto client = ndk::SharedRefBase::make<RecordingCallback>();
    auto links = [&] { return binder_host::deathLinkCount(global->asBinder().get()); };
    int32_t a = openSession(client);
    ASSERT_TRUE(mVoxa->registerGlobalCallback(global).isOk());
    int32_t b = openSession(client);
    ASSERT_TRUE(mVoxa->releaseSession(a).isOk());
    EXPECT_EQ(1u, links());
    ASSERT_TRUE(mVoxa->releaseSession(b).isOk());
    EXPECT_EQ(0u, links());

    mLog.clear();
    std::vector<pal_stream_handle*> streams;
    for (int i = 0; i < 3; ++i) {
        openSession(client);
        streams.push_back(lastStream());
    }
    EXPECT_EQ(1u, links());
    EXPECT_THAT(mLog.lines(), ::testing::Not(::testing::Contains(::testing::Field(
                                      &voxa_test::LogLine::priority, ANDROID_LOG_ERROR))));
    ASSERT_TRUE(mVoxa->startListening(3, englishConfig()).isOk());
    pal().clearCalls();
    mLog.clear();
    binder_host::killProcessOf(global->asBinder().get());

    std::vector<fake_pal::Call> calls = pal().calls();
    ASSERT_EQ(6u, calls.size());
    std::set<pal_stream_handle*> closed;
    for (size_t i = 0; i < calls.size(); i += 2) {
        EXPECT_EQ(Function::StreamStop, calls[i].function);
        EXPECT_EQ(Function::StreamClose, calls[i + 1].function);
        EXPECT_EQ(calls[i].stream, calls[i + 1].stream);
        closed.insert(calls[i].stream);
    }
    EXPECT_EQ(std::set<pal_stream_handle*>(streams.begin(), streams.end()), closed);
    EXPECT_THAT(pal().openStreams(), IsEmpty());
    EXPECT_EQ(-1, serviceError(mVoxa->stopListening(3)));
    EXPECT_EQ(-1, serviceError(mVoxa->releaseSession(4)));
    EXPECT_EQ(5, openSession(client));  // numbering goes on
    EXPECT_THAT(mLog.lines(), ::testing::Contains(Info("clientDiedCallback: Client died " +
                                                       pointerText(&service()) + "k")));

    // A death notice without a service only logs.
    mLog.clear();
    clientDiedCallback(nullptr);
    EXPECT_THAT(mLog.lines(), ElementsAre(Info("clientDiedCallback: Client died (nil)k")));
}

std::string dumpOf(const std::shared_ptr<IVoxa>& voxa) {
    FILE* file = tmpfile();
    EXPECT_EQ(STATUS_OK, AIBinder_dump(voxa->asBinder().get(), fileno(file), nullptr, 0));
    std::string text(static_cast<size_t>(ftell(file)), '\0');
    rewind(file);
    EXPECT_EQ(text.size(), fread(text.data(), 1, text.size(), file));
    fclose(file);
    return text;
}

// What dumpsys shows of a service with a listening session, a refused start, delivered and
// dropped events, and a session busy in a long PAL call.
TEST_F(VoxaTest, DumpReportsTheServiceAndEachSession) {
    auto global = ndk::SharedRefBase::make<CountingGlobalCallback>();
    ASSERT_TRUE(mVoxa->registerGlobalCallback(global).isOk());
    ASSERT_TRUE(pal().notifyResourcesAvailable());
    auto client = ndk::SharedRefBase::make<RecordingCallback>();
    int32_t listening = openSession(client);
    pal_stream_handle* stream = lastStream();
    int32_t refused = openSession(client);
    VoxaConfig config = englishConfig();
    config.enable_text_timestamp = true;
    ASSERT_TRUE(mVoxa->startListening(listening, config).isOk());
    pal().queueResults(Function::StreamStart, {-16});
    EXPECT_EQ(-2, serviceError(mVoxa->startListening(refused, englishConfig())));
    pal().raiseEvent(stream, 1, timestampPayload("word"));
    pal().raiseEvent(stream, 2, sdzPayload(1));
    pal().raiseEvent(lastStream(), 0, asrPayload("dropped"));

    EXPECT_EQ(
            "vendor.orbo.hardware.voxa.IVoxa/default, interface version 3\n"
            "handles issued: 2, next 2\n"
            "global callback: registered, holder watched\n"
            "resources-available notifications: 1\n"
            "sessions: 2\n"
            "  handle 0: listening, stream " +
                    pointerText(stream) +
                    "\n"
                    "    model: 12345678-9abc-def0-1234-56789abcdef0 (1024 bytes)\n"
                    "    last configuration: en-US -> en-US, mode PARTIAL_CONTINUOUS, "
                    "translation off, diarization off, timestamps on, silence 0 ms\n"
                    "    last PAL error: none\n"
                    "    events delivered: plain 0, time-stamped 1, diarization 1; dropped: "
                    "plain 0, time-stamped 0, diarization 0\n"
                    "  handle 1: not listening, stream " +
                    pointerText(lastStream()) +
                    "\n"
                    "    model: 12345678-9abc-def0-1234-56789abcdef0 (1024 bytes)\n"
                    "    last configuration: en-US -> en-US, mode PARTIAL_CONTINUOUS, "
                    "translation off, diarization off, timestamps off, silence 0 ms\n"
                    "    last PAL error: pal_stream_start -16\n"
                    "    events delivered: plain 0, time-stamped 0, diarization 0; dropped: "
                    "plain 1, time-stamped 0, diarization 0\n",
            dumpOf(mVoxa));

    // A session busy in a long PAL call is reported without waiting for it.
    PalCallGate gate(Function::StreamSetParam);
    VoxaParameter force;
    force.param = ParameterType::FORCE_OUTPUT_EVENT;
    std::thread binder([&] { mVoxa->setParameter(listening, force); });
    gate.waitUntilEntered();
    EXPECT_THAT(dumpOf(mVoxa), ::testing::HasSubstr("  handle 0: listening, busy in a PAL call\n"
                                                    "    events delivered: plain 0"));
    gate.release();
    binder.join();
}

}  // namespace
}  // namespace aidl::vendor::orbo::hardware::voxa
