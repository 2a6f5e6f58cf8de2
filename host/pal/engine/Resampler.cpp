#include "Resampler.h"

#include <soxr.h>

#include <algorithm>
#include <cerrno>
#include <cmath>

#include "Recogniser.h"

namespace pal_engine {

namespace {

constexpr int kMinRate = 8000;
constexpr int kMaxRate = 384000;
constexpr int kMaxChannels = 8;

int16_t quantise(float sample) {
    return static_cast<int16_t>(std::lround(std::clamp(sample, -1.0f, 1.0f) * 32767.0f));
}

}  // namespace

int32_t Resampler::create(int rate, int channels, std::unique_ptr<Resampler>* resampler) {
    if (rate < kMinRate || rate > kMaxRate || channels < 1 || channels > kMaxChannels) {
        return PAL_STATUS_INVALID;
    }
    soxr_error_t error = nullptr;
    soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    soxr_t soxr = soxr_create(rate, kRecogniserRate, 1, &error, nullptr, &quality, nullptr);
    if (error != nullptr) {
        return PAL_STATUS_INVALID;
    }
    resampler->reset(new Resampler(soxr, rate, channels));
    return 0;
}

Resampler::Resampler(soxr* resampler, int rate, int channels)
    : mResampler(resampler), mRate(rate), mChannels(channels) {}

Resampler::~Resampler() {
    soxr_delete(mResampler);
}

void Resampler::convert(const float* samples, size_t frames, std::vector<int16_t>* out) {
    mMono.resize(frames);
    for (size_t i = 0; i < frames; ++i) {
        float sum = 0;
        for (int c = 0; c < mChannels; ++c) {
            sum += samples[i * mChannels + c];
        }
        mMono[i] = sum / static_cast<float>(mChannels);
    }
    drain(mMono.data(), frames, out);
}

void Resampler::flush(std::vector<int16_t>* out) {
    drain(nullptr, 0, out);
}

void Resampler::drain(const float* mono, size_t frames, std::vector<int16_t>* out) {
    // Room for the whole input's worth of output plus the filter's tail, in a few passes.
    size_t room = frames * kRecogniserRate / mRate + 1024;
    mOutput.resize(room);
    size_t consumed = 0;
    for (;;) {
        size_t used = 0;
        size_t produced = 0;
        const float* in = mono == nullptr ? nullptr : mono + consumed;
        soxr_process(mResampler, in, frames - consumed, &used, mOutput.data(), room, &produced);
        consumed += used;
        for (size_t i = 0; i < produced; ++i) {
            out->push_back(quantise(mOutput[i]));
        }
        // Input fully taken and nothing more ready (or, when flushing, the tail drained).
        if (produced == 0 && consumed == frames) {
            break;
        }
    }
}

}  // namespace pal_engine
