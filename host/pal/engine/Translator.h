// Translation of final results from US English with Apertium (Debian's apertium and its language
// pairs). A Translator keeps one Apertium pipeline running for its stream and sends it one text
// at a time, each followed by a NUL on which every stage of the pipeline flushes its output.
#ifndef PAL_ENGINE_TRANSLATOR_H
#define PAL_ENGINE_TRANSLATOR_H

#include <pal/pal_api.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace pal_engine {

// Longest a translation may take, the pipeline's start-up included; past it the result is
// delivered untranslated.
constexpr std::chrono::milliseconds kTranslationTimeout{3000};

// Thread safety: interrupt() may be called from any thread; every other member from one thread
// at a time.
class Translator {
  public:
    // The language code that output language `languageId` of the configuration stands for when
    // the engine translates US English into it and its Apertium pair is installed; else null.
    static const char* target(int32_t languageId);
    // A translator into `languageId`, for which target() is not null. Its pipeline starts at the
    // first start() or translate(). Returns null when the pair's pipeline cannot be read.
    static std::unique_ptr<Translator> create(int32_t languageId);
    ~Translator();
    Translator(const Translator&) = delete;
    Translator& operator=(const Translator&) = delete;

    int32_t languageId() const { return mLanguageId; }
    // The code of the language it translates into, "es-ES"...
    const char* code() const { return mCode; }
    // Starts the pipeline unless it runs, and clears a past interrupt(). Returns 0, or
    // PAL_STATUS_IO when it cannot be started.
    int32_t start();
    // Translates `text` (plain words, no line breaks) into `*translation`. Returns 0;
    // PAL_STATUS_TIMED_OUT when no answer came within `timeout`, -EINTR when interrupt() was
    // called, PAL_STATUS_IO when the pipeline failed. After a failure the pipeline is ended, and
    // the next call starts another.
    int32_t translate(const std::string& text, std::string* translation,
                      std::chrono::milliseconds timeout);
    // Makes a translate() in progress, or the next one, return -EINTR at once.
    void interrupt();

  private:
    Translator(int32_t languageId, const char* code, std::string pipeline, int wakeFd);
    // Starts the pipeline unless it runs. Returns 0 or PAL_STATUS_IO.
    int32_t spawn();
    // Ends the pipeline: every stage is killed.
    void end();

    const int32_t mLanguageId;
    const char* const mCode;
    const std::string mPipeline;  // the shell command of the whole pipeline
    const int mWakeFd;            // eventfd that interrupt() signals
    pid_t mProcess = -1;          // the shell, leader of the pipeline's process group
    int mInput = -1;              // the pipeline's standard input (a socket: no SIGPIPE)
    int mOutput = -1;             // the pipeline's standard output
    std::string mPending;         // output read past the last answer's NUL
};

}  // namespace pal_engine

#endif  // PAL_ENGINE_TRANSLATOR_H
