// The built voxa program run as a user runs it: its exit statuses, its messages and its output;
// and its formatters given results that the engine does not make yet (speakers).
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sndfile.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Formatters.h"

namespace voxa_test {
namespace {

using aidl::vendor::orbo::hardware::voxa::SpeakerDiarizationEvent;
using aidl::vendor::orbo::hardware::voxa::VoxaEvent;
using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::EndsWith;
using ::testing::Eq;
using ::testing::HasSubstr;
using ::testing::Matcher;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

const std::string kLibriVox = "/usr/share/pocketsphinx/test/data/librivox/";
// "had he married a more amiable woman ...", 6.05 s.
const std::string kLongRecording = kLibriVox + "sense_and_sensibility_01_austen_64kb-0920.wav";
// "he was not an ill disposed young man", 2.99 s.
const std::string kShortRecording = kLibriVox + "sense_and_sensibility_01_austen_64kb-0880.wav";
const std::string kShortText = "he was not [a-z ]+ young man\n";
const std::string kScenarios = VOXA_SCENARIOS;

struct Ran {
    int exitCode = -1;
    std::string out;
    std::string err;
};

std::string temporaryPath(const std::string& name) {
    return ::testing::TempDir() + "voxa-program-" + std::to_string(getpid()) + "-" + name;
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string takeFile(const std::string& path) {
    std::string text = readFile(path);
    unlink(path.c_str());
    return text;
}

// Runs the program with the command-line arguments `args` and collects what it writes. `input`
// goes to its standard input through a pipe in odd-sized pieces, so that the program's reads
// split frames.
Ran runProgram(const std::string& args, const std::string& input = "") {
    const std::string out = temporaryPath("out");
    const std::string err = temporaryPath("err");
    FILE* program = popen((VOXA_PROGRAM " " + args + " >" + out + " 2>" + err).c_str(), "w");
    for (size_t at = 0; at < input.size(); at += 4099) {
        fwrite(input.data() + at, 1, std::min<size_t>(4099, input.size() - at), program);
        fflush(program);
    }
    const int status = pclose(program);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, takeFile(out), takeFile(err)};
}

// Writes `samples` (interleaved, in [-1, 1]) as a 16-bit WAV file.
void writeWav(const std::string& path, int rate, int channels, const std::vector<float>& samples) {
    SF_INFO info = {};
    info.samplerate = rate;
    info.channels = channels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(nullptr, file);
    sf_writef_float(file, samples.data(), static_cast<sf_count_t>(samples.size() / channels));
    sf_close(file);
}

// Cases that each end with one exit status and exact standard error.
TEST(VoxaProgramTest, EachRunExitsWithItsStatusMessagesAndOutput) {
    const std::string directory = ::testing::TempDir();
    const std::string text = temporaryPath("notes.wav");
    std::ofstream(text) << "not a sound\n";
    const std::string low = temporaryPath("low.wav");
    writeWav(low, 4000, 1, std::vector<float>(4000));
    const std::string silence = temporaryPath("silence.wav");
    writeWav(silence, 16000, 1, std::vector<float>(32000));
    // The long recording cut after 30000 bytes: 14978 frames of the 96800 its header declares.
    const std::string cut = temporaryPath("cut.wav");
    std::ofstream(cut) << readFile(kLongRecording).substr(0, 30000);
    const std::string recording = " " + kShortRecording;

    struct Case {
        int exitCode;
        std::string args;
        std::string err;  // the whole of standard error
        Matcher<std::string> out = Eq("");
    };
    const Case cases[] = {
            {1, "transcribe /nonexistent.wav",
             "voxa: cannot open /nonexistent.wav: No such file or directory\n"},
            {1, "transcribe " + directory,
             "voxa: cannot read " + directory + ": it is a directory\n"},
            {1, "transcribe " + text,
             "voxa: " + text + ": unsupported audio (Format not recognised.)\n"},
            {1, "transcribe " + low,
             "voxa: " + low +
                     ": the sample rate 4000 Hz is outside what the engine takes (8000 to "
                     "384000 Hz)\n"},
            // A batch goes on past an input that fails, and says so in its status.
            {1, "transcribe /nonexistent.wav" + recording,
             "voxa: cannot open /nonexistent.wav: No such file or directory\n",
             MatchesRegex("==> " + kShortRecording + " <==\n" + kShortText)},
            {1, "transcribe --lang fr-FR" + recording,
             "voxa: the recognition engine does not support the language fr-FR "
             "(OPERATION_NOT_SUPPORTED)\n"},
            // Only what the engine cannot do is named: it diarizes, but not into German.
            {1, "transcribe --translate=de-DE --diarize" + recording,
             "voxa: the recognition engine does not support translation to de-DE "
             "(OPERATION_NOT_SUPPORTED)\n"},
            {1, "transcribe --lang xx-XX" + recording,
             "voxa: the service knows no language xx-XX; voxa languages lists them\n"},
            {1, "transcribe --model /nonexistent.voxamodel",
             "voxa: cannot open the model image /nonexistent.voxamodel: No such file or "
             "directory\n"},
            {1, "transcribe --library /nonexistent.so",
             "voxa: cannot load the service library: /nonexistent.so: cannot open shared object "
             "file: No such file or directory\n"},
            {2, "transcribe --silence-ms 60001",
             "voxa: option --silence-ms takes 0 to 60000, not '60001'\n"},
            {2, "transcribe --threshold=-1", "voxa: option --threshold takes 0 to 100, not '-1'\n"},
            {2, "transcribe --timeout-ms -5",
             "voxa: option --timeout-ms takes 0 or more, not '-5'\n"},
            {2, "transcribe --raw 16000",
             "voxa: option --raw takes RATE:CHANNELS, such as "
             "16000:1, not '16000'\n"},
            {2, "transcribe --mode fast",
             "voxa: unknown mode 'fast' (partial-command, partial-continuous, buffered-event or "
             "buffering)\n"},
            {2, "transcribe --threshold", "voxa: option --threshold needs a value\n"},
            {2, "transcribe --timestamps=yes", "voxa: option --timestamps takes no value\n"},
            {2, "transcribe --format srt" + recording + recording,
             "voxa: subtitles of several inputs need --output-dir DIR\n"},
            {2, "transcribe -o x.txt" + recording + recording,
             "voxa: -o FILE takes one input; --output-dir DIR writes one file per input\n"},
            {2, "transcribe --output-dir " + directory + recording + recording,
             "voxa: two inputs would write " + directory + "/sense_and_sensibility_01_austen_" +
                     "64kb-0880.txt\n"},
            {2, "listen", "voxa: unknown command 'listen' (see voxa --help)\n"},
            {2, "replay", "voxa: replay takes one SCENARIO\n"},
            // Each shipped scenario, played by the scripted engine to the same client.
            {0, "replay " + kScenarios + "dictation.jsonl", "", Eq("send a message to anna\n")},
            {0, "replay " + kScenarios + "timestamps.jsonl", "", Eq("call me at noon\n")},
            {0, "replay " + kScenarios + "two-speakers.jsonl", "",
             Eq("good morning\nmorning how did you sleep\n")},
            {1, "replay " + kScenarios + "contention.jsonl",
             "voxa: startListening failed (RESOURCE_CONTENTION)\n"},
            {1, "replay " + kScenarios + "engine-error.jsonl",
             "voxa: stopListening failed (FAILURE)\n"},
            {1, "replay " + kScenarios + "unsupported-language.jsonl",
             "voxa: the recognition engine does not support this configuration "
             "(OPERATION_NOT_SUPPORTED)\n"},
            {0, "dump", "",
             Eq("vendor.orbo.hardware.voxa.IVoxa/default, interface version 3\nhandles issued: 0, "
                "next 0\nglobal callback: none, holder not watched\n"
                "resources-available notifications: 0\nsessions: 0\n")},
            {0, "--version", "", Eq("voxa 3.0.0 (vendor.orbo.hardware.voxa.IVoxa version 3)\n")},
            {0, "transcribe --help", "", StartsWith("usage: voxa [OPTIONS] COMMAND [FILE...]\n")},
            {0, "languages", "",
             MatchesRegex("english : en-US \\(recognised\\)\n([a-z ()]+ : [a-zA-Z-]+"
                          "( \\(translation target\\))?\n){98}cantonese : yue-CH\n")},
            {0, "transcribe " + silence, "voxa: " + silence + ": no speech found\n"},
            {0, "transcribe " + cut, "voxa: " + cut + ": ends at 0.94 s of 6.05 s\n",
             MatchesRegex("[a-z ]+\n")},
            // Off a terminal there is no progress bar. Language codes match in any case.
            {0, "transcribe --timestamps --lang en-us" + recording, "",
             MatchesRegex("\\[00:00\\.[0-9]{3} --> 00:02\\.[0-9]{3}\\] " + kShortText +
                          "    he 0\\.[0-9]{2}-0\\.[0-9]{2}  was [0-9.-]+  not .+ man "
                          "[0-9.]+-2\\.[0-9]{2}\n")},
            // One shape for every event: the first partial in full, the final with its times
            // and the engine's JSON embedded.
            {0, "transcribe --format json --mode partial-command" + recording, "",
             AllOf(StartsWith("{\"file\":\"" + kShortRecording +
                              "\",\"handle\":0,\"callback\":\"onAsrEvent\",\"status\":0,"
                              "\"results\":[{\"final\":false,\"confidence\":0,\"text\":\"he\","
                              "\"start_ms\":null,\"end_ms\":null,\"words\":[],\"speaker\":null,"
                              "\"aux_text\":{\"final\":false,\"text\":\"he\"},\"data\":[]}]}\n"),
                   ContainsRegex("\"results\":\\[\\{\"final\":true,\"confidence\":[0-9]+,"
                                 "\"text\":\"he was not [a-z ]+ young man\",\"start_ms\":[0-9]+,"
                                 "\"end_ms\":[0-9]+,\"words\":\\[\\{\"word\":\"he\",\"start_ms\":"
                                 "[0-9]+,\"end_ms\":[0-9]+,\"confidence\":[0-9]+\\},.*\\],"
                                 "\"speaker\":null,\"aux_text\":\\{\"final\":true,.*\"reason\":"
                                 "\"end_of_audio\".*\\},\"data\":\\[\\]\\}\\]\\}\n$"))},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        Ran run = runProgram(c.args);
        EXPECT_EQ(c.exitCode, run.exitCode);
        EXPECT_EQ(c.err, run.err) << "the service's log stays hidden";
        EXPECT_THAT(run.out, c.out);
    }
    for (const std::string& path : {text, low, silence, cut}) unlink(path.c_str());

    // The service's state while the session still listens, its input heard.
    Ran dumped = runProgram("replay --dump " + kScenarios + "two-speakers.jsonl");
    EXPECT_THAT(dumped.err, HasSubstr("sessions: 1\n  handle 0: listening, stream 0x"));
    EXPECT_THAT(dumped.err, HasSubstr("events delivered: plain 2, time-stamped 0, diarization 2"));

    Ran verbose = runProgram("transcribe --verbose --lang fr-FR" + recording);
    EXPECT_EQ(1, verbose.exitCode);
    EXPECT_THAT(verbose.err, ContainsRegex("Voxa E .*startListening: Failed to start"));
}

// A sound file on standard input is read by its header; raw PCM by --raw, or in the device
// format with a note when there is no header.
TEST(VoxaProgramTest, ReadsStandardInputByItsHeaderElseAsRawPcm) {
    const std::string wav = temporaryPath("speech.wav");
    const std::string speak = "espeak-ng -v en-us+klatt -s 120 -w " + wav +
                              " 'this is a test of the speech recognition system'";
    ASSERT_EQ(0, std::system(speak.c_str())) << "espeak-ng (Debian package espeak-ng) runs";
    const std::string file = readFile(wav);
    SF_INFO info = {};
    SNDFILE* sound = sf_open(wav.c_str(), SFM_READ, &info);
    ASSERT_TRUE(sound != nullptr && info.channels == 1);
    std::vector<int16_t> speech(static_cast<size_t>(info.frames) + 1);
    sf_readf_short(sound, speech.data(), info.frames);
    sf_close(sound);
    unlink(wav.c_str());
    const std::string mono(reinterpret_cast<const char*>(speech.data()), 2 * info.frames);
    // The speech resampled by linear interpolation to the device format, on both channels.
    std::string device;
    for (size_t i = 0; i < static_cast<size_t>(info.frames) * 48000 / info.samplerate; ++i) {
        const double at = static_cast<double>(i) * info.samplerate / 48000;
        const auto before = static_cast<size_t>(at);
        const auto value = static_cast<int16_t>(std::lround(
                speech[before] + (at - before) * (speech[before + 1] - speech[before])));
        const int16_t frame[] = {value, value};
        device.append(reinterpret_cast<const char*>(frame), sizeof(frame));
    }
    // Enough of the sentence to tell speech from noise read with the wrong format.
    const std::string words = "this is a test .* system\n";
    const std::string noHeader =
            "voxa: standard input: no sound file header; reading raw PCM in the device format, "
            "48000:2 (signed 16-bit little-endian; --raw RATE:CHANNELS sets another)\n";
    struct Case {
        std::string args;
        std::string input;
        std::string err;
        std::string out;
    };
    const Case cases[] = {
            {"transcribe -", file, "", words},
            {"transcribe -", device, noHeader, words},
            {"transcribe --raw " + std::to_string(info.samplerate) + ":1 -", mono, "", words},
            {"transcribe -", "", "voxa: standard input: no speech found\n", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args + " " + std::to_string(c.input.size()) + " bytes");
        Ran run = runProgram(c.args, c.input);
        EXPECT_EQ(0, run.exitCode);
        EXPECT_EQ(c.err, run.err);
        EXPECT_THAT(run.out, MatchesRegex(c.out));
    }
}

TEST(VoxaProgramTest, WritesEachInputToAFileOfItsOwn) {
    const std::string directory = temporaryPath("subtitles");
    ASSERT_EQ(0, mkdir(directory.c_str(), 0700));
    Ran run = runProgram("transcribe --format srt --output-dir " + directory + " " +
                         kShortRecording + " /nonexistent.wav " + kLongRecording);
    EXPECT_EQ(1, run.exitCode);
    EXPECT_EQ("voxa: cannot open /nonexistent.wav: No such file or directory\n", run.err);
    EXPECT_EQ("", run.out);
    EXPECT_THAT(takeFile(directory + "/sense_and_sensibility_01_austen_64kb-0880.srt"),
                MatchesRegex("1\n00:00:00,[0-9]{3} --> 00:00:02,[0-9]{3}\n" + kShortText + "\n"));
    EXPECT_THAT(takeFile(directory + "/sense_and_sensibility_01_austen_64kb-0920.srt"),
                StartsWith("1\n00:00:00,"));
    EXPECT_EQ(0, rmdir(directory.c_str())) << "nothing else was written";

    const std::string json = temporaryPath("one.json");
    run = runProgram("transcribe --format json -o " + json + " " + kShortRecording);
    EXPECT_EQ(0, run.exitCode);
    EXPECT_EQ("", run.out + run.err);
    EXPECT_THAT(takeFile(json), AllOf(StartsWith("{\"file\":\"" + kShortRecording),
                                      HasSubstr("\"final\":true"), EndsWith("}\n")));
}

// Subtitles of the long recording: cues of at most two lines of 42 characters, at least 1 s
// unless the next cue starts sooner, never overlapping.
TEST(VoxaProgramTest, SubtitleCuesKeepToTheirLimits) {
    Ran run = runProgram("transcribe --format srt " + kLongRecording);
    ASSERT_EQ(0, run.exitCode);
    std::istringstream cues(run.out);
    std::string number, times, line;
    int64_t previousEnd = 0;
    int count = 0;
    while (std::getline(cues, number) && std::getline(cues, times)) {
        SCOPED_TRACE(times);
        EXPECT_EQ(std::to_string(++count), number);
        int h1, m1, s1, ms1, h2, m2, s2, ms2;
        ASSERT_EQ(8, sscanf(times.c_str(), "%d:%d:%d,%d --> %d:%d:%d,%d", &h1, &m1, &s1, &ms1, &h2,
                            &m2, &s2, &ms2));
        const int64_t start = ((h1 * 60 + m1) * 60 + s1) * 1000 + ms1;
        const int64_t end = ((h2 * 60 + m2) * 60 + s2) * 1000 + ms2;
        EXPECT_GE(start, previousEnd);
        EXPECT_GE(end - start, 1000);
        previousEnd = end;
        int lines = 0;
        while (std::getline(cues, line) && !line.empty()) {
            EXPECT_LE(line.size(), 42u) << line;
            ++lines;
        }
        EXPECT_TRUE(lines == 1 || lines == 2) << lines;
    }
    EXPECT_GE(count, 2) << run.out;
}

// Ctrl-C in a live run: the utterance in progress comes out as a final result, then exit 130.
TEST(VoxaProgramTest, InterruptPrintsThePendingHypothesisAndExits130) {
    int pipeFds[2];
    ASSERT_EQ(0, pipe(pipeFds));
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, pipeFds[0]);
    std::vector<std::string> args = {VOXA_PROGRAM,         "transcribe",  "--realtime",
                                     "--format",           "json",        "--mode",
                                     "partial-continuous", kLongRecording};
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    ASSERT_EQ(0, posix_spawn(&pid, VOXA_PROGRAM, &actions, nullptr, argv.data(), environ));
    posix_spawn_file_actions_destroy(&actions);
    close(pipeFds[1]);

