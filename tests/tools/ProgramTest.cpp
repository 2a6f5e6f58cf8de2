// The built voxa program run as a user runs it: its exit statuses, its messages and its output.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

namespace voxa_test {
namespace {

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::Eq;
using ::testing::HasSubstr;
using ::testing::Matcher;
using ::testing::MatchesRegex;
using ::testing::ResultOf;
using ::testing::StartsWith;

const std::string kLibriVox = "/usr/share/pocketsphinx/test/data/librivox/";
// "he was not an ill disposed young man", 2.99 s.
const std::string kShortRecording = kLibriVox + "sense_and_sensibility_01_austen_64kb-0880.wav";

struct Outcome {
    int exitCode = -1;
    std::string out;
    std::string err;
};

std::string temporaryPath(const std::string& name) {
    return ::testing::TempDir() + "voxa-program-" + std::to_string(getpid()) + "-" + name;
}

std::string takeFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    unlink(path.c_str());
    return text;
}

// Runs the program with the command-line arguments `args` and collects what it writes. `input`
// goes to its standard input through a pipe in odd-sized pieces, each after a pause, so that the
// program's reads split frames.
Outcome runProgram(const std::string& args, const std::string& input = "") {
    const std::string out = temporaryPath("out");
    const std::string err = temporaryPath("err");
    FILE* program = popen((VOXA_PROGRAM " " + args + " >" + out + " 2>" + err).c_str(), "w");
    for (size_t at = 0; at < input.size(); at += 4099) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        fwrite(input.data() + at, 1, std::min<size_t>(4099, input.size() - at), program);
        fflush(program);
    }
    const int status = pclose(program);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, takeFile(out), takeFile(err)};
}

