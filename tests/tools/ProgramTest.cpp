// The built voxa program run as a user runs it: its exit statuses, its messages and its output.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sndfile.h>
#include <soxr.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace voxa_test {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

const std::string kLibriVox = "/usr/share/pocketsphinx/test/data/librivox/";
// "he was not an ill disposed young man", 2.99 s.
const std::string kShortRecording = kLibriVox + "sense_and_sensibility_01_austen_64kb-0880.wav";

struct Outcome {
    int exitCode = -1;
    std::string out;
    std::string err;
};

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::string temporaryPath(const std::string& name) {
    return ::testing::TempDir() + "voxa-program-" + std::to_string(getpid()) + "-" + name;
}

// Runs the program with `args`, standard input from `input`, and collects what it writes.
Outcome runProgram(const std::vector<std::string>& args, const std::string& input = "/dev/null") {
    const std::string out = temporaryPath("out");
    const std::string err = temporaryPath("err");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, input.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    std::vector<std::string> command = {VOXA_PROGRAM};
    command.insert(command.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& arg : command) argv.push_back(arg.data());
    argv.push_back(nullptr);

    Outcome run;
    pid_t pid = -1;
    int status = 0;
    if (posix_spawn(&pid, VOXA_PROGRAM, &actions, nullptr, argv.data(), environ) == 0 &&
        waitpid(pid, &status, 0) == pid && WIFEXITED(status)) {
        run.exitCode = WEXITSTATUS(status);
    }
    posix_spawn_file_actions_destroy(&actions);
    run.out = readFile(out);
    run.err = readFile(err);
    unlink(out.c_str());
    unlink(err.c_str());
    return run;
}

// Converts a sound file to raw PCM in the device format: signed 16-bit little-endian, 48 kHz,
// the mono signal on both channels. Returns false when the file cannot be read.
bool writeDeviceFormat(const std::string& from, const std::string& to) {
    SF_INFO info = {};
    SNDFILE* file = sf_open(from.c_str(), SFM_READ, &info);
    if (file == nullptr || info.channels != 1) return false;
    std::vector<float> mono(static_cast<size_t>(info.frames));
    sf_readf_float(file, mono.data(), info.frames);
    sf_close(file);
    std::vector<float> resampled(mono.size() * 48000 / static_cast<size_t>(info.samplerate) + 64);
    size_t produced = 0;
    if (soxr_oneshot(info.samplerate, 48000, 1, mono.data(), mono.size(), nullptr, resampled.data(),
                     resampled.size(), &produced, nullptr, nullptr, nullptr) != nullptr) {
        return false;
    }
    std::ofstream pcm(to, std::ios::binary);
    for (size_t i = 0; i < produced; ++i) {
        float clamped = std::fmax(-1.0f, std::fmin(1.0f, resampled[i]));
        int16_t sample = static_cast<int16_t>(std::lround(clamped * 32767.0f));
        const char bytes[] = {static_cast<char>(sample & 0xff), static_cast<char>(sample >> 8)};
        pcm.write(bytes, 2).write(bytes, 2);
    }
    return static_cast<bool>(pcm);
}

