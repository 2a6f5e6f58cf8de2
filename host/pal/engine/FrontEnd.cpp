#include "FrontEnd.h"

#include <pocketsphinx.h>
#include <sphinxbase/fe.h>
#include <unistd.h>

#include <type_traits>

namespace pal_engine {

static_assert(std::is_same<mfcc_t, float>::value, "sphinxbase built with floating-point cepstra");

std::unique_ptr<FrontEnd> FrontEnd::forModel(const std::string& acousticModel) {
    // The recogniser's own defaults, then the model's feature parameters, as ps_init reads them.
    cmd_ln_t* config = cmd_ln_init(nullptr, ps_args(), TRUE, "-remove_silence", "no", nullptr);
    if (config == nullptr) {
        return nullptr;
    }
    const std::string params = acousticModel + "/feat.params";
    if (access(params.c_str(), R_OK) != 0) {
        cmd_ln_free_r(config);
        return nullptr;
    }
    if (cmd_ln_parse_file_r(config, ps_args(), params.c_str(), FALSE) == nullptr) {
        return nullptr;  // a failed parse frees what it was given
    }
    return create(config);
}

std::unique_ptr<FrontEnd> FrontEnd::forSpeakers() {
    return create(cmd_ln_init(nullptr, ps_args(), TRUE, "-remove_silence", "no", "-nfilt", "40",
                              "-ncep", "30", "-lifter", "0", "-lowerf", "130", "-upperf", "6800",
                              nullptr));
}

std::unique_ptr<FrontEnd> FrontEnd::create(cmd_ln_t* config) {
    if (config == nullptr) {
        return nullptr;
    }
    // The front end keeps its own reference to the configuration.
    fe_t* fe = fe_init_auto_r(config);
    if (fe == nullptr) {
        return nullptr;
    }
    cmd_ln_free_r(config);
    return std::unique_ptr<FrontEnd>(new FrontEnd(fe, fe_get_output_size(fe)));
}

FrontEnd::FrontEnd(fe_t* fe, int size) : mFe(fe), mSize(size) {
    reset();
}

FrontEnd::~FrontEnd() {
    fe_free(mFe);
}

void FrontEnd::reset() {
    fe_start_stream(mFe);
    fe_start_utt(mFe);
}

void FrontEnd::process(const int16_t* samples, size_t count, std::vector<float>* frames) {
    int shift = 0;
    int length = 0;
    fe_get_input_size(mFe, &shift, &length);
    // Every frame starts at a multiple of the shift: at most this many complete here.
    const size_t capacity = count / static_cast<size_t>(shift) + 2;
    mScratch.resize(capacity * static_cast<size_t>(mSize));
    std::vector<mfcc_t*> rows(capacity);
    for (size_t i = 0; i < capacity; ++i) {
        rows[i] = mScratch.data() + i * static_cast<size_t>(mSize);
    }
    const int16* next = samples;
    size_t left = count;
    while (left > 0) {
        int32 made = static_cast<int32>(capacity);
        if (fe_process_frames(mFe, &next, &left, rows.data(), &made, nullptr) < 0 || made == 0) {
            break;
        }
        frames->insert(frames->end(), mScratch.begin(),
                       mScratch.begin() + static_cast<std::ptrdiff_t>(made) * mSize);
    }
}

void FrontEnd::finish(std::vector<float>* frames) {
    mScratch.resize(static_cast<size_t>(mSize));
    int32 made = 0;
    fe_end_utt(mFe, mScratch.data(), &made);
    if (made > 0) {
        frames->insert(frames->end(), mScratch.begin(), mScratch.end());
    }
    fe_start_utt(mFe);
}

}  // namespace pal_engine
