// Byte buffers written by offset, and whole files, for tests.
#ifndef VOXA_TEST_BYTES_H
#define VOXA_TEST_BYTES_H

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace voxa_test {

// A byte buffer written at explicit offsets, so that tests state layouts by number rather than
// through the structs the code under test uses. Little-endian, as on every supported target.
class Bytes {
  public:
    explicit Bytes(size_t size = 0) : mBytes(size, 0) {}

    Bytes& u8(size_t offset, uint8_t value) { return put(offset, &value, 1); }
    Bytes& u16(size_t offset, uint16_t value) { return put(offset, &value, 2); }
    Bytes& u32(size_t offset, uint32_t value) { return put(offset, &value, 4); }
    Bytes& i32(size_t offset, int32_t value) { return put(offset, &value, 4); }
    Bytes& i64(size_t offset, int64_t value) { return put(offset, &value, 8); }
    Bytes& text(size_t offset, const std::string& value) {
        return put(offset, value.data(), value.size());
    }
    Bytes& bytes(size_t offset, const std::vector<uint8_t>& value) {
        return put(offset, value.data(), value.size());
    }

    const std::vector<uint8_t>& vector() const { return mBytes; }
    uint8_t* data() { return mBytes.data(); }
    size_t size() const { return mBytes.size(); }

  private:
    Bytes& put(size_t offset, const void* value, size_t size) {
        if (size == 0) return *this;
        if (mBytes.size() < offset + size) mBytes.resize(offset + size, 0);
        std::memcpy(mBytes.data() + offset, value, size);
        return *this;
    }

    std::vector<uint8_t> mBytes;
};

template <typename T>
T readAt(const std::vector<uint8_t>& bytes, size_t offset) {
    T value;
    std::memcpy(&value, bytes.data() + offset, sizeof(T));
    return value;
}

// The NUL-terminated text at `offset`.
inline std::string textAt(const std::vector<uint8_t>& bytes, size_t offset) {
    return reinterpret_cast<const char*>(bytes.data() + offset);
}

// The whole of a file; empty if it cannot be read.
inline std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace voxa_test

#endif  // VOXA_TEST_BYTES_H
