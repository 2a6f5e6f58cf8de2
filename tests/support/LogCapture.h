// LogCapture: the lines written through liblog, for tests of what the service logs.
#ifndef VOXA_TEST_LOG_CAPTURE_H
#define VOXA_TEST_LOG_CAPTURE_H

#include <android/log.h>

#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

namespace voxa_test {

// One line as liblog handed it to the installed logger.
struct LogLine {
    int priority;
    std::string tag;
    std::string message;
    // The thread that wrote it; not compared.
    std::thread::id thread;

    bool operator==(const LogLine& other) const {
        return priority == other.priority && tag == other.tag && message == other.message;
    }
};

void PrintTo(const LogLine& line, std::ostream* os);

// Lines with the service's tag, for readable expectations.
LogLine Info(const std::string& message);
LogLine Error(const std::string& message);
// Lines with the service's tag written as "I text", "W text" or "E text".
std::vector<LogLine> Lines(const std::vector<std::string>& lines);

// Records every line written through liblog while it exists, in order, from any thread.
// Installs its logger with __android_log_set_logger on construction; on destruction puts back
// liblog's host default (the stderr logger), since liblog offers no way to read the logger that
// was installed before. At most one capture may exist at a time.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> lines() const;
    // The lines written on `thread`, or with `onThread` false on any other thread.
    std::vector<LogLine> lines(std::thread::id thread, bool onThread = true) const;
    void clear();

  private:
    static void logger(const __android_logger_data* data, const char* message);
    void append(LogLine line);

    mutable std::mutex mLock;
    std::vector<LogLine> mLines;  // guarded by mLock
};

}  // namespace voxa_test

#endif  // VOXA_TEST_LOG_CAPTURE_H