    FILE* out = fdopen(pipeFds[0], "r");
    char* line = nullptr;
    size_t size = 0;
    // Once a partial result with words has come, the utterance is in progress.
    auto inProgress = [](const std::string& text) {
        return text.find("\"final\":false") != std::string::npos &&
               text.find("\"text\":\"\"") == std::string::npos;
    };
    while (getline(&line, &size, out) > 0 && !inProgress(line)) {
    }
    kill(pid, SIGINT);
    std::string after;
    while (getline(&line, &size, out) > 0) after += line;
    free(line);
    fclose(out);
    int status = 0;
    ASSERT_EQ(pid, waitpid(pid, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 130) << status;
    EXPECT_THAT(after, ContainsRegex("\"final\":true,\"confidence\":[0-9]+,\"text\":\"[a-z]"
                                     "[^\n]*\"reason\":\"forced\""));
}

VoxaEvent timedResult(const std::string& text, int64_t startMs, int64_t endMs,
                      const std::string& auxText) {
    VoxaEvent event;
    event.status = 0;
    VoxaEvent::EventTS result;
    result.flag = true;
    result.text = text;
    result.aux_text = auxText;
    result.start_ts = startMs;
    result.end_ts = endMs;
    VoxaEvent::Word word;
    word.word = text;
    word.start_ts = startMs;
    word.end_ts = endMs;
    result.words = {word};
    result.word_count = 1;
    event.timestamp_events = std::vector<std::optional<VoxaEvent::EventTS>>{result};
    return event;
}

SpeakerDiarizationEvent speaker(int32_t value, int64_t startMs, int64_t endMs) {
    SpeakerDiarizationEvent event;
    SpeakerDiarizationEvent::Event entry;
    entry.speaker_count = 1;
    entry.flag = true;
    entry.speakers = {{value, startMs, endMs}};
    event.events = {entry};
    return event;
}

// The engine does not diarize yet: the formatters are given what its diarization will send, a
// speaker's segment before the one result and after the other.
TEST(VoxaProgramTest, DiarizedResultsCarryTheirSpeakers) {
    using voxa_tool::Format;
    struct Case {
        Format format;
        std::string expected;
    };
    const Case cases[] = {
            {Format::Text, "Speaker 1: hello\nSpeaker 2: goodbye\n"},
            {Format::Vtt,
             "WEBVTT\n\n00:00:00.000 --> 00:00:01.000\n<v Speaker 1>hello\n\n"
             "00:00:02.000 --> 00:00:03.000\n<v Speaker 2>goodbye\n\n"},
            {Format::Json,
             "{\"file\":\"a.wav\",\"handle\":7,\"callback\":\"onSdzEvent\",\"speakers\":[{"
             "\"speaker\":1,\"start_ms\":0,\"end_ms\":900,\"final\":true}]}\n"
             "{\"file\":\"a.wav\",\"handle\":7,\"callback\":\"onAsrEvent\",\"status\":0,"
             "\"results\":[{\"final\":true,\"confidence\":0,\"text\":\"hello\",\"start_ms\":0,"
             "\"end_ms\":500,\"words\":[{\"word\":\"hello\",\"start_ms\":0,\"end_ms\":500,"
             "\"confidence\":0}],\"speaker\":1,\"aux_text\":{\"a\":[1,2.5e3,\"\\\"\"]},"
             "\"data\":[]}]}\n"
             "{\"file\":\"a.wav\",\"handle\":7,\"callback\":\"onSdzEvent\",\"speakers\":[{"
             "\"speaker\":2,\"start_ms\":1900,\"end_ms\":3000,\"final\":true}]}\n"
             "{\"file\":\"a.wav\",\"handle\":7,\"callback\":\"onAsrEvent\",\"status\":0,"
             "\"results\":[{\"final\":true,\"confidence\":0,\"text\":\"goodbye\",\"start_ms\":"
             "2000,\"end_ms\":3000,\"words\":[{\"word\":\"goodbye\",\"start_ms\":2000,\"end_ms\":"
             "3000,\"confidence\":0}],\"speaker\":2,\"aux_text\":\"{\\\"a\\\":}\",\"data\":[]}]}"
             "\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.format));
        std::ostringstream out;
        voxa_tool::FormatSettings settings;
        settings.format = c.format;
        settings.diarize = true;
        auto formatter = voxa_tool::makeFormatter(settings, out);
        formatter->beginFile("a.wav", 0, 1);
        formatter->sdzEvent(7, speaker(1, 0, 900));
        formatter->asrEvent(7, timedResult("hello", 0, 500, "{\"a\":[1,2.5e3,\"\\\"\"]}"));
        formatter->asrEvent(7, timedResult("goodbye", 2000, 3000, "{\"a\":}"));
        formatter->sdzEvent(7, speaker(2, 1900, 3000));
        formatter->endFile();
        EXPECT_EQ(c.expected, out.str());
    }
}

}  // namespace
}  // namespace voxa_test
