// The PAL engine's accuracy and speed, through the PAL API as the service drives it:
// - word error rate and real-time factor (CPU seconds per second of audio) of each continuous
//   mode on the five LibriVox recordings of pocketsphinx-testdata, one stream per recording;
// - at real-time pace, the time from the end of an utterance's last word to the delivery of its
//   final result, with the engine's default 500 ms of silence;
// - the time Apertium takes to translate each result of the recordings;
// - the diarization error rate on conversations of espeak-ng voices, with pauses between turns
//   and without, and on LibriVox recordings alternating with espeak-ng.
#include <benchmark/benchmark.h>
#include <pal/pal_api.h>
#include <pal/pal_engine.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "EngineSession.h"
#include "ErrorRate.h"
#include "Quick.h"
#include "Recording.h"
#include "ReferenceRecogniser.h"

namespace {

using voxa_bench::Clock;
using voxa_bench::Segment;
using Session = voxa_bench::EngineSession;

const std::string kRecordings = voxa_bench::kLibriVox + "sense_and_sensibility_01_austen_64kb-";
const char* const kAllNames[] = {"0870", "0880", "0890", "0920", "0930"};
const std::vector<const char*> kNames = voxa_bench::measured(kAllNames);
// Turns of each synthetic conversation.
const size_t kTurns = voxa_bench::quickOr<size_t>(3, 12);

double cpuSeconds() {
    timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

int64_t numberAfter(const std::string& json, const std::string& key) {
    size_t at = json.find("\"" + key + "\":");
    return at == std::string::npos ? -1 : std::stoll(json.substr(at + key.size() + 3));
}

pal_asr_config modeConfig(bool partial, bool bufferedEvent) {
    pal_asr_config config = {};
    config.continuous = 1;
    config.partial = partial;
    config.buffering = !partial && !bufferedEvent;
    config.buffered_event = bufferedEvent;
    return config;
}

std::vector<std::string> referenceWords(const std::string& name) {
    std::ifstream transcription(voxa_bench::kLibriVox + "transcription");
    for (std::string line; std::getline(transcription, line);) {
        if (line.find(name + ")") != std::string::npos) {
            line = line.substr(4, line.find(" </s>") - 4);
            return voxa_bench::splitWords(line);
        }
    }
    return {};
}

// Word error rate and real-time factor of one mode: Arg 0 partial, 1 buffering, 2 buffered-event.
void BM_WordErrorRate(benchmark::State& state) {
    const bool partial = state.range(0) == 0;
    const pal_asr_config config = modeConfig(partial, state.range(0) == 2);
    for (auto _ : state) {
        std::vector<std::string> reference, heard;
        double cpu = 0;
        double audio = 0;
        for (const char* name : kNames) {
            Session session;  // a stream for each recording, as voxa transcribe opens them
            const std::string path = kRecordings + name + ".wav";
            const double before = cpuSeconds();
            if (!session.run(config, {path}, pal_engine::Pace::Fast)) {
                state.SkipWithError("the engine refused the recording");
                return;
            }
            cpu += cpuSeconds() - before;
            audio += static_cast<double>(readFile(path).size() - 44) / 32000.0;
            for (const Session::Final& final : session.finals()) {
                for (const std::string& word : voxa_bench::splitWords(final.text)) {
                    heard.push_back(word);
                }
            }
            const std::vector<std::string> words =
                    referenceWords(std::string("sense_and_sensibility_01_austen_64kb-") + name);
            reference.insert(reference.end(), words.begin(), words.end());
        }
        state.SetIterationTime(cpu);
        state.counters["wer_percent"] = 100 * voxa_bench::wordErrorRate(reference, heard);
        state.counters["real_time_factor"] = cpu / audio;
    }
}

// At real-time pace, the recordings each followed by 1.5 s of silence: from the end of the last
// word of each result to its delivery. Arg 0 partial-continuous, 1 buffering.
void BM_FinalLatency(benchmark::State& state) {
    const std::string silence = "/tmp/voxa-bench-silence.wav";
    {
        std::string wav = readFile(kRecordings + "0880.wav").substr(0, 44);
        const uint32_t bytes = 48000;
        const uint32_t riff = 36 + bytes;
        wav.replace(4, 4, reinterpret_cast<const char*>(&riff), 4);
        wav.replace(40, 4, reinterpret_cast<const char*>(&bytes), 4);
        std::ofstream(silence, std::ios::binary) << wav << std::string(bytes, '\0');
    }
    std::vector<std::string> files;
    for (const char* name : kNames) {
        files.push_back(kRecordings + name + ".wav");
        files.push_back(silence);
    }
    Session session;
    for (auto _ : state) {
        if (!session.run(modeConfig(state.range(0) == 0, false), files,
                         pal_engine::Pace::RealTime)) {
            state.SkipWithError("the engine refused the recording");
            return;
        }
        std::vector<double> latencies;
        for (const Session::Final& final : session.finals()) {
            const auto lastWord = session.started() +
                                  std::chrono::milliseconds(numberAfter(final.json, "end_ms"));
            latencies.push_back(
                    std::chrono::duration<double, std::milli>(final.delivered - lastWord).count());
        }
        if (latencies.empty()) {
            state.SkipWithError("no result");
            return;
        }
        double sum = 0;
        for (double latency : latencies) sum += latency;
        state.SetIterationTime(sum / 1000 / static_cast<double>(latencies.size()));
        state.counters["results"] = static_cast<double>(latencies.size());
        state.counters["mean_ms"] = sum / static_cast<double>(latencies.size());
        state.counters["max_ms"] = *std::max_element(latencies.begin(), latencies.end());
        state.counters["max_over_silence_ms"] = state.counters["max_ms"] - 500;
    }
    unlink(silence.c_str());
}

// Apertium's time per result on the buffering results of the recordings, its pipeline started
// (Arg: language id 3 es-ES, 11 ca-ES, 60 gl-ES). With diarization on, the engine raises an
// utterance's speakers just before it translates the utterance's result: the time from that
// event to the result is the translation's.
void BM_TranslationLatency(benchmark::State& state) {
    pal_asr_config config = modeConfig(false, false);
    config.enable_translation = 1;
    config.output_language_id = static_cast<int32_t>(state.range(0));
    config.enable_speaker_diarization = 1;
    Session session;
    // The stream keeps its pipeline from one start to the next: this run starts it.
    if (!session.run(config, {kRecordings + kNames[0] + ".wav"}, pal_engine::Pace::Fast)) {
        state.SkipWithError("no translator");
        return;
    }
    for (auto _ : state) {
        std::vector<double> times;
        for (const char* name : kNames) {
            if (!session.run(config, {kRecordings + name + ".wav"}, pal_engine::Pace::Fast)) {
                state.SkipWithError("the engine refused the recording");
                return;
            }
            for (const Session::Final& final : session.finals()) {
                if (final.json.find("\"translation_error\"") != std::string::npos) {
                    state.SkipWithError("a translation failed");
                    return;
                }
                times.push_back(
                        std::chrono::duration<double, std::milli>(final.delivered - final.previous)
                                .count());
            }
        }
        double total = 0;
        for (double ms : times) total += ms;
        state.SetIterationTime(total / 1000 / static_cast<double>(times.size()));
        state.counters["mean_ms"] = total / static_cast<double>(times.size());
        state.counters["max_ms"] = *std::max_element(times.begin(), times.end());
    }
}

// The diarization error rate of the engine in buffering mode on the recording of `turns`.
void measureDiarization(benchmark::State& state, const std::vector<voxa_bench::Turn>& turns) {
    char directory[] = "/tmp/voxa-bench-XXXXXX";
    voxa_bench::Recording recording;
    if (mkdtemp(directory) == nullptr || !voxa_bench::makeRecording(turns, directory, &recording)) {
        state.SkipWithError("espeak-ng failed");
        return;
    }
    pal_asr_config config = modeConfig(false, false);
    config.enable_speaker_diarization = 1;
    Session session;
    for (auto _ : state) {
        const double before = cpuSeconds();
        if (!session.run(config, recording.files, pal_engine::Pace::Fast)) {
            state.SkipWithError("the engine refused the recording");
            return;
        }
        state.SetIterationTime(cpuSeconds() - before);
        const std::vector<Segment> said = session.speakers();
        const voxa_bench::ErrorRate rate = voxa_bench::diarizationErrorRate(recording.speech, said);
        int32_t speakers = 0;
        for (const Segment& turn : said) speakers = std::max(speakers, turn.speaker);
        state.counters["der_percent"] = 100 * rate.total();
        state.counters["missed_percent"] = 100 * rate.missed;
        state.counters["false_alarm_percent"] = 100 * rate.falseAlarm;
        state.counters["confusion_percent"] = 100 * rate.confusion;
        state.counters["speakers_found"] = speakers;
    }
    for (const std::string& file : recording.files) {
        if (file.rfind(directory, 0) == 0) unlink(file.c_str());
    }
    rmdir(directory);
}

// Diarization error rate: Arg 2 or 3 espeak-ng voices taking turns with pauses between them, 0
// LibriVox recordings alternating with an espeak-ng voice.
void BM_DiarizationErrorRate(benchmark::State& state) {
    std::vector<voxa_bench::Turn> turns;
    if (state.range(0) > 0) {
        turns = voxa_bench::conversation(static_cast<int>(state.range(0)), kTurns);
    } else {
        const std::vector<voxa_bench::Turn> voice =
                voxa_bench::conversation(2, voxa_bench::quickOr<size_t>(2, 12));
        for (size_t i = 0; i < kNames.size(); ++i) {
            voxa_bench::Turn recorded;
            recorded.speaker = 1;
            recorded.file = kRecordings + kNames[i] + ".wav";
            recorded.pauseMs = i == 0 ? 0 : 600;
            turns.push_back(recorded);
            turns.push_back(voice[2 * i + 1]);
            turns.back().pauseMs = 400;
        }
    }
    measureDiarization(state, turns);
}

// Diarization error rate of Arg 3 or 4 espeak-ng voices whose turns follow each other without a
// pause, as people talk.
void BM_DiarizationErrorRateWithoutPauses(benchmark::State& state) {
    measureDiarization(state, voxa_bench::unbrokenConversation(static_cast<int>(state.range(0)),
                                                               voxa_bench::quickOr<size_t>(3, 15)));
}

// Manual times: CPU seconds of recognition, mean seconds of latency or translation.
BENCHMARK(BM_WordErrorRate)
        ->ArgName("mode")
        ->Arg(0)
        ->Arg(1)
        ->Arg(2)
        ->UseManualTime()
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FinalLatency)
        ->ArgName("mode")
        ->Arg(0)
        ->Arg(1)
        ->UseManualTime()
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TranslationLatency)
        ->ArgName("language")
        ->Arg(3)
        ->Arg(11)
        ->Arg(60)
        ->UseManualTime()
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DiarizationErrorRate)
        ->ArgName("voices")
        ->Arg(2)
        ->Arg(3)
        ->Arg(0)
        ->UseManualTime()
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DiarizationErrorRateWithoutPauses)
        ->ArgName("voices")
        ->Arg(3)
        ->Arg(4)
        ->UseManualTime()
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
