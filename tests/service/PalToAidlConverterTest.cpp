#include <algorithm>
#include <tuple>

#include "PalToAidlConverter.h"
#include "ServiceTestSupport.h"

namespace aidl::vendor::orbo::hardware::voxa {
namespace {

using ::testing::IsEmpty;

// Payloads are written by offset, as the engine lays them out.
constexpr size_t kAsrStride = 5140;
constexpr size_t kTsStride = 14768;

constexpr auto asrItem = [](size_t i) { return 8 + kAsrStride * i; };
constexpr auto tsItem = [](size_t i) { return 8 + kTsStride * i; };

// The results, at a fixed stride with a result's trailing data on top of the next, replace the
// list there was; a failure with no results reports its status and leaves the list empty. The
// time-stamped list is left alone.
TEST(ConvertAsrEventTest, ResultsAtFixedStrideReplaceTheListAndAFailureEmptiesIt) {
    Bytes payload(asrItem(2) + 16);
    payload.u32(0, 0).u32(4, 2);
    payload.u8(asrItem(0), 1).i32(asrItem(0) + 4, -7).text(asrItem(0) + 12, "hello");
    payload.u32(asrItem(0) + 5136, 4);
    // Item 1's flag byte and padding are item 0's trailing data.
    payload.u8(asrItem(1), 1).u8(asrItem(1) + 1, 0xaa).u8(asrItem(1) + 2, 0xbb);
    payload.u8(asrItem(1) + 3, 0xcc).i32(asrItem(1) + 4, 0x7fffffff);
    payload.text(asrItem(1) + 12, std::string(1028, 'x'));  // fills its field, no NUL
    payload.text(asrItem(1) + 1040, "second text");
    payload.u32(asrItem(1) + 5136, 3).bytes(asrItem(2), {0, 255, 9});

    VoxaEvent event;
    event.status = 2;
    event.events.emplace(3);
    event.timestamp_events.emplace(1);
    auto* asr = reinterpret_cast<pal_asr_event*>(payload.data());
    PalToAidlConverter::convertAsrEvent(asr, event);
    EXPECT_EQ(0, event.status);
    ASSERT_TRUE(event.events.has_value());
    ASSERT_EQ(2u, event.events->size());

    const VoxaEvent::Event& first = *event.events->at(0);
    EXPECT_TRUE(first.flag);
    EXPECT_EQ(-7, first.value);
    EXPECT_EQ("hello", first.text);
    EXPECT_EQ("", first.aux_text);
    EXPECT_EQ((std::vector<uint8_t>{1, 0xaa, 0xbb, 0xcc}), first.data);

    const VoxaEvent::Event& second = *event.events->at(1);
    EXPECT_EQ(0x7fffffff, second.value);
    EXPECT_EQ(std::string(1028, 'x'), second.text);
    EXPECT_EQ("second text", second.aux_text);
    EXPECT_EQ((std::vector<uint8_t>{0, 255, 9}), second.data);

    payload.u32(0, 5).u32(4, 0);
    PalToAidlConverter::convertAsrEvent(asr, event);
    EXPECT_EQ(2, event.status);
    EXPECT_THAT(*event.events, IsEmpty());
    EXPECT_EQ(1u, event.timestamp_events->size());
}

// Two time-stamped results, the first with 8 bytes of trailing data, which are the start of the
// second (its flag byte 1, three padding bytes 0xff and its value). Each result's word slots j
// hold value j, word "w<j>" and times j*10, j*10+5; its word count is kept, and bounds the words.
TEST(ConvertAsrTimeStampEventTest, WordCountIsKeptAndBoundsTheWordsAndDataRunsIntoTheNext) {
    for (int32_t count : {-3, 0, 2, 200, 201}) {
        SCOPED_TRACE(count);
        Bytes payload(tsItem(2));
        payload.u32(0, 0).u32(4, 2);
        for (size_t item : {tsItem(0), tsItem(1)}) {
            payload.u8(item, 1).i32(item + 4, 42).text(item + 12, "hello world");
            payload.i64(item + 1040, -1).i64(item + 1048, INT64_MAX);
            payload.i32(item + 1056, count).text(item + 10668, "{\"json\":1}");
            for (int j = 0; j < 200; ++j) {
                size_t slot = item + 1064 + 48 * j;
                payload.i32(slot, j).text(slot + 4, "w" + std::to_string(j));
                payload.i64(slot + 32, j * 10).i64(slot + 40, j * 10 + 5);
            }
        }
        payload.u32(tsItem(0) + 14764, 8).u32(tsItem(1), 0xffffff01);
        VoxaEvent event;
        PalToAidlConverter::convertAsrTimeStampEvent(
                reinterpret_cast<pal_asr_ts_event*>(payload.data()), event);
        EXPECT_EQ(0, event.status);
        EXPECT_FALSE(event.events.has_value());
        ASSERT_TRUE(event.timestamp_events.has_value());
        ASSERT_EQ(2u, event.timestamp_events->size());
        for (size_t i = 0; i < 2; ++i) {
            const VoxaEvent::EventTS& result = *event.timestamp_events->at(i);
            EXPECT_EQ(count, result.word_count);
            // A count past the slot array yields the slots there are.
            ASSERT_EQ(static_cast<size_t>(std::clamp(count, 0, 200)), result.words.size());
            for (size_t j = 0; j < result.words.size(); ++j) {
                EXPECT_EQ(static_cast<int32_t>(j), result.words[j].value);
                EXPECT_EQ("w" + std::to_string(j), result.words[j].word);
                EXPECT_EQ(static_cast<int64_t>(j * 10), result.words[j].start_ts);
                EXPECT_EQ(static_cast<int64_t>(j * 10 + 5), result.words[j].end_ts);
            }
            EXPECT_TRUE(result.flag);
            EXPECT_EQ(42, result.value);
            EXPECT_EQ("hello world", result.text);
            EXPECT_EQ("{\"json\":1}", result.aux_text);
            EXPECT_EQ(-1, result.start_ts);
            EXPECT_EQ(INT64_MAX, result.end_ts);
            EXPECT_EQ((i == 0 ? std::vector<uint8_t>{1, 0xff, 0xff, 0xff, 42, 0, 0, 0}
                              : std::vector<uint8_t>{}),
                      result.data);
        }
    }
}

// No result leaves the record as it was. Results follow each other at an 8-byte stride, so that a
// result's header overlays the previous result's first speaker record: result 1's header (count 2,
// flag 0) is the first 8 bytes of result 0's speaker at 16, and result 1's speakers start at 24 and
// 168.
TEST(ConvertSdzEventTest, ResultsAtAnEightByteStrideWithTheirSpeakers) {
    SpeakerDiarizationEvent before;
    before.events.emplace_back().speaker_count = 9;
    Bytes twoSpeakers(16 + 2 * 144);
    twoSpeakers.u32(0, 1).u32(8, 2).u32(12, 7);
    twoSpeakers.i32(16, 11).i64(24, 100).i64(32, 200);
    twoSpeakers.i32(160, 12).i64(168, 300).i64(176, -400);
    SpeakerDiarizationEvent oneResult;
    oneResult.events.push_back({2, true, {{11, 100, 200}, {12, 300, -400}}, {}});
    Bytes overlaid(24 + 2 * 144);
    overlaid.u32(0, 2).u32(8, 1).u32(12, 0);
    overlaid.i32(16, 2).u32(20, 0).i64(24, 5).i64(32, 6);
    overlaid.i32(168, 77).i64(176, 8).i64(184, 9);
    SpeakerDiarizationEvent twoResults;
    twoResults.events.push_back({1, false, {{2, 5, 6}}, {}});
    twoResults.events.push_back({2, false, {{5, 6, 0}, {77, 8, 9}}, {}});
    for (auto [payload, event, expected] : {std::tuple(Bytes(8), before, before),
                                            {twoSpeakers, {}, oneResult},
                                            {overlaid, {}, twoResults}}) {
        PalToAidlConverter::convertSdzEvent(reinterpret_cast<pal_sdz_event*>(payload.data()),
                                            event);
        EXPECT_EQ(expected, event);
    }
}

}  // namespace
}  // namespace aidl::vendor::orbo::hardware::voxa
