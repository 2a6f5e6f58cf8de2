#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pal/fake_pal.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <thread>

namespace fake_pal {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct Received {
    pal_stream_handle* stream;
    unsigned int id;
    std::vector<uint8_t> bytes;
    unsigned int size;
    bool aligned;
    std::thread::id thread;
};

// The cookie of each test stream points at one of these.
struct Listener {
    std::mutex lock;
    std::vector<Received> events;  // guarded by lock
    int32_t result = 0;
    bool stopFromCallback = false;

    unsigned long cookie() { return reinterpret_cast<unsigned long>(this); }
    std::vector<Received> received() {
        std::lock_guard<std::mutex> guard(lock);
        return events;
    }
};

int32_t onEvent(pal_stream_handle* stream, unsigned int id, unsigned int* data, unsigned int size,
                unsigned long cookie) {
    auto* listener = reinterpret_cast<Listener*>(cookie);
    auto* bytes = reinterpret_cast<uint8_t*>(data);
    std::vector<uint8_t> copy =
            data == nullptr ? std::vector<uint8_t>() : std::vector(bytes, bytes + size);
    bool aligned = reinterpret_cast<uintptr_t>(data) % 8 == 0;
    {
        std::lock_guard<std::mutex> guard(listener->lock);
        listener->events.push_back({stream, id, copy, size, aligned, std::this_thread::get_id()});
    }
    if (listener->stopFromCallback) pal_stream_stop(stream);
    return listener->result;
}

std::atomic<unsigned long> gResourcesCookie{0};
std::atomic<bool> gResourcesOnEventThread{false};

void onResourcesAvailable(unsigned long cookie) {
    gResourcesCookie = cookie;
    gResourcesOnEventThread = std::this_thread::get_id() == FakePal::instance().eventThread();
}

class FakePalTest : public ::testing::Test {
  protected:
    void SetUp() override { fake.reset(); }

    // Opens a stream whose attributes are all 0xA5 and whose device bytes count up from 0.
    pal_stream_handle* open(Listener& listener, uint32_t numDevices = 1) {
        pal_stream_attrs attributes;
        std::memset(&attributes, 0xA5, sizeof(attributes));
        std::vector<pal_device> devices(numDevices);
        auto* deviceBytes = reinterpret_cast<uint8_t*>(devices.data());
        for (size_t i = 0; i < numDevices * sizeof(pal_device); ++i) deviceBytes[i] = i;
        pal_stream_handle* stream = nullptr;
        pal_stream_open(&attributes, numDevices, devices.data(), 0, nullptr, onEvent,
                        listener.cookie(), &stream);
        return stream;
    }

    FakePal& fake = FakePal::instance();
};

TEST_F(FakePalTest, RecordsExactCopiesOfEveryArgument) {
    Listener listener;
    pal_stream_handle* stream = open(listener, 2);
    ASSERT_NE(stream, nullptr);
    uint8_t param[4 + 5] = {5, 0, 0, 0, 1, 2, 3, 4, 5};
    pal_stream_set_param(stream, 80, reinterpret_cast<pal_param_payload*>(param));
    uint8_t global[3] = {7, 8, 9};
    pal_set_param(42, global, sizeof(global));

    std::vector<Call> calls = fake.calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].function, Function::StreamOpen);
    EXPECT_EQ(calls[0].stream, stream);
    EXPECT_EQ(calls[0].attributes, std::vector<uint8_t>(232, 0xA5));
    ASSERT_EQ(calls[0].devices.size(), 2u * 476);
    EXPECT_EQ(calls[0].devices[951], 951 % 256);
    EXPECT_EQ(calls[0].numDevices, 2u);
    EXPECT_EQ(calls[0].numModifiers, 0u);
    EXPECT_TRUE(calls[0].modifiersNull);
    EXPECT_EQ(calls[0].callback, &onEvent);
    EXPECT_EQ(calls[0].cookie, listener.cookie());
    EXPECT_EQ(calls[1].stream, stream);
    EXPECT_EQ(calls[1].paramId, 80u);
    EXPECT_EQ(calls[1].payload, std::vector<uint8_t>(param, param + sizeof(param)));
    EXPECT_EQ(calls[2].paramId, 42u);
    EXPECT_THAT(calls[2].payload, ElementsAre(7, 8, 9));
}

TEST_F(FakePalTest, ReturnsScriptedResultsAlsoForNullAndUnknownHandles) {
    unsigned long unknown = 0;
    fake.setResult(Function::StreamStart, -16);
    fake.queueResults(Function::StreamStart, {-38, 0});
    fake.queueResults(Function::StreamStart, {-5});
    EXPECT_EQ(pal_stream_start(&unknown), -38);
    EXPECT_EQ(pal_stream_start(nullptr), 0);
    EXPECT_EQ(pal_stream_start(nullptr), -5);
    EXPECT_EQ(pal_stream_start(nullptr), -16);
    EXPECT_EQ(pal_stream_start(nullptr), -16);
    EXPECT_EQ(pal_stream_close(nullptr), 0);
    EXPECT_EQ(pal_stream_set_param(nullptr, 79, nullptr), 0);
    EXPECT_EQ(fake.calls(Function::StreamStart).at(0).stream, &unknown);

    Listener listener;
    fake.queueResults(Function::StreamOpen, {-19});
    EXPECT_EQ(open(listener), nullptr);
    EXPECT_EQ(fake.calls(Function::StreamOpen).at(0).stream, nullptr);
    EXPECT_THAT(fake.openStreams(), IsEmpty());
    EXPECT_EQ(::testing::PrintToString(Function::StreamOpen), "pal_stream_open");
}

