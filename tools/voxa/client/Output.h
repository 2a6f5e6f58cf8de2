// Where `voxa transcribe` writes each input's results: all to one stream (standard output), or
// each to a file of its own (-o FILE, --output-dir DIR). A file is written under a temporary
// name beside it and renamed into place once its input succeeded, so that an input is never
// written over and a file is never left half-written.
#ifndef VOXA_TOOL_OUTPUT_H
#define VOXA_TOOL_OUTPUT_H

#include <sys/types.h>

#include <cstddef>
#include <fstream>
#include <memory>
#include <string>

#include "Formatter.h"
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
    // failed, and a file of its own is then not written. Fails when the output cannot be.
    virtual Status end(bool complete) = 0;
};

// Before any work: refuses (a usage error) an output file that is one of the inputs, under any
// name or link, and creates the --output-dir folder when it is missing.
Status prepareOutputs(const Options& options);

// Every input through one formatter, which must outlive this.
class StreamOutput : public Output {
  public:
    explicit StreamOutput(Formatter* formatter) : mFormatter(formatter) {}
    Status begin(const std::string& input, const std::string& name, size_t index,
                 size_t count) override;
    Formatter& formatter() override { return *mFormatter; }
    Status end(bool complete) override;

  private:
    Formatter* const mFormatter;
};

// A file for each input, `options.outputs[index]`. A signal that ends the program at once
// (Signals.h) removes the temporary file of the input in progress.
class FileOutput : public Output {
  public:
    FileOutput(const Options& options, const FormatSettings& settings);
    Status begin(const std::string& input, const std::string& name, size_t index,
                 size_t count) override;
    Formatter& formatter() override { return *mFormatter; }
    Status end(bool complete) override;

  private:
    const Options& mOptions;
    const FormatSettings mSettings;
    const mode_t mCreationMask;  // the process's umask
    std::string mPath;           // the output file
    std::string mTemporaryPath;  // what is written until it is renamed to mPath; empty: none
    std::ofstream mFile;
    std::unique_ptr<Formatter> mFormatter;
};

}  // namespace voxa_tool

#endif  // VOXA_TOOL_OUTPUT_H