TEST(VoxaProgramTest, EachErrorExitsNonZeroWithItsMessageAndNothingElse) {
    const std::string directory = ::testing::TempDir();
    const std::string text = temporaryPath("notes.wav");
    std::ofstream(text) << "not a sound\n";
    struct Case {
        std::vector<std::string> args;
        int exitCode;
        std::string message;
    };
    const Case cases[] = {
            {{"transcribe", "/nonexistent.wav"},
             1,
             "cannot open /nonexistent.wav: No such file or directory"},
            {{"transcribe", directory}, 1, "cannot read " + directory + ": it is a directory"},
            {{"transcribe", text}, 1, text + ": unsupported audio (Format not recognised.)"},
            {{"transcribe", "--lang", "fr-FR", kShortRecording},
             1,
             "the recognition engine does not support the language fr-FR "
             "(OPERATION_NOT_SUPPORTED)"},
            {{"transcribe", "--translate=de-DE", "--diarize", kShortRecording},
             1,
             "the recognition engine does not support translation to de-DE or speaker "
             "diarization (OPERATION_NOT_SUPPORTED)"},
            {{"transcribe", "--lang", "xx-XX", kShortRecording},
             1,
             "the service knows no language xx-XX (INVALID); voxa languages lists them"},
            {{"transcribe", "--silence-ms", "60001", kShortRecording},
             1,
             "the service refused the configuration (INVALID): check --silence-ms (0 to 60000), "
             "--threshold (0 to 100) and --timeout-ms"},
            {{"transcribe", "--model", "/nonexistent.voxamodel"},
             1,
             "cannot open the model image /nonexistent.voxamodel: No such file or directory"},
            {{"transcribe", "--library", "/nonexistent.so"},
             1,
             "cannot load the service library: /nonexistent.so: cannot open shared object file: "
             "No such file or directory"},
            {{"transcribe", "--mode", "fast"},
             2,
             "unknown mode 'fast' (partial-command, partial-continuous, buffered-event or "
             "buffering)"},
            {{"transcribe", "--threshold"}, 2, "option --threshold needs a value"},
            {{"transcribe", "--timestamps=yes"}, 2, "option --timestamps takes no value"},
            {{"transcribe", "--format", "srt", kShortRecording, kShortRecording},
             2,
             "subtitles (--format srt or vtt) are made from one FILE at a time"},
            {{"listen"}, 2, "unknown command 'listen' (see voxa --help)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.args));
        Outcome run = runProgram(c.args);
        EXPECT_EQ(c.exitCode, run.exitCode);
        EXPECT_EQ("voxa: " + c.message + "\n", run.err) << "the service's log stays hidden";
        EXPECT_EQ("", run.out);
    }
    unlink(text.c_str());

    Outcome verbose = runProgram({"transcribe", "--verbose", "--lang", "fr-FR", kShortRecording});
    EXPECT_EQ(1, verbose.exitCode);
    EXPECT_THAT(verbose.err, ContainsRegex("Voxa E .*startListening: Failed to start"));
}

TEST(VoxaProgramTest, WritesTextJsonAndSubtitles) {
    Outcome text = runProgram({"transcribe", "--timestamps", kShortRecording});
    EXPECT_EQ(0, text.exitCode);
    EXPECT_EQ("", text.err) << "no progress bar off a terminal, no log";
    EXPECT_THAT(text.out, MatchesRegex("\\[00:00\\.[0-9]{3} --> 00:02\\.[0-9]{3}\\] he was not "
                                       "[a-z ]+ young man\n    he 0\\.[0-9]{2}-0\\.[0-9]{2}  "
                                       "was [0-9.-]+  not .+ man [0-9.]+-2\\.[0-9]{2}\n"));

    Outcome json = runProgram(
            {"transcribe", "--format", "json", "--mode", "partial-command", kShortRecording});
    EXPECT_EQ(0, json.exitCode);
    std::istringstream lines(json.out);
    std::vector<std::string> events;
    for (std::string line; std::getline(lines, line);) events.push_back(line);
    ASSERT_GE(events.size(), 2u);
    const std::string head = "{\"file\":\"" + kShortRecording + "\",\"handle\":";
    // The first partial result, every field of the record.
    EXPECT_EQ(head + "0,\"callback\":\"onAsrEvent\",\"status\":0,\"events\":[{\"flag\":false,"
                     "\"value\":0,\"text\":\"he\",\"aux_text\":\"{\\\"final\\\":false,"
                     "\\\"text\\\":\\\"he\\\"}\",\"data\":[]}],\"timestamp_events\":null}",
              events.front());
    EXPECT_THAT(events.back(), StartsWith(head));
    EXPECT_THAT(events.back(), HasSubstr("\"events\":[{\"flag\":true,\"value\":"));
    EXPECT_THAT(events.back(), HasSubstr("\\\"reason\\\":\\\"end_of_audio\\\""));

    Outcome srt = runProgram({"transcribe", "--format=srt", kShortRecording});
    EXPECT_EQ(0, srt.exitCode);
    EXPECT_THAT(srt.out, MatchesRegex("1\n00:00:00,[0-9]{3} --> 00:00:02,[0-9]{3}\nhe was not "
                                      "[a-z ]+ young man\n\n"));
    Outcome vtt = runProgram({"transcribe", "--format=vtt", kShortRecording});
    EXPECT_EQ(0, vtt.exitCode);
    EXPECT_THAT(vtt.out, MatchesRegex("WEBVTT\n\n00:00:00\\.[0-9]{3} --> 00:00:02\\.[0-9]{3}\n"
                                      "he was not [a-z ]+ young man\n\n"));
}

TEST(VoxaProgramTest, ListsTheServiceLanguagesAndDescribesItself) {
    Outcome languages = runProgram({"languages"});
    EXPECT_EQ(0, languages.exitCode);
    std::istringstream lines(languages.out);
    std::vector<std::string> rows;
    for (std::string line; std::getline(lines, line);) {
        EXPECT_THAT(line, MatchesRegex("[a-z ()]+ : [a-zA-Z-]+"));
        rows.push_back(line);
    }
    ASSERT_EQ(100u, rows.size());
    EXPECT_EQ("english : en-US", rows[0]);

    Outcome version = runProgram({"--version"});
    EXPECT_EQ(0, version.exitCode);
    EXPECT_EQ("voxa 3.0.0 (vendor.orbo.hardware.voxa.IVoxa version 3)\n", version.out);
    Outcome help = runProgram({"transcribe", "--help"});
    EXPECT_EQ(0, help.exitCode);
    EXPECT_THAT(help.out, StartsWith("usage: voxa [OPTIONS] COMMAND [FILE...]\n"));
}

TEST(VoxaProgramTest, RecognisesSynthesisedSpeechFromTheDeviceFormatOnStandardInput) {
    const std::string wav = temporaryPath("speech.wav");
    const std::string pcm = temporaryPath("speech.pcm");
    const std::string speak = "espeak-ng -v en-us+klatt -s 120 -w " + wav +
                              " 'this is a test of the speech recognition system'";
    ASSERT_EQ(0, std::system(speak.c_str())) << "espeak-ng (Debian package espeak-ng) runs";
    ASSERT_TRUE(writeDeviceFormat(wav, pcm));

    Outcome run = runProgram({"transcribe", "-"}, pcm);
    unlink(wav.c_str());
    unlink(pcm.c_str());
    EXPECT_EQ(0, run.exitCode) << run.err;
    EXPECT_THAT(run.out, MatchesRegex("this is a test .*speech recognition system\n"));
}

}  // namespace
}  // namespace voxa_test
