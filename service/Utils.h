// Utils: the service's statuses, their binder statuses, and UUID text parsing.
#ifndef VOXA_SERVICE_UTILS_H
#define VOXA_SERVICE_UTILS_H

#include <android/binder_auto_utils.h>
#include <pal/pal_api.h>

#include <cerrno>
#include <string>

namespace aidl::vendor::orbo::hardware::voxa {

// Stateless helpers shared by the service: translation of internal statuses (0 for success, a
// negative errno-style code for failure, as the PAL returns them) into the interface's error
// vocabulary, and parsing of UUID text into the PAL's record.
class Utils {
  public:
    // The ServiceError value for an internal status: PAL_STATUS_BUSY gives RESOURCE_CONTENTION,
    // PAL_STATUS_INVALID INVALID, PAL_STATUS_NOT_SUPPORTED OPERATION_NOT_SUPPORTED, anything else
    // (0 included) FAILURE.
    static int convertToServiceError(int status);

    // The binder status for an internal status: OK for 0, otherwise a service-specific error
    // whose code is the ServiceError value and whose message is that value's name.
    static ndk::ScopedAStatus convertToAidlStatus(int status);

    // The fields of a UUID's text, and what convertStringtoUuid returns when it read them all.
    static constexpr int kUuidFields = 10;

    // Parses "%08x-%04x-%04x-%04x-%02x%02x%02x%02x%02x%02x" (sscanf semantics: trailing text is
    // ignored). Returns the number of fields converted, kUuidFields on success, -1 when the text
    // ends before the first field. `*uuid` is written only on success.
    static int convertStringtoUuid(const std::string& text, st_uuid* uuid);
};

}  // namespace aidl::vendor::orbo::hardware::voxa

#endif  // VOXA_SERVICE_UTILS_H
