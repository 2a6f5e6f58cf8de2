#include "Utils.h"

#include <aidl/vendor/orbo/hardware/voxa/ServiceError.h>

#include <cstdio>

namespace aidl::vendor::orbo::hardware::voxa {

namespace {

ndk::ScopedAStatus serviceError(ServiceError error) {
    return ndk::ScopedAStatus(AStatus_fromServiceSpecificErrorWithMessage(
            static_cast<int32_t>(error), toString(error).c_str()));
}
}  // namespace

int Utils::convertToServiceError(int status) {
    switch (status) {
        case PAL_STATUS_NOT_SUPPORTED:
            return static_cast<int>(ServiceError::OPERATION_NOT_SUPPORTED);
        case PAL_STATUS_INVALID:
            return static_cast<int>(ServiceError::INVALID);
        case PAL_STATUS_BUSY:
            return static_cast<int>(ServiceError::RESOURCE_CONTENTION);
        default:
            return static_cast<int>(ServiceError::FAILURE);
    }
}

ndk::ScopedAStatus Utils::convertToAidlStatus(int status) {
    switch (status) {
        case 0:
            return ndk::ScopedAStatus(AStatus_newOk());
        case PAL_STATUS_BUSY:
            return serviceError(ServiceError::RESOURCE_CONTENTION);
        case PAL_STATUS_NOT_SUPPORTED:
            return serviceError(ServiceError::OPERATION_NOT_SUPPORTED);
        case PAL_STATUS_INVALID:
            return serviceError(ServiceError::INVALID);
        default:
            return serviceError(ServiceError::FAILURE);
    }
}

int Utils::convertStringtoUuid(const std::string& text, st_uuid* uuid) {
    unsigned int fields[kUuidFields] = {};
    int converted = sscanf(text.c_str(), "%08x-%04x-%04x-%04x-%02x%02x%02x%02x%02x%02x", &fields[0],
                           &fields[1], &fields[2], &fields[3], &fields[4], &fields[5], &fields[6],
                           &fields[7], &fields[8], &fields[9]);
    if (converted < kUuidFields) return converted;

    uuid->time_low = fields[0];
    uuid->time_mid = static_cast<uint16_t>(fields[1]);
    uuid->time_hi_and_version = static_cast<uint16_t>(fields[2]);
    uuid->clock_seq = static_cast<uint16_t>(fields[3]);
    for (int i = 0; i < 6; ++i) {
        uuid->node[i] = static_cast<uint8_t>(fields[4 + i]);
    }
    return converted;
}

}  // namespace aidl::vendor::orbo::hardware::voxa
