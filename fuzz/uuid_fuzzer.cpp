// UUID text of any content through Utils::convertStringtoUuid. A text that parses must parse to
// the same record again once written in the canonical form.
#include <cstdio>
#include <cstring>
#include <string>

#include "Utils.h"

using aidl::vendor::orbo::hardware::voxa::Utils;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 256) return 0;
    st_uuid uuid{};
    if (Utils::convertStringtoUuid(std::string(reinterpret_cast<const char*>(data), size), &uuid) !=
        10) {
        return 0;
    }
    char canonical[37];
    snprintf(canonical, sizeof(canonical), "%08x-%04x-%04x-%04x-%02x%02x%02x%02x%02x%02x",
             uuid.time_low, uuid.time_mid, uuid.time_hi_and_version, uuid.clock_seq, uuid.node[0],
             uuid.node[1], uuid.node[2], uuid.node[3], uuid.node[4], uuid.node[5]);
    st_uuid again{};
    if (Utils::convertStringtoUuid(canonical, &again) != 10 ||
        std::memcmp(&uuid, &again, sizeof(uuid)) != 0) {
        __builtin_trap();
    }
    return 0;
}
