// What the whole stack costs on top of the recogniser: the CPU time of `voxa transcribe` (a
// process that loads libvoxa, opens a session per file through IVoxa and runs the engine)
// against PocketSphinx driven directly with the same model and settings, on the five LibriVox
// recordings of pocketsphinx-testdata. Both load the model once per file.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "ReferenceRecogniser.h"

extern char** environ;

namespace {

const char* const kRecordings[] = {
        "sense_and_sensibility_01_austen_64kb-0870.wav",
        "sense_and_sensibility_01_austen_64kb-0880.wav",
        "sense_and_sensibility_01_austen_64kb-0890.wav",
        "sense_and_sensibility_01_austen_64kb-0920.wav",
        "sense_and_sensibility_01_austen_64kb-0930.wav",
};

// Mean CPU seconds of one run of each side, for the ratio printed at the end.
double gVoxaSeconds = 0;
double gRecogniserSeconds = 0;

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

double processCpuSeconds() {
    timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// Runs `voxa transcribe` on the recordings. Returns the CPU seconds (user and system) it used,
// or a negative value when it failed.
double runVoxa() {
    std::vector<std::string> command = {VOXA_PROGRAM, "transcribe", "--no-progress"};
    for (const char* name : kRecordings) command.push_back(voxa_test::kLibriVox + name);
    std::vector<char*> argv;
    for (std::string& arg : command) argv.push_back(arg.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    int status = 0;
    rusage usage = {};
    const bool ran =
            posix_spawn(&pid, VOXA_PROGRAM, &actions, nullptr, argv.data(), environ) == 0 &&
            wait4(pid, &status, 0, &usage) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    posix_spawn_file_actions_destroy(&actions);
    return ran ? seconds(usage.ru_utime) + seconds(usage.ru_stime) : -1;
}

void BM_VoxaTranscribe(benchmark::State& state) {
    double total = 0;
    for (auto _ : state) {
        double cpu = runVoxa();
        if (cpu < 0) {
            state.SkipWithError("voxa transcribe failed");
            return;
        }
        state.SetIterationTime(cpu);
        total += cpu;
    }
    gVoxaSeconds = total / static_cast<double>(state.iterations());
}

void BM_RecogniserAlone(benchmark::State& state) {
    double total = 0;
    std::vector<std::string> words;
    for (auto _ : state) {
        const double start = processCpuSeconds();
        for (const char* name : kRecordings) {
            // Buffering, voxa transcribe's default mode: utterances decoded again whole.
            if (!voxa_test::recogniseDirectly(VOXA_ENGINE_MODEL, voxa_test::kLibriVox + name, true,
                                              &words)) {
                state.SkipWithError("the recogniser could not load the model or a recording");
                return;
            }
            benchmark::DoNotOptimize(words.data());
        }
        const double cpu = processCpuSeconds() - start;
        state.SetIterationTime(cpu);
        total += cpu;
    }
    gRecogniserSeconds = total / static_cast<double>(state.iterations());
}

// Times are CPU seconds, reported as the benchmarks' manual time.
BENCHMARK(BM_VoxaTranscribe)->UseManualTime()->Iterations(2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RecogniserAlone)->UseManualTime()->Iterations(2)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (gVoxaSeconds > 0 && gRecogniserSeconds > 0) {
        std::printf(
                "CPU time of voxa transcribe / recogniser alone: %.3f (the stack adds %.1f%%)\n",
                gVoxaSeconds / gRecogniserSeconds, (gVoxaSeconds / gRecogniserSeconds - 1) * 100);
    }
    return 0;
}
