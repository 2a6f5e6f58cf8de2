// Loaded recognisers kept from one stream to the next: loading the model (acoustic model,
// dictionary, language model and the searches over them) costs more CPU than recognising a few
// seconds of speech, and a host such as `voxa transcribe` opens a stream per file.
#ifndef PAL_ENGINE_RECOGNISER_CACHE_H
#define PAL_ENGINE_RECOGNISER_CACHE_H

#include <pal/pal_api.h>

#include <cstdint>
#include <memory>
#include <mutex>

#include "ModelImage.h"
#include "Recogniser.h"

namespace pal_engine {

// Keeps one idle recogniser: the engine has capacity for one stream, so one serves a batch of
// sessions on the same model, and a loaded model holds tens of megabytes that a host switching
// between models would pay for each one kept. A recogniser is never shared: a decoder is driven
// by one thread, and PocketSphinx offers no public way for two decoders to share a model.
//
// Thread safety: every member may be called from any thread; mLock guards mKept and is never held
// while a model loads or a recogniser is freed.
class RecogniserCache {
  public:
    // A recogniser of `image`'s model: the one kept when it was loaded from the same files (see
    // modelIdentity), else a newly loaded one. Either starts each recording clean
    // (Recogniser::beginRecording). Returns 0, or PAL_STATUS_INVALID when the model cannot be
    // loaded.
    int32_t take(const ModelImage& image, std::unique_ptr<Recogniser>* recogniser);
    // Keeps `recogniser`, idle, in place of the one kept so far (which is freed).
    void keep(std::unique_ptr<Recogniser> recogniser);

  private:
    std::mutex mLock;
    std::unique_ptr<Recogniser> mKept;  // guarded by mLock
};

}  // namespace pal_engine

#endif  // PAL_ENGINE_RECOGNISER_CACHE_H
