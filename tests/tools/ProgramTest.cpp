// The built voxa program run as a user runs it: its exit statuses, its messages and its output,
// on the recogniser-backed engine and on the scripted one (voxa replay).
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/Bytes.h"

namespace voxa_test {
namespace {

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::EndsWith;
using ::testing::Eq;
using ::testing::HasSubstr;
using ::testing::Matcher;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::StartsWith;

const std::string kLibriVox = "/usr/share/pocketsphinx/test/data/librivox/";
// "had he married a more amiable woman ...", 6.05 s.
const std::string kLongRecording = kLibriVox + "sense_and_sensibility_01_austen_64kb-0920.wav";
// "he was not an ill disposed young man", 2.99 s, 16 kHz mono.
const std::string kShortRecording = kLibriVox + "sense_and_sensibility_01_austen_64kb-0880.wav";
const std::string kShortText = "he was not [a-z ]+ young man\n";
const std::string kScenarios = VOXA_SCENARIOS;
const std::string kTestScenarios = VOXA_TEST_SCENARIOS;  // also played by the device test
// A speaker before one result and after the other, the first's second text JSON.
const std::string kSpeakers = kTestScenarios + "speakers.jsonl";

const std::string kBusy =
        "the recognition engine is busy with another session (RESOURCE_CONTENTION)";
const std::string kStart = "{\"step\": \"await\", \"call\": \"pal_stream_start\"}\n";
const std::string kFirstResult = kStart + "{\"step\": \"result\", \"text\": \"first\"}\n";

struct Ran {
    int exitCode = -1;
    std::string out;
    std::string err;
};

std::string temporaryPath(const std::string& name) {
    return ::testing::TempDir() + "voxa-program-" + std::to_string(getpid()) + "-" + name;
}

std::string takeFile(const std::string& path) {
    std::string text = readFile(path);
    unlink(path.c_str());
    return text;
}

std::string writeFile(const std::string& name, const std::string& text) {
    const std::string path = temporaryPath(name);
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

// Runs the program with the command-line arguments `args` and collects what it writes; its
// standard error goes to `errTo` if given. `input` goes to its standard input through a pipe in
// odd-sized pieces, so that the program's reads split frames.
Ran runProgram(const std::string& args, const std::string& input = "", std::string errTo = "") {
    const std::string out = temporaryPath("out");
    const std::string err = errTo.empty() ? temporaryPath("err") : errTo;
    FILE* program = popen((VOXA_PROGRAM " " + args + " >" + out + " 2>" + err).c_str(), "w");
    for (size_t at = 0; at < input.size(); at += 4099) {
        fwrite(input.data() + at, 1, std::min<size_t>(4099, input.size() - at), program);
        fflush(program);
    }
    const int status = pclose(program);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, takeFile(out),
            errTo.empty() ? takeFile(err) : ""};
}

// Runs that each end with one exit status, standard error and output.
TEST(VoxaProgramTest, EachRunExitsWithItsStatusMessagesAndOutput) {
    const std::string directory = ::testing::TempDir();
    const std::string text = writeFile("notes.wav", "not a sound\n");
    // The short recording's header, its sample rate made 4000 Hz.
    const std::string low = writeFile(
            "low.wav", readFile(kShortRecording).replace(24, 4, std::string("\xa0\x0f\0\0", 4)));
    // The long recording cut after 30000 bytes: 14978 frames of the 96800 its header declares.
    const std::string cut = writeFile("cut.wav", readFile(kLongRecording).substr(0, 30000));
    const std::string recording = " " + kShortRecording;
    // The recording's samples, after its 44-byte header; in the device format, 48000:2, each
    // sample three times on both channels.
    const std::string mono = readFile(kShortRecording).substr(44);
    std::string device;
    for (size_t i = 0; i < mono.size(); i += 2) {
        for (int copy = 0; copy < 6; ++copy) device += mono.substr(i, 2);
    }
    const std::string unmet =
            writeFile("unmet.jsonl", kFirstResult +
                                             "{\"step\": \"await\", "
                                             "\"call\": \"pal_set_param\", \"timeout_ms\": 50}\n");
    const std::string backwards =
            writeFile("backwards.jsonl", kStart + "{\"step\": \"timed_result\", \"start_ms\": 500, "
                                                  "\"end_ms\": 100}\n");
    // A line of the JSON output for kSpeakers.
    auto json = [&](const std::string& rest) {
        return "{\"file\":\"" + kSpeakers + "\",\"handle\":0,\"callback\":\"" + rest + "}\n";
    };

    struct Case {
        int exitCode;
        std::string args;
        Matcher<std::string> err;  // standard error; a string is the whole of it
        Matcher<std::string> out = Eq("");
        std::string input = "";  // standard input
    };
    const Case cases[] = {
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
             "voxa: option --raw takes RATE:CHANNELS, such as 16000:1, not '16000'\n"},
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
                     "64kb-0880.wav.txt\n"},
            {2, "listen", "voxa: unknown command 'listen' (see voxa --help)\n"},
            {2, "replay", "voxa: replay takes one SCENARIO\n"},
            // Each shipped scenario, played by the scripted engine to the same client.
            {0, "replay " + kScenarios + "dictation.jsonl", "", Eq("send a message to anna\n")},
            {0, "replay " + kScenarios + "timestamps.jsonl", "", Eq("call me at noon\n")},
            // Busy at start as at open; the notification that the engine is free is waited for
            // when asked.
            {3, "replay " + kScenarios + "contention.jsonl", "voxa: " + kBusy + "\n"},
            {0, "replay --wait-busy " + kScenarios + "contention.jsonl",
             "voxa: the recognition engine is busy with another session; waiting until it is "
             "free\n",
             Eq("turn on the lights\n")},
            // A failure, of the engine or of the scenario, is said and fails the input.
            {1, "replay " + kScenarios + "engine-error.jsonl",
             "voxa: " + kScenarios +
                     "engine-error.jsonl: the recognition engine reported a failure (status 2): "
                     "{\"error\":\"audio capture lost\"}\nvoxa: stopListening failed (FAILURE)\n"},
            {1, "replay " + unmet, "voxa: " + unmet + ":3: no pal_set_param call within 50 ms\n",
             Eq("first\n")},
            {1, "replay " + backwards,
             "voxa: " + backwards + ":2: \"end_ms\" 100 is before \"start_ms\" 500\n"},
            {1, "replay " + directory, "voxa: cannot read " + directory + ": it is a directory\n"},
            {1, "replay " + kScenarios + "unsupported-language.jsonl",
             "voxa: the recognition engine does not support this configuration "
             "(OPERATION_NOT_SUPPORTED)\n"},
            {3, "replay " + kTestScenarios + "busy-engine.jsonl", "voxa: " + kBusy + "\n"},
            {0, "replay --diarize " + kSpeakers, "", Eq("Speaker 1: hello\nSpeaker 2: goodbye\n")},
            {0, "replay --diarize --format vtt " + kSpeakers, "",
             Eq("WEBVTT\n\n00:00:00.000 --> 00:00:01.000\n<v Speaker 1>hello\n\n"
                "00:00:02.000 --> 00:00:03.000\n<v Speaker 2>goodbye\n\n")},
            // Results wait for their speaker; the second text is embedded when it is JSON.
            {0, "replay --diarize --format json " + kSpeakers, "",
             Eq(json("onSdzEvent\",\"speakers\":[{\"speaker\":1,\"start_ms\":0,\"end_ms\":900,"
                     "\"final\":false}]") +
                json("onAsrEvent\",\"status\":0,\"results\":[{\"final\":true,\"confidence\":0,"
                     "\"text\":\"hello\",\"start_ms\":0,\"end_ms\":500,\"words\":[{\"word\":"
                     "\"hello\",\"start_ms\":0,\"end_ms\":500,\"confidence\":0}],\"speaker\":1,"
                     "\"aux_text\":{\"a\":[1,2.5e3,\"\\\"\"]},\"data\":[]}]") +
                json("onSdzEvent\",\"speakers\":[{\"speaker\":2,\"start_ms\":1900,\"end_ms\":"
                     "3000,\"final\":true}]") +
                json("onAsrEvent\",\"status\":0,\"results\":[{\"final\":true,\"confidence\":0,"
                     "\"text\":\"goodbye\",\"start_ms\":2000,\"end_ms\":3000,\"words\":[{"
                     "\"word\":\"goodbye\",\"start_ms\":2000,\"end_ms\":3000,\"confidence\":0}],"
                     "\"speaker\":2,\"aux_text\":\"{\\\"a\\\":}\",\"data\":[]}]"))},
            // With the service's state while the session still listens, its input heard.
            {0, "replay --dump " + kScenarios + "two-speakers.jsonl",
             AllOf(HasSubstr("sessions: 1\n  handle 0: listening, stream 0x"),
                   HasSubstr("events delivered: plain 0, time-stamped 2, diarization 2")),
             Eq("good morning\nmorning how did you sleep\n")},
            {1, "transcribe --verbose --lang fr-FR" + recording,
             ContainsRegex("Voxa E .*startListening: Failed to start")},
            {0, "dump", "",
             Eq("vendor.orbo.hardware.voxa.IVoxa/default, interface version 3\nhandles issued: 0, "
                "next 0\nglobal callback: none, holder not watched\n"
                "resources-available notifications: 0\nsessions: 0\n")},
            {0, "--version", "", Eq("voxa 3.0.0 (vendor.orbo.hardware.voxa.IVoxa version 3)\n")},
            {0, "transcribe --help", "", StartsWith("usage: voxa [OPTIONS] COMMAND [FILE...]\n")},
            {0, "languages", "",
             MatchesRegex("english : en-US \\(recognised\\)\n([a-z ()]+ : [a-zA-Z-]+"
                          "( \\(translation target\\))?\n){98}cantonese : yue-CH\n")},
            // Standard input is read by its header; raw PCM by --raw, or in the device format
            // with a note when there is no header.
            {0, "transcribe -", "", MatchesRegex(kShortText), readFile(kShortRecording)},
            {0, "transcribe --raw 16000:1 -", "", MatchesRegex(kShortText), mono},
            {0, "transcribe -",
             "voxa: standard input: no sound file header; reading raw PCM in the device format, "
             "48000:2 (signed 16-bit little-endian; --raw RATE:CHANNELS sets another)\n",
             MatchesRegex(kShortText), device},
            {0, "transcribe -", "voxa: standard input: no speech found\n"},
            {0, "transcribe --raw 16000:1 -", "voxa: standard input: no speech found\n", Eq(""),
             std::string(64000, '\0')},
            {0, "transcribe " + cut, "voxa: " + cut + ": ends at 0.94 s of 6.05 s\n",
             MatchesRegex("[a-z ]+\n")},
            {0, "transcribe --threshold 90" + recording,
             "voxa: " + kShortRecording +
                     ": no speech found at a confidence of 90 or more (--threshold)\n"},
            {0, "transcribe --confidence 60 -o -" + recording, "",
             Eq("he was not [until] [this] [blows] [young] man (confidence 58)\n")},
            // Subtitles of a translation show the translation.
            {0, "transcribe --translate es-ES --format srt" + recording, "",
             Eq("1\n00:00:00,210 --> 00:00:02,740\nNo fue hasta estos golpes hombre joven\n\n")},
            // Off a terminal there is no progress bar. Language codes match in any case.
            {0, "transcribe --timestamps --lang en-us" + recording, "",
             Eq("[00:00.210 --> 00:02.740] he was not until this blows young man\n"
                "    he 0.21-0.33  was 0.33-0.55  not 0.55-1.06  until 1.13-1.48  this 1.48-1.67"
                "  blows 1.67-2.05\n    young 2.05-2.33  man 2.33-2.74\n")},
            // One shape for every event: the first partial in full, the final with its times
            // and the engine's JSON embedded.
            {0, "transcribe --format json --mode partial-command" + recording, "",
             AllOf(StartsWith("{\"file\":\"" + kShortRecording +
                              "\",\"handle\":0,\"callback\":\"onAsrEvent\",\"status\":0,"
                              "\"results\":[{\"final\":false,\"confidence\":0,\"text\":\"he\","
                              "\"start_ms\":null,\"end_ms\":null,\"words\":[],\"speaker\":null,"
                              "\"aux_text\":{\"final\":false,\"text\":\"he\"},\"data\":[]}]}\n"),
                   ContainsRegex("\"final\":true,.*\"start_ms\":[0-9]+,\"end_ms\":[0-9]+,"
                                 "\"words\":\\[\\{\"word\":\"he\""))},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args + " " + std::to_string(c.input.size()) + " bytes in");
        Ran run = runProgram(c.args, c.input);
        EXPECT_EQ(c.exitCode, run.exitCode);
        EXPECT_THAT(run.err, c.err) << "the service's log shows with --verbose alone";
        EXPECT_THAT(run.out, c.out);
    }
    for (const std::string& path : {text, low, cut, unmet, backwards}) unlink(path.c_str());
}

