// A batch through the whole stack against PocketSphinx's own batch program: the CPU time of one
// `voxa transcribe` process on the five LibriVox recordings of pocketsphinx-testdata (a session
// per recording through IVoxa) against one `pocketsphinx_batch` process on the same five with
// the model of the engine's model image. Prints their ratio.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace {

const std::string kLibriVox = "/usr/share/pocketsphinx/test/data/librivox/";
const char* const kRecordings[] = {
        "sense_and_sensibility_01_austen_64kb-0870", "sense_and_sensibility_01_austen_64kb-0880",
        "sense_and_sensibility_01_austen_64kb-0890", "sense_and_sensibility_01_austen_64kb-0920",
        "sense_and_sensibility_01_austen_64kb-0930",
};

// Mean CPU seconds of one run of each side.
double gVoxaSeconds = 0;
double gBatchSeconds = 0;

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

// Runs `command` with its output discarded. Returns the CPU seconds (user and system) it used,
// or a negative value when it did not exit with 0.
double cpuSecondsOf(std::vector<std::string> command) {
    std::vector<char*> argv;
    for (std::string& arg : command) argv.push_back(arg.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
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

void measure(benchmark::State& state, const std::vector<std::string>& command, double* mean) {
    double total = 0;
    for (auto _ : state) {
        const double cpu = cpuSecondsOf(command);
        if (cpu < 0) {
            state.SkipWithError((command[0] + " failed").c_str());
            return;
        }
        state.SetIterationTime(cpu);
        total += cpu;
    }
    *mean = total / static_cast<double>(state.iterations());
}

void BM_VoxaTranscribe(benchmark::State& state) {
    std::vector<std::string> command = {VOXA_PROGRAM, "transcribe", "--no-progress"};
    for (const char* name : kRecordings) command.push_back(kLibriVox + name + ".wav");
    measure(state, command, &gVoxaSeconds);
}

void BM_PocketsphinxBatch(benchmark::State& state) {
    // The recogniser's files as the engine's model image names them ("key value" lines).
    std::map<std::string, std::string> image;
    std::ifstream manifest(VOXA_ENGINE_MODEL);
    for (std::string line; std::getline(manifest, line);) {
        std::istringstream fields(line);
        std::string key, value;
        if (fields >> key >> value) image[key] = value;
    }
    const std::string control = "/tmp/voxa-batch-bench-" + std::to_string(getpid()) + ".ctl";
    {
        std::ofstream list(control);
        for (const char* name : kRecordings) list << name << "\n";
    }
    measure(state,
            {"pocketsphinx_batch", "-adcin", "yes", "-adchdr", "44", "-cepdir", kLibriVox,
             "-cepext", ".wav", "-ctl", control, "-hmm", image["acoustic-model"], "-lm",
             image["language-model"], "-dict", image["dictionary"], "-hyp", "/dev/null"},
            &gBatchSeconds);
    unlink(control.c_str());
}

// Times are CPU seconds, reported as the benchmarks' manual time.
BENCHMARK(BM_VoxaTranscribe)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PocketsphinxBatch)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (gVoxaSeconds > 0 && gBatchSeconds > 0) {
        std::printf(
                "CPU time of voxa transcribe / pocketsphinx_batch on the five recordings: %.3f\n",
                gVoxaSeconds / gBatchSeconds);
    }
    return 0;
}