TEST_F(FakePalTest, HandlesAreNeverReusedAndResetForgetsEverything) {
    Listener listener;
    pal_stream_handle* first = open(listener);
    pal_stream_handle* second = open(listener);
    pal_stream_close(first);
    pal_stream_handle* third = open(listener);
    EXPECT_THAT(fake.openStreams(), ElementsAre(second, third));
    fake.setResult(Function::StreamStop, -5);
    fake.queueResults(Function::StreamStart, {-5});

    fake.reset();
    EXPECT_THAT(fake.calls(), IsEmpty());
    EXPECT_THAT(fake.openStreams(), IsEmpty());
    EXPECT_EQ(fake.raiseEvent(second, 0, {}), kNotDelivered);
    EXPECT_EQ(pal_stream_start(nullptr), 0);
    EXPECT_EQ(pal_stream_stop(nullptr), 0);
    pal_stream_handle* fourth = open(listener);
    EXPECT_NE(fourth, first);
    EXPECT_NE(fourth, second);
    EXPECT_NE(fourth, third);
    EXPECT_NE(first, third);
}

TEST_F(FakePalTest, RaisesEventsToTheStreamsOwnCallbackOnTheEventThread) {
    Listener one, two;
    pal_stream_handle* first = open(one);
    pal_stream_handle* second = open(two);
    two.result = -22;
    EXPECT_EQ(fake.raiseEvent(first, 3, {1, 2, 3, 4, 5}), 0);
    EXPECT_EQ(fake.raiseEvent(second, 2, {9}), -22);
    EXPECT_EQ(fake.raiseEvent(first, 0, {}), 0);
    pal_stream_close(first);
    EXPECT_EQ(fake.raiseEvent(first, 0, {7}), kNotDelivered);

    std::vector<Received> events = one.received();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].stream, first);
    EXPECT_EQ(events[0].id, 3u);
    EXPECT_THAT(events[0].bytes, ElementsAre(1, 2, 3, 4, 5));
    EXPECT_EQ(events[0].size, 5u);
    EXPECT_TRUE(events[0].aligned);
    EXPECT_EQ(events[0].thread, fake.eventThread());
    EXPECT_NE(events[0].thread, std::this_thread::get_id());
    EXPECT_EQ(events[1].size, 0u);
    ASSERT_EQ(two.received().size(), 1u);
    EXPECT_EQ(two.received()[0].stream, second);
}

TEST_F(FakePalTest, DeliveryOverridesReachTheCallback) {
    Listener listener;
    pal_stream_handle* stream = open(listener);
    Delivery nullPayload;
    nullPayload.nullPayload = true;
    fake.raiseEvent(stream, 1, {1, 2}, nullPayload);
    Delivery nullStreamShort;
    nullStreamShort.nullStream = true;
    nullStreamShort.size = 2;
    fake.raiseEvent(stream, 1, {1, 2, 3}, nullStreamShort);

    std::vector<Received> events = listener.received();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].stream, stream);
    EXPECT_THAT(events[0].bytes, IsEmpty());
    EXPECT_EQ(events[0].size, 2u);
    EXPECT_EQ(events[1].stream, nullptr);
    EXPECT_THAT(events[1].bytes, ElementsAre(1, 2));
}

TEST_F(FakePalTest, AsyncEventsArriveInOrderAndTheirCallbacksMayCallThePal) {
    Listener listener;
    listener.stopFromCallback = true;
    pal_stream_handle* stream = open(listener);
    std::vector<std::future<int32_t>> pending;
    for (uint32_t id = 0; id < 50; ++id) pending.push_back(fake.raiseEventAsync(stream, id, {}));
    std::thread caller([stream] {
        for (int i = 0; i < 50; ++i) pal_stream_start(stream);
    });
    for (auto& result : pending) EXPECT_EQ(result.get(), 0);
    caller.join();

    std::vector<Received> events = listener.received();
    ASSERT_EQ(events.size(), 50u);
    for (uint32_t id = 0; id < 50; ++id) EXPECT_EQ(events[id].id, id);
    EXPECT_EQ(fake.calls(Function::StreamStop).size(), 50u);
    EXPECT_EQ(fake.calls(Function::StreamStart).size(), 50u);
}

TEST_F(FakePalTest, NotifiesTheRegisteredResourcesFunctionOnTheEventThread) {
    EXPECT_FALSE(fake.notifyResourcesAvailable());
    pal_resources_available_param param{onResourcesAvailable, 0x1234};
    fake.queueResults(Function::SetParam, {-38});
    pal_set_param(PAL_PARAM_ID_RESOURCES_AVAILABLE, &param, sizeof(param));
    EXPECT_FALSE(fake.notifyResourcesAvailable());

    pal_set_param(PAL_PARAM_ID_RESOURCES_AVAILABLE, &param, sizeof(param));
    EXPECT_TRUE(fake.notifyResourcesAvailable());
    EXPECT_EQ(gResourcesCookie, 0x1234u);
    EXPECT_TRUE(gResourcesOnEventThread);
    fake.reset();
    EXPECT_FALSE(fake.notifyResourcesAvailable());
}

}  // namespace
}  // namespace fake_pal