// One file per input, in a folder made for them; subtitles of the long recording in cues of at
// most two lines of 42 characters, at least 1 s unless the next cue starts sooner, never
// overlapping.
TEST(VoxaProgramTest, WritesEachInputToAFileOfItsOwnInSubtitleCuesWithinTheirLimits) {
    const std::string directory = temporaryPath("subtitles");
    Ran run = runProgram("transcribe --format srt --output-dir " + directory + " " +
                         kShortRecording + " /nonexistent.wav " + kLongRecording);
    EXPECT_EQ(1, run.exitCode);
    EXPECT_EQ("voxa: cannot open /nonexistent.wav: No such file or directory\n", run.err);
    EXPECT_EQ("", run.out);
    EXPECT_THAT(takeFile(directory + "/sense_and_sensibility_01_austen_64kb-0880.srt"),
                MatchesRegex("1\n00:00:00,[0-9]{3} --> 00:00:02,[0-9]{3}\n" + kShortText + "\n"));
    std::istringstream cues(takeFile(directory + "/sense_and_sensibility_01_austen_64kb-0920.srt"));
    EXPECT_EQ(0, rmdir(directory.c_str())) << "nothing else was written";
    std::string number, times, line;
    int previousEnd = 0, count = 0;
    while (std::getline(cues, number) && std::getline(cues, times)) {
        SCOPED_TRACE(times);
        EXPECT_EQ(std::to_string(++count), number);
        int t[8];
        ASSERT_EQ(8, sscanf(times.c_str(), "%d:%d:%d,%d --> %d:%d:%d,%d", &t[0], &t[1], &t[2],
                            &t[3], &t[4], &t[5], &t[6], &t[7]));
        const int start = ((t[0] * 60 + t[1]) * 60 + t[2]) * 1000 + t[3];
        const int end = ((t[4] * 60 + t[5]) * 60 + t[6]) * 1000 + t[7];
        EXPECT_GE(start, previousEnd);
        EXPECT_GE(end - start, 1000);
        previousEnd = end;
        int lines = 0;
        for (; std::getline(cues, line) && !line.empty(); ++lines) EXPECT_LE(line.size(), 42u);
        EXPECT_TRUE(lines == 1 || lines == 2) << lines;
    }
    EXPECT_GE(count, 2);
}

