#include "Turn.h"

#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <iterator>

extern char** environ;

namespace voxa_bench {

namespace {

const Turn kVoices[] = {
        {1, "en-us+m1", 40, 160, "", "", 0, false},
        {2, "en-gb+f2", 75, 150, "", "", 0, false},
        {3, "en-us+m7", 55, 175, "", "", 0, false},
        {4, "en-us+f4", 60, 165, "", "", 0, false},
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

std::vector<Turn> unbrokenConversation(int voices, size_t turns) {
    static const char* const kLines[] = {
            "so, are we still going hiking on saturday morning",
            "yes, I checked the weather this morning, it should stay dry and sunny until the late "
            "afternoon",
            "great, which trail were you thinking of",
            "the one along the river, about twelve kilometres with a steep climb near the end",
            "I can drive, my car has room for four people and all of our bags",
            "perfect, then I will bring sandwiches and plenty of water for everyone",
            "do not forget warm jackets, it gets cold on the ridge",
            "what time should we meet at the station then",
            "let us say half past seven, so that we reach the start before the crowds arrive",
            "that is early, but fine, I will set two alarms just in case",
            "should we invite Morgan as well, she mentioned she wanted to come along",
            "good idea, I will send her a message tonight",
            "and if it rains after all, we could visit the museum in town instead",
            "agreed, let us decide on friday evening",
            "see you all at the station on saturday then",
    };
    // Who speaks each line: a voice never follows itself, and comes back in no fixed order.
    static const size_t kThree[] = {0, 1, 2, 1, 0, 2, 0, 1, 2, 0, 2, 1, 0, 1, 2};
    static const size_t kFour[] = {0, 1, 2, 3, 1, 0, 3, 2, 0, 3, 1, 2, 3, 0, 1};
    const size_t* order = voices == 4 ? kFour : kThree;
    std::vector<Turn> made;
    for (size_t t = 0; t < std::min<size_t>(turns, std::size(kLines)); ++t) {
        Turn turn = kVoices[order[t]];
        turn.text = kLines[t];
        turn.trimmed = true;
        made.push_back(turn);
    }
    return made;
}

}  // namespace voxa_bench
