// A one-line progress bar on a terminal: "[#####.....]  42%  3.0 s of 7.1 s", redrawn in place.
// Used by one thread at a time. Output that goes to the same terminal must be written while the
// bar is hidden.
#ifndef VOXA_TOOL_PROGRESS_H
#define VOXA_TOOL_PROGRESS_H

#include <cstdint>
#include <ostream>

namespace voxa_tool {

// Recordings shorter than this finish too quickly for a bar to be worth drawing.
constexpr int64_t kProgressMinMs = 5000;

class Progress {
  public:
    // Draws on `terminal` when `enabled`, else does nothing; `terminal` must outlive this.
    Progress(std::ostream& terminal, bool enabled);
    // Hides the bar.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Starts over for audio of `totalMs`; a total below kProgressMinMs draws nothing.
    void reset(int64_t totalMs);
    // Moves the bar to `positionMs` of the audio; it never moves back.
    void update(int64_t positionMs);
    // Erases the bar, until the next update.
    void hide();

  private:
    void draw();

    std::ostream& mTerminal;
    const bool mEnabled;
    int64_t mTotalMs = 0;
    int64_t mPositionMs = 0;
    bool mShown = false;
};

}  // namespace voxa_tool

#endif  // VOXA_TOOL_PROGRESS_H
