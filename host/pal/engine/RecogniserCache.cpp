#include "RecogniserCache.h"

#include <cerrno>
#include <utility>

namespace pal_engine {

int32_t RecogniserCache::take(const ModelImage& image, std::unique_ptr<Recogniser>* recogniser) {
    // Taken before the files are read: a file rewritten while it loads makes the next identity
    // differ, so the model is loaded again rather than served stale.
    const std::string identity = modelIdentity(image);
    if (identity.empty()) {
        return PAL_STATUS_INVALID;
    }
    std::unique_ptr<Recogniser> other;
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mKept != nullptr && mKept->identity() == identity) {
            *recogniser = std::move(mKept);
            return 0;
        }
        // Another model is wanted: the one kept goes, before a second model is loaded beside it.
        other = std::move(mKept);
    }
    other.reset();
    return Recogniser::create(image, identity, recogniser);
}

void RecogniserCache::keep(std::unique_ptr<Recogniser> recogniser) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        std::swap(mKept, recogniser);
    }
    // The one replaced, freed outside the lock.
}

}  // namespace pal_engine
