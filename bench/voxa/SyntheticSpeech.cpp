#include "SyntheticSpeech.h"

#include <sndfile.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>

extern char** environ;

namespace voxa_bench {

namespace {

constexpr int64_t kFrameMs = 10;
constexpr int64_t kBridgeMs = 300;

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

bool readMono(const std::string& path, std::vector<short>* samples, int* rate) {
    SF_INFO info = {};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr || info.channels != 1) {
        if (file != nullptr) sf_close(file);
        return false;
    }
    samples->resize(static_cast<size_t>(info.frames));
    sf_count_t read = sf_readf_short(file, samples->data(), info.frames);
    sf_close(file);
    *rate = info.samplerate;
    return read == info.frames;
}

bool writeSilence(const std::string& path, int rate, int64_t ms) {
    SF_INFO info = {};
    info.samplerate = rate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr) return false;
    std::vector<short> zeros(static_cast<size_t>(rate * ms / 1000), 0);
    bool written = sf_writef_short(file, zeros.data(), static_cast<sf_count_t>(zeros.size())) ==
                   static_cast<sf_count_t>(zeros.size());
    sf_close(file);
    return written;
}

// The speech of `samples`: 10 ms frames louder than -40 dBFS, short pauses bridged.
void addSpeech(const std::vector<short>& samples, int rate, int32_t speaker, int64_t offsetMs,
               std::vector<Segment>* speech) {
    const size_t frame = static_cast<size_t>(rate * kFrameMs / 1000);
    bool open = false;
    for (size_t f = 0; (f + 1) * frame <= samples.size(); ++f) {
        double energy = 0;
        for (size_t i = f * frame; i < (f + 1) * frame; ++i)
            energy += double(samples[i]) * samples[i];
        if (std::sqrt(energy / frame) < 32768 * 0.01) continue;
        const int64_t startMs = offsetMs + static_cast<int64_t>(f) * kFrameMs;
        if (open && startMs - speech->back().endMs < kBridgeMs) {
            speech->back().endMs = startMs + kFrameMs;
        } else {
            speech->push_back({speaker, startMs, startMs + kFrameMs});
            open = true;
        }
    }
}

}  // namespace

bool makeRecording(const std::vector<Turn>& turns, const std::string& directory,
                   Recording* recording) {
    int64_t atMs = 0;
    for (size_t t = 0; t < turns.size(); ++t) {
        const Turn& turn = turns[t];
        std::string path = turn.file;
        if (path.empty()) {
            path = directory + "/turn" + std::to_string(t) + ".wav";
            if (!speak(turn, path)) return false;
        }
        std::vector<short> samples;
        int rate = 0;
        if (!readMono(path, &samples, &rate)) return false;
        if (turn.pauseMs > 0) {
            const std::string pause = directory + "/pause" + std::to_string(t) + ".wav";
            if (!writeSilence(pause, rate, turn.pauseMs)) return false;
            recording->files.push_back(pause);
            atMs += turn.pauseMs;
        }
        recording->files.push_back(path);
        addSpeech(samples, rate, turn.speaker, atMs, &recording->speech);
        atMs += static_cast<int64_t>(samples.size()) * 1000 / rate;
    }
    return true;
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
    static const Turn kVoices[] = {
            {1, "en-us+m1", 40, 160, "", "", 0},
            {2, "en-gb+f2", 75, 150, "", "", 0},
            {3, "en-us+m7", 55, 175, "", "", 0},
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

ErrorRate diarizationErrorRate(const std::vector<Segment>& reference,
                               const std::vector<Segment>& said) {
    auto frames = [](const std::vector<Segment>& segments) {
        std::map<int64_t, int32_t> speakerAt;
        for (const Segment& s : segments) {
            for (int64_t f = s.startMs / kFrameMs; f < s.endMs / kFrameMs; ++f) {
                speakerAt.emplace(f, s.speaker);
            }
        }
        return speakerAt;
    };
    const std::map<int64_t, int32_t> truth = frames(reference);
    const std::map<int64_t, int32_t> claim = frames(said);
    ErrorRate rate;
    if (truth.empty()) return rate;
    std::map<std::pair<int32_t, int32_t>, double> together;  // (true, said) -> frames
    std::vector<int32_t> trueSpeakers;
    std::vector<int32_t> saidSpeakers;
    for (const auto& [frame, speaker] : truth) {
        auto found = claim.find(frame);
        if (found == claim.end()) {
            rate.missed += 1;
        } else {
            together[{speaker, found->second}] += 1;
        }
        if (std::find(trueSpeakers.begin(), trueSpeakers.end(), speaker) == trueSpeakers.end()) {
            trueSpeakers.push_back(speaker);
        }
    }
    double overlap = 0;
    for (const auto& [frame, speaker] : claim) {
        if (truth.count(frame) == 0) {
            rate.falseAlarm += 1;
        } else {
            overlap += 1;
        }
        if (std::find(saidSpeakers.begin(), saidSpeakers.end(), speaker) == saidSpeakers.end()) {
            saidSpeakers.push_back(speaker);
        }
    }
    // The mapping of true speakers to distinct said ones (or none) that agrees most.
    std::vector<bool> used(saidSpeakers.size(), false);
    std::function<double(size_t)> best = [&](size_t t) -> double {
        if (t == trueSpeakers.size()) return 0;
        double most = best(t + 1);
        for (size_t s = 0; s < saidSpeakers.size(); ++s) {
            if (used[s]) continue;
            used[s] = true;
            auto found = together.find({trueSpeakers[t], saidSpeakers[s]});
            most = std::max(most, (found == together.end() ? 0 : found->second) + best(t + 1));
            used[s] = false;
        }
        return most;
    };
    rate.confusion = overlap - best(0);
    const double total = static_cast<double>(truth.size());
    rate.missed /= total;
    rate.falseAlarm /= total;
    rate.confusion /= total;
    return rate;
}

}  // namespace voxa_bench
