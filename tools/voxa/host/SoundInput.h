// The audio of the engine host, read before and while the engine hears it.
//
// A sound file on disk the engine opens by its path; the host reads it first to learn what it
// holds (probeSoundFile). Everything else, standard input and raw PCM, the host reads itself: a
// DeviceFeed decodes it and writes it in the device format to a socket that the engine captures
// as PCM, as a device's microphone delivers it.
#ifndef VOXA_TOOL_SOUND_INPUT_H
#define VOXA_TOOL_SOUND_INPUT_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "Host.h"
#include "Status.h"

namespace voxa_tool {

// The sample rates and channel counts the engine takes.
struct SoundLimits {
    int minRate = 0;
    int maxRate = 0;
    int maxChannels = 0;
};

// What a sound file or stream holds.
struct SoundFacts {
    int rate = 0;
    int channels = 0;
    int64_t declaredFrames = -1;  // as its header says; -1 when the header says nothing usable
    int64_t frames = 0;           // what is there to read
};

// Reads the sound file at `path` (any container libsndfile decodes) to its end. Fails, saying
// why, when it cannot be read or the engine cannot take its format. A file of no bytes is an
// empty sound (no frames).
Status probeSoundFile(const std::string& path, const SoundLimits& limits, SoundFacts* facts);

// Thread safety: the members are called by one thread; the feed's own thread does the reading.
class DeviceFeed {
  public:
    // Reads `fd` (which stays the caller's and must stay open until stop) as a sound stream
    // with a header, or, with `raw`, as raw PCM in that format. A stream without a header is
    // raw PCM in the device format, and `*note` says so. Returns once the header is read; the
    // conversion then runs on the feed's own thread.
    static Status start(int fd, const std::string& name, const std::optional<RawFormat>& raw,
                        const SoundLimits& limits, std::unique_ptr<DeviceFeed>* feed,
                        std::string* note);
    // Stops the feed's thread and closes the socket.
    ~DeviceFeed();
    DeviceFeed(const DeviceFeed&) = delete;
    DeviceFeed& operator=(const DeviceFeed&) = delete;

    // The socket end the engine reads, signed 16-bit little-endian PCM at kDeviceRate with
    // kDeviceChannels interleaved, until end of file.
    int engineFd() const { return mEngineFd; }
    // What the header declared, and whether the input held no byte at all.
    const SoundFacts& facts() const { return mFacts; }
    bool empty() const { return mEmpty; }
    // The frames of the input read so far, and whether it has been read to its end.
    int64_t framesRead() const { return mFramesRead.load(); }
    bool ended() const { return mEnded.load(); }

    static constexpr int kDeviceRate = 48000;
    static constexpr int kDeviceChannels = 2;

  private:
    class Source;
    DeviceFeed() = default;
    void run();

    std::unique_ptr<Source> mSource;
    SoundFacts mFacts;
    bool mEmpty = false;
    int mEngineFd = -1;
    int mFeedFd = -1;  // the feed's end of the socket, written by its thread
    int mWakeFd = -1;  // an eventfd: readable once the thread must stop
    std::thread mThread;
    std::atomic<int64_t> mFramesRead{0};
    std::atomic<bool> mEnded{false};
};

}  // namespace voxa_tool

#endif  // VOXA_TOOL_SOUND_INPUT_H
