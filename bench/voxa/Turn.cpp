#include "Turn.h"

#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <iterator>

extern char** environ;

namespace voxa_bench {

namespace {

const Turn kVoices[] = {
        {1, "en-us+m1", 40, 160, "", "", 0},
        {2, "en-gb+f2", 75, 150, "", "", 0},
        {3, "en-us+m7", 55, 175, "", "", 0},
};

}  // namespace

bool speak(const Turn& turn, const std::string& path) {
    std::vector<std::string> args = {"espeak-ng",
                                     "-v",
                                     turn.voice,
                                     "-p",
                                     std::to_string(turn.pitch),
                                     "-s",
                                     std::to_string(turn.speed),
                                     "-w",
                                     path,
                                     turn.text};
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    pid_t pid = -1;
    int status = 0;
    return posix_spawnp(&pid, "espeak-ng", nullptr, nullptr, argv.data(), environ) == 0 &&
           waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::vector<Turn> conversation(int voices, size_t turns) {
    static const char* const kLines[] = {
            "good morning, I would like to book a table for dinner tonight",
            "of course, how many people will be joining you this evening",
            "there will be four of us, and we would prefer a quiet corner",
            "I can offer you a table by the window at half past seven",
            "that sounds lovely, could you also tell me whether you have a vegetarian menu",
            "yes, the chef prepares three vegetarian dishes every day",
            "wonderful, please put the booking under the name of Taylor",
            "we will see you at half past seven then, thank you for calling",
            "before you go, is there parking near the restaurant",
            "there is a public car park just across the street",
            "thank you very much for your help",
            "you are welcome, have a pleasant day",
    };
    static const int64_t kPausesMs[] = {250, 700, 400, 1000};
    std::vector<Turn> made;
    for (size_t t = 0; t < std::min<size_t>(turns, std::size(kLines)); ++t) {
        Turn turn = kVoices[t % static_cast<size_t>(voices)];
        turn.text = kLines[t];
        turn.pauseMs = t == 0 ? 0 : kPausesMs[t % std::size(kPausesMs)];
        made.push_back(turn);
    }
    return made;
}

}  // namespace voxa_bench
