#include "Progress.h"

#include <algorithm>
#include <cstdio>
#include <string>

namespace voxa_tool {

namespace {
constexpr int kBarWidth = 30;
}

Progress::Progress(std::ostream& terminal, bool enabled) : mTerminal(terminal), mEnabled(enabled) {}

Progress::~Progress() {
    hide();
}

void Progress::reset(int64_t totalMs) {
    hide();
    mTotalMs = totalMs;
    mPositionMs = 0;
}

void Progress::update(int64_t positionMs) {
    if (!mEnabled || mTotalMs < kProgressMinMs) return;
    mPositionMs = std::clamp(positionMs, mPositionMs, mTotalMs);
    draw();
}

void Progress::hide() {
    if (!mShown) return;
    mTerminal << "\r\033[K" << std::flush;
    mShown = false;
}

void Progress::draw() {
    const int filled = static_cast<int>(mPositionMs * kBarWidth / mTotalMs);
    char numbers[64];
    snprintf(numbers, sizeof(numbers), "] %3d%%  %.1f s of %.1f s",
             static_cast<int>(mPositionMs * 100 / mTotalMs),
             static_cast<double>(mPositionMs) / 1000.0, static_cast<double>(mTotalMs) / 1000.0);
    mTerminal << "\r[" << std::string(filled, '#') << std::string(kBarWidth - filled, '.')
              << numbers << "\033[K" << std::flush;
    mShown = true;
}

}  // namespace voxa_tool
