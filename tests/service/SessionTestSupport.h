#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pal/fake_pal.h>

#include <string>
#include <vector>

#include "VoxaSession.h"
#include "support/Bytes.h"
#include "support/LogCapture.h"
#include "support/RecordingCallback.h"

namespace aidl::vendor::orbo::hardware::voxa {

using fake_pal::FakePal;
using fake_pal::Function;
using voxa_test::Bytes;
using voxa_test::Error;
using voxa_test::Info;
using voxa_test::Lines;
using voxa_test::LogCapture;
using voxa_test::RecordingCallback;

// Event payloads as the engine raises them, written by offset.
inline std::vector<uint8_t> asrPayload(const std::string& text, uint32_t status = 0) {
    return Bytes(8 + 5140).u32(0, status).u32(4, 1).u8(8, 1).text(8 + 12, text).vector();
}
inline std::vector<uint8_t> timestampPayload(const std::string& word) {
    Bytes bytes(8 + 14768);
    bytes.u32(4, 1).text(8 + 12, word).i32(8 + 1056, 1).text(8 + 1064 + 4, word);
    return bytes.vector();
}
inline std::vector<uint8_t> sdzPayload(int32_t speaker) {
    return Bytes(16 + 144).u32(0, 1).u32(8, 1).u32(12, 1).i32(16, speaker).vector();
}

inline VoxaModel testModel() {
    VoxaModel model;
    model.vendorUuid = "12345678-9abc-def0-1234-56789abcdef0";
    model.dataSize = 1024;
    return model;
}

inline VoxaConfig englishConfig() {
    VoxaConfig config;
    config.input_lang_code = "en-US";
    config.output_lang_code = "en-US";
    config.mode = TranscriptionMode::PARTIAL_CONTINUOUS;
    return config;
}

// A clean fake PAL and log for every test.
class FakePalTest : public ::testing::Test {
  protected:
    FakePalTest() { pal().reset(); }
    ~FakePalTest() override { pal().reset(); }

    static FakePal& pal() { return FakePal::instance(); }

    // The open stream opened last.
    static pal_stream_handle* lastStream() { return pal().openStreams().back(); }

    LogCapture mLog;
};

}  // namespace aidl::vendor::orbo::hardware::voxa
