// Where `voxa transcribe` writes each input's results: all to one stream (standard output), or
// each to a file of its own (-o FILE, --output-dir DIR).
#ifndef VOXA_TOOL_OUTPUT_H
#define VOXA_TOOL_OUTPUT_H

#include <cstddef>
#include <fstream>
#include <memory>
#include <string>

#include "Formatters.h"
#include "Options.h"
#include "Status.h"

namespace voxa_tool {

// Used by one thread at a time, one input at a time: begin, formatter, end.
class Output {
  public:
    virtual ~Output() = default;
    // Starts the output of `input` (a path or kStandardInput, called `name` in the output), the
    // `index`-th (from 0) of `count`.
    virtual Status begin(const std::string& input, const std::string& name, size_t index,
                         size_t count) = 0;
    // Valid between begin and end.
    virtual Formatter& formatter() = 0;
    // Ends the output of the input begun last; `complete` is false when its transcription
    // failed, and a file of its own is then removed.
    virtual void end(bool complete) = 0;
};

// Every input through one formatter, which must outlive this.
class StreamOutput : public Output {
  public:
    explicit StreamOutput(Formatter* formatter) : mFormatter(formatter) {}
    Status begin(const std::string& input, const std::string& name, size_t index,
                 size_t count) override;
    Formatter& formatter() override { return *mFormatter; }
    void end(bool complete) override;

  private:
    Formatter* const mFormatter;
};

// A file for each input: `options.outputFile`, or outputPath under `options.outputDir`.
class FileOutput : public Output {
  public:
    FileOutput(const Options& options, const FormatSettings& settings)
        : mOptions(options), mSettings(settings) {}
    Status begin(const std::string& input, const std::string& name, size_t index,
                 size_t count) override;
    Formatter& formatter() override { return *mFormatter; }
    void end(bool complete) override;

  private:
    const Options& mOptions;
    const FormatSettings mSettings;
    std::string mPath;
    std::ofstream mFile;
    std::unique_ptr<Formatter> mFormatter;
};

}  // namespace voxa_tool

#endif  // VOXA_TOOL_OUTPUT_H