// Runs the program with `args`, sends it SIGINT once a line of its output contains `after` (and
// not `unless`), and returns its exit status and the output that followed.
Ran interrupt(const std::string& args, const char* after, const char* unless = nullptr) {
    // The shell prints its process id, which the program then takes over.
    FILE* out = popen(("echo $$; exec " VOXA_PROGRAM " " + args).c_str(), "r");
    int pid = 0;
    Ran ran;
    if (fscanf(out, "%d\n", &pid) != 1) return ran;
    char line[65536];
    while (fgets(line, sizeof(line), out) != nullptr &&
           (strstr(line, after) == nullptr || (unless != nullptr && strstr(line, unless)))) {
    }
    kill(pid, SIGINT);
    while (fgets(line, sizeof(line), out) != nullptr) ran.out += line;
    const int status = pclose(out);
    ran.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return ran;
}

// Ctrl-C in a live run: the utterance in progress comes out as a final result, then exit 130;
// in a replay, also while the scenario waits for an hour.
TEST(VoxaProgramTest, InterruptPrintsThePendingHypothesisAndExits130) {
    // Once a partial result with words has come, the utterance is in progress.
    Ran run = interrupt(
            "transcribe --realtime --format json --mode partial-continuous " + kLongRecording,
            "\"final\":false", "\"text\":\"\"");
    EXPECT_EQ(130, run.exitCode);
    EXPECT_THAT(run.out, ContainsRegex("\"final\":true,\"confidence\":[0-9]+,\"text\":\"[a-z]"
                                       "[^\n]*\"reason\":\"forced\""));

    const std::string hour =
            writeFile("hour.jsonl", kFirstResult + "{\"step\": \"delay\", \"ms\": 3600000}\n");
    run = interrupt("replay " + hour, "first");
    EXPECT_EQ(130, run.exitCode);
    EXPECT_EQ("", run.out);
    unlink(hour.c_str());
}

