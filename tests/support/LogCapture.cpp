#include "support/LogCapture.h"

#include <atomic>
#include <cstdlib>
#include <iostream>

namespace voxa_test {

namespace {
std::atomic<LogCapture*> gActive{nullptr};
}  // namespace

void PrintTo(const LogLine& line, std::ostream* os) {
    static const char* const kNames[] = {"VERBOSE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL"};
    const int p = line.priority;
    *os << (p >= ANDROID_LOG_VERBOSE && p <= ANDROID_LOG_FATAL ? kNames[p - ANDROID_LOG_VERBOSE]
                                                               : "?")
        << "/" << line.tag << ": \"" << line.message << "\"";
}

LogLine Info(const std::string& message) {
    return {ANDROID_LOG_INFO, "Voxa", message, {}};
}
LogLine Error(const std::string& message) {
    return {ANDROID_LOG_ERROR, "Voxa", message, {}};
}

std::vector<LogLine> Lines(const std::vector<std::string>& lines) {
    std::vector<LogLine> parsed;
    for (const std::string& line : lines) {
        const int priority = line[0] == 'E'   ? ANDROID_LOG_ERROR
                             : line[0] == 'W' ? ANDROID_LOG_WARN
                                              : ANDROID_LOG_INFO;
        parsed.push_back({priority, "Voxa", line.substr(2), {}});
    }
    return parsed;
}

LogCapture::LogCapture() {
    LogCapture* expected = nullptr;
    if (!gActive.compare_exchange_strong(expected, this)) {
        std::cerr << "LogCapture: a capture is already active" << std::endl;
        std::abort();
    }
    __android_log_set_logger(&LogCapture::logger);
}

LogCapture::~LogCapture() {
    __android_log_set_logger(&__android_log_stderr_logger);
    gActive.store(nullptr);
}

void LogCapture::logger(const __android_logger_data* data, const char* message) {
    LogCapture* capture = gActive.load();
    if (capture == nullptr) {
        __android_log_stderr_logger(data, message);
        return;
    }
    capture->append({data->priority, data->tag != nullptr ? data->tag : "", message,
                     std::this_thread::get_id()});
}

void LogCapture::append(LogLine line) {
    std::lock_guard<std::mutex> guard(mLock);
    mLines.push_back(std::move(line));
}

std::vector<LogLine> LogCapture::lines() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mLines;
}

std::vector<LogLine> LogCapture::lines(std::thread::id thread, bool onThread) const {
    std::lock_guard<std::mutex> guard(mLock);
    std::vector<LogLine> matching;
    for (const LogLine& line : mLines) {
        if ((line.thread == thread) == onThread) matching.push_back(line);
    }
    return matching;
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> guard(mLock);
    mLines.clear();
}

}  // namespace voxa_test
