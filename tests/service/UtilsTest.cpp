#include <gtest/gtest.h>

#include <cstring>

#include "Utils.h"

namespace aidl::vendor::orbo::hardware::voxa {
namespace {

TEST(UtilsTest, InternalStatusesBecomeServiceErrorsNamedAfterTheirValue) {
    const struct {
        int status;
        int32_t serviceError;
        const char* message;
    } cases[] = {
            {-16, -2, "RESOURCE_CONTENTION"},
            {-38, -3, "OPERATION_NOT_SUPPORTED"},
            {-22, -1, "INVALID"},
            {-1, -4, "FAILURE"},
            {1, -4, "FAILURE"},
            {-32, -4, "FAILURE"},
    };
    // Zero is success for binder but a failure as a service error.
    EXPECT_TRUE(Utils::convertToAidlStatus(0).isOk());
    EXPECT_EQ(-4, Utils::convertToServiceError(0));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.status);
        ndk::ScopedAStatus status = Utils::convertToAidlStatus(c.status);
        EXPECT_FALSE(status.isOk());
        EXPECT_EQ(EX_SERVICE_SPECIFIC, status.getExceptionCode());
        EXPECT_EQ(c.serviceError, status.getServiceSpecificError());
        EXPECT_STREQ(c.message, status.getMessage());
        EXPECT_EQ(c.serviceError, Utils::convertToServiceError(c.status));
    }
}

// Groups are read in text order, hex digits in either case, short groups and text after the
// last group allowed; an incomplete text leaves the record untouched.
TEST(UtilsTest, ParsesUuidGroupsInTextOrder) {
    st_uuid uuid = {};
    EXPECT_EQ(Utils::kUuidFields,
              Utils::convertStringtoUuid("12345678-9abc-DEF0-1234-56789abcdef0 and", &uuid));
    EXPECT_EQ(0x12345678u, uuid.time_low);
    EXPECT_EQ(0x9abc, uuid.time_mid);
    EXPECT_EQ(0xdef0, uuid.time_hi_and_version);
    EXPECT_EQ(0x1234, uuid.clock_seq);
    const uint8_t node[6] = {0x56, 0x78, 0x9a, 0xbc, 0xde, 0xf0};
    EXPECT_EQ(0, std::memcmp(node, uuid.node, sizeof(node)));

    EXPECT_EQ(Utils::kUuidFields, Utils::convertStringtoUuid(" 1-2-3-4-050607080910", &uuid));
    EXPECT_EQ(1u, uuid.time_low);
    EXPECT_EQ(0x10, uuid.node[5]);

    st_uuid before = uuid;
    EXPECT_EQ(9, Utils::convertStringtoUuid("12345678-9abc-def0-1234-56789abcde", &uuid));
    EXPECT_EQ(-1, Utils::convertStringtoUuid("", &uuid));
    EXPECT_EQ(0, Utils::convertStringtoUuid("not a uuid", &uuid));
    EXPECT_EQ(0, std::memcmp(&before, &uuid, sizeof(uuid)));
}

}  // namespace
}  // namespace aidl::vendor::orbo::hardware::voxa