// An input is never written over, under any name; a file is replaced only once its input has
// succeeded, and never left half-written; --output-dir is created, and names that would clash
// keep their extension.
TEST(VoxaProgramTest, OutputsNeverCostTheUserAFile) {
    const std::string recording = readFile(kShortRecording);
    const std::string wav = writeFile("input.txt", recording);
    const std::string link = temporaryPath("link");
    ASSERT_EQ(0, symlink(wav.c_str(), link.c_str()));
    const std::string folder = wav.substr(0, wav.rfind('/'));
    const std::string through = folder + "/./" + wav.substr(folder.size() + 1);
    for (const auto& [args, output] : {std::pair{"-o " + wav, wav},
                                       {"-o " + link, link},
                                       {"--output-dir " + folder + "/.", through}}) {
        Ran run = runProgram("transcribe " + args + " " + wav);
        EXPECT_EQ(2, run.exitCode) << args;
        EXPECT_EQ("voxa: the output " + output + " is the input " + wav +
                          "; voxa never writes over an input\n",
                  run.err);
    }
    EXPECT_EQ(recording, readFile(wav));

    const std::string kept = writeFile("kept.txt", "an earlier transcript\n");
    EXPECT_EQ(1, runProgram("transcribe --lang fr-FR -o " + kept + " " + kShortRecording).exitCode);
    EXPECT_EQ("an earlier transcript\n", readFile(kept));
    EXPECT_EQ(0, runProgram("transcribe -o " + kept + " " + kShortRecording).exitCode);
    EXPECT_THAT(takeFile(kept), MatchesRegex(kShortText));

    const std::string outputs = temporaryPath("outputs");
    const std::string a = writeFile("a.wav", recording), b = writeFile("a.flac", recording);
    Ran run = runProgram("transcribe --output-dir " + outputs + "/texts " + a + " " + b);
    EXPECT_EQ(0, run.exitCode) << run.err;
    for (const std::string& input : {a, b}) {
        EXPECT_THAT(takeFile(outputs + "/texts/" + input.substr(folder.size() + 1) + ".txt"),
                    MatchesRegex(kShortText));
    }
    EXPECT_EQ(0, rmdir((outputs + "/texts").c_str())) << "nothing else was written";
    for (const std::string& path : {wav, link, a, b, outputs}) remove(path.c_str());
}

