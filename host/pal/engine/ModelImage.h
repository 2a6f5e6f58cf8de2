// The engine's model image: a short text manifest that names the recogniser's files. The service
// hands the engine a descriptor of it (parameter PAL_PARAM_ID_ASR_MODEL); the format is described
// in docs/ENGINE.md.
#ifndef PAL_ENGINE_MODEL_IMAGE_H
#define PAL_ENGINE_MODEL_IMAGE_H

#include <pal/pal_api.h>

#include <cstdint>
#include <string>

namespace pal_engine {

struct ModelImage {
    std::string language;       // language code of the model, "en-US"
    std::string acousticModel;  // directory of the acoustic model
    std::string languageModel;  // n-gram language model file
    std::string dictionary;     // pronunciation dictionary file
};

// Largest image accepted, in bytes; a manifest is a few hundred.
constexpr int32_t kMaxModelImageSize = 64 * 1024;

// Parses the text of an image. Returns 0, or PAL_STATUS_INVALID when it is not a complete,
// well-formed image (missing or repeated key, unknown key, relative path, wrong first line).
int32_t parseModelImage(const std::string& text, ModelImage* image);

// Reads `size` bytes of an image from `fd` (from offset 0 when the descriptor can seek, leaving
// its offset alone; else from where it stands) and parses them. The descriptor stays the
// caller's. Returns 0, or PAL_STATUS_INVALID for a bad descriptor or size, a short read or a bad
// image.
int32_t readModelImage(int fd, int32_t size, ModelImage* image);

// What tells one model apart from another: the image's language and paths, and the device, inode,
// size and modification time of each file they name (every file in the acoustic model's
// directory), so that a model rewritten in place is another model. Empty when a file cannot be
// examined.
std::string modelIdentity(const ModelImage& image);

}  // namespace pal_engine

#endif  // PAL_ENGINE_MODEL_IMAGE_H
