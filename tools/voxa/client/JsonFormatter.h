// The json format: one line per callback, each of one of two shapes whatever the options.
#ifndef VOXA_TOOL_JSON_FORMATTER_H
#define VOXA_TOOL_JSON_FORMATTER_H

#include <string>

#include "Formatter.h"

namespace voxa_tool {

// onAsrEvent: {"file","handle","callback","status","results"}, each result {"final",
// "confidence","text","start_ms","end_ms","words","speaker","aux_text","data"}, the same keys
// with or without time stamps (null where there are none); aux_text embedded as an object when
// it is one in JSON, else as a string. onSdzEvent: {"file","handle","callback","speakers"}.
class JsonFormatter : public Formatter {
  public:
    JsonFormatter(const FormatSettings& settings, std::ostream& out)
        : mSettings(settings), mOut(out) {}

    void beginFile(const std::string& name, size_t index, size_t count) override;
    void asrEvent(int32_t handle, const VoxaEvent& event) override;
    void sdzEvent(int32_t handle, const SpeakerDiarizationEvent& event) override;

  private:
    const FormatSettings mSettings;
    std::ostream& mOut;
    std::string mFile;  // as JSON text
};

}  // namespace voxa_tool

#endif  // VOXA_TOOL_JSON_FORMATTER_H
