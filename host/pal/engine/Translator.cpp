#include "Translator.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <vector>

namespace pal_engine {

namespace {

constexpr char kModes[] = "/usr/share/apertium/modes/";

struct Pair {
    int32_t languageId;  // in the configuration's language table
    const char* code;
    const char* mode;  // Apertium's name of the English-to-target direction
};

constexpr Pair kPairs[] = {
        {3, "es-ES", "eng-spa"},
        {11, "ca-ES", "eng-cat"},
        {60, "gl-ES", "en-gl"},
};

const Pair* findPair(int32_t languageId) {
    for (const Pair& pair : kPairs) {
        if (pair.languageId == languageId) {
            return &pair;
        }
    }
    return nullptr;
}

std::string trim(const std::string& text) {
    const char* blanks = " \t\r\n";
    size_t first = text.find_first_not_of(blanks);
    return first == std::string::npos
                   ? ""
                   : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// Whether one of the single-letter options before the first quoted argument is `letter`.
bool hasOption(const std::string& arguments, char letter) {
    std::istringstream words(arguments.substr(0, arguments.find('\'')));
    for (std::string word; words >> word;) {
        if (word.size() > 1 && word[0] == '-' && word[1] != '-' &&
            word.find(letter) != std::string::npos) {
            return true;
        }
    }
    return false;
}

// The shell command that runs the stages of an Apertium mode file so that each stage flushes at
// every NUL: "-z" after each program, its output unbuffered, unknown words left unmarked.
// Returns "" when some stage cannot work that way.
std::string nullFlushingPipeline(const std::string& mode) {
    std::vector<std::string> stages;
    std::istringstream parts(mode);
    for (std::string stage; std::getline(parts, stage, '|');) {
        stage = trim(stage);
        if (stage.empty()) {
            return "";
        }
        size_t nameEnd = stage.find(' ');
        const std::string program = stage.substr(0, nameEnd);
        std::string arguments = nameEnd == std::string::npos ? "" : stage.substr(nameEnd);
        // The mode's "$1" chooses how the generator marks unknown words, "$2" a tagger option.
        for (const auto& [from, to] :
             {std::pair<std::string, std::string>{"$1", "-n"}, {"$2", ""}}) {
            for (size_t at = arguments.find(from); at != std::string::npos;
                 at = arguments.find(from)) {
                arguments.replace(at, from.size(), to);
            }
        }
        // The perceptron tagger (-x) answers only at the end of its input. When a constraint
        // grammar precedes it, that grammar's first reading stands in for the tagger's choice.
        if (program == "apertium-tagger" && hasOption(arguments, 'x')) {
            if (stages.empty() || stages.back().find("cg-proc ") == std::string::npos) {
                return "";
            }
            stages.back() += " -1 -n";
            continue;
        }
        stages.push_back("stdbuf -o0 " + program + " -z" + arguments);
    }
    std::string pipeline;
    for (const std::string& stage : stages) {
        pipeline += (pipeline.empty() ? "" : " | ") + stage;
    }
    return pipeline;
}

// Apertium's stream format gives these characters a meaning of their own.
std::string escape(const std::string& text) {
    std::string escaped;
    for (char c : text) {
        if (std::strchr("[]{}^$/\\<>@*#+~", c) != nullptr) {
            escaped += '\\';
        }
        escaped += c;
    }
    return escaped;
}

// The text of an answer: escapes undone, blanks collapsed (a word the pair drops leaves its
// blanks behind), none at either end.
std::string plainText(const std::string& answer) {
    std::string plain;
    bool blank = false;
    for (size_t i = 0; i < answer.size(); ++i) {
        if (answer[i] == ' ' || answer[i] == '\t' || answer[i] == '\n') {
            blank = !plain.empty();
            continue;
        }
        if (answer[i] == '\\' && i + 1 < answer.size()) {
            ++i;
        }
        if (blank) {
            plain += ' ';
            blank = false;
        }
        plain += answer[i];
    }
    return plain;
}

int remainingMs(std::chrono::steady_clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
    return left.count() < 0 ? 0 : static_cast<int>(left.count());
}

}  // namespace

const char* Translator::target(int32_t languageId) {
    const Pair* pair = findPair(languageId);
    if (pair == nullptr) {
        return nullptr;
    }
    const std::string path = std::string(kModes) + pair->mode + ".mode";
    return access(path.c_str(), R_OK) == 0 ? pair->code : nullptr;
}

std::unique_ptr<Translator> Translator::create(int32_t languageId) {
    const Pair* pair = findPair(languageId);
    if (pair == nullptr) {
        return nullptr;
    }
    std::ifstream file(std::string(kModes) + pair->mode + ".mode");
    const std::string mode((std::istreambuf_iterator<char>(file)),
                           std::istreambuf_iterator<char>());
    const std::string pipeline = nullFlushingPipeline(trim(mode));
    if (pipeline.empty()) {
        return nullptr;
    }
    int wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeFd < 0) {
        return nullptr;
    }
    return std::unique_ptr<Translator>(new Translator(languageId, pair->code, pipeline, wakeFd));
}

Translator::Translator(int32_t languageId, const char* code, std::string pipeline, int wakeFd)
    : mLanguageId(languageId), mCode(code), mPipeline(std::move(pipeline)), mWakeFd(wakeFd) {}

Translator::~Translator() {
    end();
    close(mWakeFd);
}

int32_t Translator::start() {
    uint64_t count = 0;
    while (read(mWakeFd, &count, sizeof(count)) > 0) {
    }
    return spawn();
}

int32_t Translator::spawn() {
    if (mProcess > 0) {
        return 0;
    }
    int input[2];
    int output[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, input) != 0) {
        return PAL_STATUS_IO;
    }
    if (pipe2(output, O_CLOEXEC) != 0) {
        close(input[0]);
        close(input[1]);
        return PAL_STATUS_IO;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[1], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    // Its own process group, so that one signal ends every stage; default signal handling and
    // no blocked signal, whatever the host process set for itself.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(
            &attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    std::string shell = "/bin/sh";
    std::string option = "-c";
    std::string command = mPipeline;
    char* argv[] = {shell.data(), option.data(), command.data(), nullptr};
    // The stages need nothing from the host's environment but a path and a UTF-8 locale.
    std::string path = "PATH=/usr/bin:/bin";
    std::string locale = "LC_ALL=C.UTF-8";
    char* environment[] = {path.data(), locale.data(), nullptr};
    pid_t process = -1;
    int status = posix_spawn(&process, shell.c_str(), &actions, &attributes, argv, environment);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    close(input[1]);
    close(output[1]);
    if (status != 0) {
        close(input[0]);
        close(output[0]);
        return PAL_STATUS_IO;
    }
    mProcess = process;
    mInput = input[0];
    mOutput = output[0];
    mPending.clear();
    return 0;
}

int32_t Translator::translate(const std::string& text, std::string* translation,
                              std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    if (spawn() != 0) {
        return PAL_STATUS_IO;
    }
    std::string message = escape(text);
    message += '\0';
    for (size_t sent = 0; sent < message.size();) {
        ssize_t n = send(mInput, message.data() + sent, message.size() - sent, MSG_NOSIGNAL);
        if (n < 0 && errno != EINTR) {
            end();
            return PAL_STATUS_IO;
        }
        sent += n > 0 ? static_cast<size_t>(n) : 0;
    }
    for (;;) {
        size_t nul = mPending.find('\0');
        if (nul != std::string::npos) {
            *translation = plainText(mPending.substr(0, nul));
            mPending.erase(0, nul + 1);
            return 0;
        }
        pollfd watched[] = {{mOutput, POLLIN, 0}, {mWakeFd, POLLIN, 0}};
        int ready = poll(watched, 2, remainingMs(deadline));
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (watched[1].revents != 0) {
            end();
            return -EINTR;
        }
        if (ready == 0) {
            end();
            return PAL_STATUS_TIMED_OUT;
        }
        char buffer[4096];
        ssize_t n = read(mOutput, buffer, sizeof(buffer));
        if (n <= 0 && !(n < 0 && errno == EINTR)) {
            end();
            return PAL_STATUS_IO;
        }
        mPending.append(buffer, n > 0 ? static_cast<size_t>(n) : 0);
    }
}

void Translator::interrupt() {
    eventfd_write(mWakeFd, 1);
}

void Translator::end() {
    if (mProcess > 0) {
        kill(-mProcess, SIGKILL);
        while (waitpid(mProcess, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
    if (mInput >= 0) {
        close(mInput);
    }
    if (mOutput >= 0) {
        close(mOutput);
    }
    mProcess = -1;
    mInput = -1;
    mOutput = -1;
    mPending.clear();
}

}  // namespace pal_engine