// The five LibriVox recordings in one run, in buffering and in partial-continuous mode: the
// output byte for byte as expected/ holds it, each recording's words those of PocketSphinx driven
// alone the way the engine drives it (bench_voxa compares the two); on a terminal, a progress bar
// for the files of 5 s or more.
TEST(VoxaProgramTest, LibriVoxRecordingsAsExpected) {
    std::string files;
    for (const char* name : {"0870", "0880", "0890", "0920", "0930"}) {
        files += " " + kLibriVox + "sense_and_sensibility_01_austen_64kb-" + name + ".wav";
    }
    for (const std::string mode : {"buffering", "partial-continuous"}) {
        SCOPED_TRACE(mode);
        const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
        ASSERT_TRUE(terminal >= 0 && grantpt(terminal) == 0 && unlockpt(terminal) == 0);
        Ran run = runProgram("transcribe --mode " + mode + files, "", ptsname(terminal));
        ASSERT_EQ(0, run.exitCode);
        EXPECT_EQ(readFile(std::string(VOXA_EXPECTED) + "librivox-" + mode + ".txt"), run.out);

        std::string bar;
        char buffer[4096];
        fcntl(terminal, F_SETFL, O_NONBLOCK);
        for (ssize_t n; (n = read(terminal, buffer, sizeof(buffer))) > 0;) bar.append(buffer, n);
        close(terminal);
        if (mode != "buffering") continue;
        // Erased whenever a result comes.
        const std::string erase = "\r\033[K";
        EXPECT_THAT(bar, StartsWith("\r[" + std::string(30, '.') + "]   0%  0.0 s of 7.1 s\033[K" +
                                    erase + "\r[#"));
        EXPECT_THAT(bar, HasSubstr("s of 5.3 s\033[K" + erase));
        EXPECT_THAT(bar, EndsWith("s of 6.0 s\033[K" + erase));
        EXPECT_THAT(bar, Not(HasSubstr(" of 3.")));
    }
}

}  // namespace
}  // namespace voxa_test
