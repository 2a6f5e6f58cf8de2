// What a batch of files costs through the whole stack: the CPU time of one `voxa transcribe`
// process (libvoxa loaded, a session per file through IVoxa, the engine keeping the model loaded
// between sessions) on the five LibriVox recordings of pocketsphinx-testdata, against
// - one `pocketsphinx_batch` process on the same five with the model of the engine's image:
//   PocketSphinx's own batch program, its whole-utterance search once per file;
// - the recogniser driven directly the engine's way (ReferenceRecogniser), which loads the model
//   for each file.
// Each side runs a few times and counts its least CPU time: other work on a shared machine only
// ever adds to it. Prints the ratios, and for each mode of `voxa transcribe` how many of the
// recordings it gave the same words as the recogniser driven directly in that mode.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "Quick.h"
#include "ReferenceRecogniser.h"

extern char** environ;

namespace {

const char* const kAllRecordings[] = {
        "sense_and_sensibility_01_austen_64kb-0870", "sense_and_sensibility_01_austen_64kb-0880",
        "sense_and_sensibility_01_austen_64kb-0890", "sense_and_sensibility_01_austen_64kb-0920",
        "sense_and_sensibility_01_austen_64kb-0930",
};
// Two at the least: voxa names the file of each result only when it has several.
const std::vector<const char*> kRecordings = voxa_bench::measured(kAllRecordings, 2);

// Least CPU seconds of one run of each side.
std::map<std::string, double> gSeconds;
// For each mode of voxa transcribe, the recordings whose words equal the reference recogniser's.
std::map<std::string, int> gEqualFiles;

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

// Runs `command` with its output going to `output` and its standard error discarded. Returns
// the CPU seconds (user and system) it used, or a negative value when it did not exit with 0.
double cpuSecondsOf(std::vector<std::string> command, const std::string& output = "/dev/null") {
    std::vector<char*> argv;
    for (std::string& arg : command) argv.push_back(arg.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    int status = 0;
    rusage usage = {};
    const bool ran = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0 &&
                     wait4(pid, &status, 0, &usage) == pid && WIFEXITED(status) &&
                     WEXITSTATUS(status) == 0;
    posix_spawn_file_actions_destroy(&actions);
    return ran ? seconds(usage.ru_utime) + seconds(usage.ru_stime) : -1;
}

double processCpuSeconds() {
    timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// Times `run` (CPU seconds, negative on failure) as the benchmark's manual time; keeps the least.
template <typename Run>
void measure(benchmark::State& state, const std::string& side, Run run) {
    double least = -1;
    for (auto _ : state) {
        const double cpu = run();
        if (cpu < 0) {
            state.SkipWithError("a run failed");
            return;
        }
        state.SetIterationTime(cpu);
        least = least < 0 ? cpu : std::min(least, cpu);
    }
    gSeconds[side] = least;
}

// The words of each file in voxa transcribe's text output: a "==> PATH <==" line, then its
// results.
std::map<std::string, std::vector<std::string>> wordsByFile(const std::string& output) {
    std::map<std::string, std::vector<std::string>> words;
    std::ifstream text(output);
    std::string file;
    for (std::string line; std::getline(text, line);) {
        if (line.rfind("==> ", 0) == 0 && line.size() > 8) {
            file = line.substr(4, line.size() - 8);
            words[file];
        } else {
            for (const std::string& word : voxa_bench::splitWords(line)) {
                words[file].push_back(word);
            }
        }
    }
    return words;
}

void BM_VoxaTranscribe(benchmark::State& state, const char* mode) {
    std::vector<std::string> command = {VOXA_PROGRAM, "transcribe", "--no-progress", "--mode",
                                        mode};
    for (const char* name : kRecordings) {
        command.push_back(voxa_bench::kLibriVox + name + ".wav");
    }
    const std::string output = "/tmp/voxa-bench-" + std::to_string(getpid()) + ".txt";
    measure(state, mode, [&] { return cpuSecondsOf(command, output); });
    // The buffered modes' words come from the whole-utterance pass, the partial modes' from the
    // first pass.
    const bool wholeUtterance = std::string(mode).find("partial") == std::string::npos;
    std::map<std::string, std::vector<std::string>> heard = wordsByFile(output);
    unlink(output.c_str());
    int equal = 0;
    for (const char* name : kRecordings) {
        const std::string path = voxa_bench::kLibriVox + name + ".wav";
        std::vector<std::string> words;
        if (voxa_bench::recogniseDirectly(VOXA_ENGINE_MODEL, path, wholeUtterance, &words) &&
            heard.count(path) == 1 && heard[path] == words) {
            ++equal;
        }
    }
    gEqualFiles[mode] = equal;
    state.counters["files_equal_to_reference"] = equal;
}

void BM_PocketsphinxBatch(benchmark::State& state) {
    // The recogniser's files as the engine's model image names them ("key value" lines).
    std::map<std::string, std::string> image;
    std::ifstream manifest(VOXA_ENGINE_MODEL);
    for (std::string line, key, value; std::getline(manifest, line);) {
        if (std::istringstream(line) >> key >> value) image[key] = value;
    }
    const std::string control = "/tmp/voxa-bench-" + std::to_string(getpid()) + ".ctl";
    {
        std::ofstream list(control);
        for (const char* name : kRecordings) list << name << "\n";
    }
    const std::vector<std::string> command = {"pocketsphinx_batch",
                                              "-adcin",
                                              "yes",
                                              "-adchdr",
                                              "44",
                                              "-cepdir",
                                              voxa_bench::kLibriVox,
                                              "-cepext",
                                              ".wav",
                                              "-ctl",
                                              control,
                                              "-hmm",
                                              image["acoustic-model"],
                                              "-lm",
                                              image["language-model"],
                                              "-dict",
                                              image["dictionary"],
                                              "-hyp",
                                              "/dev/null"};
    measure(state, "pocketsphinx_batch", [&] { return cpuSecondsOf(command); });
    unlink(control.c_str());
}

void BM_RecogniserAlone(benchmark::State& state) {
    std::vector<std::string> words;
    measure(state, "recogniser alone", [&] {
        const double start = processCpuSeconds();
        for (const char* name : kRecordings) {
            // voxa transcribe's default mode: utterances decoded again whole.
            const std::string path = voxa_bench::kLibriVox + name + ".wav";
            if (!voxa_bench::recogniseDirectly(VOXA_ENGINE_MODEL, path, true, &words)) return -1.0;
            benchmark::DoNotOptimize(words.data());
        }
        return processCpuSeconds() - start;
    });
}

// Times are CPU seconds, reported as the benchmarks' manual time.
BENCHMARK_CAPTURE(BM_VoxaTranscribe, buffering, "buffering")
        ->UseManualTime()
        ->Iterations(voxa_bench::quickOr(1, 3))
        ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_VoxaTranscribe, partial_continuous, "partial-continuous")
        ->UseManualTime()
        ->Iterations(voxa_bench::quickOr(1, 3))
        ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PocketsphinxBatch)
        ->UseManualTime()
        ->Iterations(voxa_bench::quickOr(1, 3))
        ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RecogniserAlone)
        ->UseManualTime()
        ->Iterations(voxa_bench::quickOr(1, 3))
        ->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    const double batch = gSeconds["pocketsphinx_batch"];
    for (const char* mode : {"buffering", "partial-continuous"}) {
        if (gSeconds[mode] > 0 && batch > 0) {
            std::printf("least CPU time of voxa transcribe --mode %s / pocketsphinx_batch: %.3f\n",
                        mode, gSeconds[mode] / batch);
        }
        if (gEqualFiles.count(mode) == 1) {
            std::printf(
                    "voxa transcribe --mode %s: words equal to the reference recogniser's in "
                    "%d of %zu recordings\n",
                    mode, gEqualFiles[mode], kRecordings.size());
        }
    }
    if (gSeconds["buffering"] > 0 && gSeconds["recogniser alone"] > 0) {
        std::printf("least CPU time of voxa transcribe --mode buffering / recogniser alone: %.3f\n",
                    gSeconds["buffering"] / gSeconds["recogniser alone"]);
    }
    return 0;
}
