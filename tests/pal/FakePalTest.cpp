#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pal/fake_pal.h>

#include <atomic>
#include <cstring>
#include <set>
#include <thread>
#include <tuple>

namespace fake_pal {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// What a stream callback got: stream, event id, payload bytes (none for a null payload), size.
using Received = std::tuple<pal_stream_handle*, uint32_t, std::vector<uint8_t>, uint32_t>;

// The cookie of each test stream points at one of these. Only the event thread writes it, and the
// test reads it once the events' results have arrived.
struct Listener {
    std::vector<Received> events;
    int32_t result = 0;
    bool stopFromCallback = false;
};

int32_t onEvent(pal_stream_handle* stream, unsigned int id, unsigned int* data, unsigned int size,
                unsigned long cookie) {
    EXPECT_EQ(std::this_thread::get_id(), FakePal::instance().eventThread());
    EXPECT_EQ(reinterpret_cast<uintptr_t>(data) % kPayloadAlignment, 0u);
    auto* bytes = reinterpret_cast<uint8_t*>(data);
    auto* listener = reinterpret_cast<Listener*>(cookie);
    listener->events.emplace_back(stream, id, std::vector(bytes, bytes + (data ? size : 0)), size);
    if (listener->stopFromCallback) pal_stream_stop(stream);
    return listener->result;
}

std::atomic<unsigned long> gResourcesCookie{0};

void onResourcesAvailable(unsigned long cookie) {
    EXPECT_EQ(std::this_thread::get_id(), FakePal::instance().eventThread());
    gResourcesCookie = cookie;
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
                        reinterpret_cast<unsigned long>(&listener), &stream);
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
    EXPECT_EQ(calls[0].cookie, reinterpret_cast<unsigned long>(&listener));
    EXPECT_EQ(calls[1].stream, stream);
    EXPECT_EQ(calls[1].paramId, 80u);
    EXPECT_EQ(calls[1].payload, std::vector<uint8_t>(param, param + sizeof(param)));
    EXPECT_EQ(calls[2].paramId, 42u);
    EXPECT_THAT(calls[2].payload, ElementsAre(7, 8, 9));
}

// Queued results come first, then the standing one, for any handle; reset forgets them, the calls
// and the streams, but handles are never handed out twice.
TEST_F(FakePalTest, ScriptedResultsAndStreamsLastUntilReset) {
    unsigned long unknown = 0;
    fake.setResult(Function::StreamStart, -16);
    fake.queueResults(Function::StreamStart, {-38, 0});
    fake.queueResults(Function::StreamStart, {-5});
    EXPECT_EQ(pal_stream_start(&unknown), -38);
    for (int32_t expected : {0, -5, -16, -16}) EXPECT_EQ(pal_stream_start(nullptr), expected);
    EXPECT_EQ(pal_stream_set_param(nullptr, 79, nullptr), 0);
    EXPECT_EQ(fake.calls(Function::StreamStart).at(0).stream, &unknown);

    Listener listener;
    fake.queueResults(Function::StreamOpen, {-19});
    EXPECT_EQ(open(listener), nullptr);
    EXPECT_EQ(fake.calls(Function::StreamOpen).at(0).stream, nullptr);
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
    EXPECT_EQ(std::set<pal_stream_handle*>({first, second, third, open(listener)}).size(), 4u);
}

TEST_F(FakePalTest, RaisesEventsToTheStreamsOwnCallbackAsDelivered) {
    EXPECT_NE(fake.eventThread(), std::this_thread::get_id());
    Listener one, two;
    pal_stream_handle* first = open(one);
    pal_stream_handle* second = open(two);
    two.result = -22;
    EXPECT_EQ(fake.raiseEvent(first, 3, {1, 2, 3, 4, 5}), 0);
    EXPECT_EQ(fake.raiseEvent(second, 2, {9}), -22);
    EXPECT_EQ(fake.raiseEvent(first, 0, {}), 0);
    Delivery nullPayload{false, true, {}};
    Delivery nullStreamShort{true, false, 2};
    EXPECT_EQ(fake.raiseEvent(first, 1, {1, 2}, nullPayload), 0);
    EXPECT_EQ(fake.raiseEvent(first, 1, {1, 2, 3}, nullStreamShort), 0);
    pal_stream_close(first);
    EXPECT_EQ(fake.raiseEvent(first, 0, {7}), kNotDelivered);

    EXPECT_THAT(one.events,
                ElementsAre(Received{first, 3, {1, 2, 3, 4, 5}, 5}, Received{first, 0, {}, 0},
                            Received{first, 1, {}, 2}, Received{nullptr, 1, {1, 2}, 2}));
    EXPECT_THAT(two.events, ElementsAre(Received{second, 2, {9}, 1}));
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

    ASSERT_EQ(listener.events.size(), 50u);
    for (uint32_t id = 0; id < 50; ++id) EXPECT_EQ(std::get<1>(listener.events[id]), id);
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
    fake.reset();
    EXPECT_FALSE(fake.notifyResourcesAvailable());
}

}  // namespace
}  // namespace fake_pal