TEST(VoxaProgramTest, EachRunExitsWithItsStatusAndWritesItsMessageOrOutput) {
    const std::string directory = ::testing::TempDir();
    const std::string text = temporaryPath("notes.wav");
    std::ofstream(text) << "not a sound\n";
    const std::string recording = " " + kShortRecording;
    const std::string json =
            "{\"file\":\"" + kShortRecording + "\",\"handle\":0,\"callback\":\"onAsrEvent\",";
    auto lastLine = [](const std::string& out) {
        return out.substr(out.rfind('\n', out.size() - 2) + 1);
    };
    struct Case {
        int exitCode;
        std::string args;
        std::string message;  // a failure's: the whole of standard error after "voxa: "
        Matcher<std::string> out = Eq("");
    };
    const Case cases[] = {
            {1, "transcribe /nonexistent.wav",
             "cannot open /nonexistent.wav: No such file or directory"},
            {1, "transcribe " + directory, "cannot read " + directory + ": it is a directory"},
            {1, "transcribe " + text, text + ": unsupported audio (Format not recognised.)"},
            {1, "transcribe --lang fr-FR" + recording,
             "the recognition engine does not support the language fr-FR "
             "(OPERATION_NOT_SUPPORTED)"},
            {1, "transcribe --translate=de-DE --diarize" + recording,
             "the recognition engine does not support translation to de-DE or speaker diarization "
             "(OPERATION_NOT_SUPPORTED)"},
            {1, "transcribe --lang xx-XX" + recording,
             "the service knows no language xx-XX (INVALID); voxa languages lists them"},
            {1, "transcribe --silence-ms 60001" + recording,
             "the service refused the configuration (INVALID): check --silence-ms (0 to 60000), "
             "--threshold (0 to 100) and --timeout-ms"},
            {1, "transcribe --model /nonexistent.voxamodel",
             "cannot open the model image /nonexistent.voxamodel: No such file or directory"},
            {1, "transcribe --library /nonexistent.so",
             "cannot load the service library: /nonexistent.so: cannot open shared object file: "
             "No such file or directory"},
            {2, "transcribe --mode fast",
             "unknown mode 'fast' (partial-command, partial-continuous, buffered-event or "
             "buffering)"},
            {2, "transcribe --threshold", "option --threshold needs a value"},
            {2, "transcribe --timestamps=yes", "option --timestamps takes no value"},
            {2, "transcribe --format srt" + recording + recording,
             "subtitles (--format srt or vtt) are made from one FILE at a time"},
            {2, "listen", "unknown command 'listen' (see voxa --help)"},
            {0, "--version", "", Eq("voxa 3.0.0 (vendor.orbo.hardware.voxa.IVoxa version 3)\n")},
            {0, "transcribe --help", "", StartsWith("usage: voxa [OPTIONS] COMMAND [FILE...]\n")},
            {0, "languages", "",
             MatchesRegex("english : en-US\n([a-z ()]+ : [a-zA-Z-]+\n){98}cantonese : yue-CH\n")},
            // Off a terminal there is no progress bar.
            {0, "transcribe --timestamps" + recording, "",
             MatchesRegex(
                     "\\[00:00\\.[0-9]{3} --> 00:02\\.[0-9]{3}\\] he was not [a-z ]+ young man\n"
                     "    he 0\\.[0-9]{2}-0\\.[0-9]{2}  was [0-9.-]+  not .+ man "
                     "[0-9.]+-2\\.[0-9]{2}\n")},
            // Every field of each event, the first partial result in full.
            {0, "transcribe --format json --mode partial-command" + recording, "",
             AllOf(StartsWith(
                           json +
                           "\"status\":0,\"events\":[{\"flag\":false,\"value\":0,\"text\":"
                           "\"he\",\"aux_text\":\"{\\\"final\\\":false,\\\"text\\\":\\\"he\\\"}\","
                           "\"data\":[]}],\"timestamp_events\":null}\n"),
                   ResultOf(lastLine, AllOf(StartsWith(json),
                                            HasSubstr("\"events\":[{\"flag\":true,\"value\":"),
                                            HasSubstr("\\\"reason\\\":\\\"end_of_audio\\\""))))},
            {0, "transcribe --format=srt" + recording, "",
             MatchesRegex("1\n00:00:00,[0-9]{3} --> 00:00:02,[0-9]{3}\nhe was not [a-z ]+ young "
                          "man\n\n")},
            {0, "transcribe --format=vtt" + recording, "",
             MatchesRegex("WEBVTT\n\n00:00:00\\.[0-9]{3} --> 00:00:02\\.[0-9]{3}\nhe was not "
                          "[a-z ]+ young man\n\n")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        Outcome run = runProgram(c.args);
        EXPECT_EQ(c.exitCode, run.exitCode);
        EXPECT_EQ(c.exitCode == 0 ? "" : "voxa: " + c.message + "\n", run.err)
                << "the service's log stays hidden";
        EXPECT_THAT(run.out, c.out);
    }
    unlink(text.c_str());

    Outcome verbose = runProgram("transcribe --verbose --lang fr-FR" + recording);
    EXPECT_EQ(1, verbose.exitCode);
    EXPECT_THAT(verbose.err, ContainsRegex("Voxa E .*startListening: Failed to start"));
}

TEST(VoxaProgramTest, RecognisesSynthesisedSpeechFromTheDeviceFormatOnStandardInput) {
    const std::string wav = temporaryPath("speech.wav");
    const std::string speak = "espeak-ng -v en-us+klatt -s 120 -w " + wav +
                              " 'this is a test of the speech recognition system'";
    ASSERT_EQ(0, std::system(speak.c_str())) << "espeak-ng (Debian package espeak-ng) runs";
    SF_INFO info = {};
    SNDFILE* file = sf_open(wav.c_str(), SFM_READ, &info);
    ASSERT_TRUE(file != nullptr && info.channels == 1);
    std::vector<float> speech(static_cast<size_t>(info.frames) + 1);
    sf_readf_float(file, speech.data(), info.frames);
    sf_close(file);
    unlink(wav.c_str());
    // Raw PCM in the device format: signed 16-bit little-endian, 48 kHz, the speech on both
    // channels, resampled by linear interpolation.
    std::string pcm;
    for (size_t i = 0; i < static_cast<size_t>(info.frames) * 48000 / info.samplerate; ++i) {
        const double at = static_cast<double>(i) * info.samplerate / 48000;
        const size_t before = static_cast<size_t>(at);
        const double value = speech[before] + (at - before) * (speech[before + 1] - speech[before]);
        const int16_t sample = static_cast<int16_t>(std::lround(value * 32767));
        const int16_t frame[] = {sample, sample};
        pcm.append(reinterpret_cast<const char*>(frame), sizeof(frame));
    }

    Outcome run = runProgram("transcribe -", pcm);
    EXPECT_EQ(0, run.exitCode) << run.err;
    // Buffering decodes the utterance again whole, which hears "speech" as "us the" here.
    EXPECT_THAT(run.out, MatchesRegex("this is a test of .* system\n"));
}

}  // namespace
}  // namespace voxa_test
