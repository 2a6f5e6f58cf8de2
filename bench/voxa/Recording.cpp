#include "Recording.h"

#include <sndfile.h>

namespace voxa_bench {

namespace {

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

bool writeMono(const std::string& path, int rate, const std::vector<short>& samples) {
    SF_INFO info = {};
    info.samplerate = rate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr) return false;
    bool written = sf_writef_short(file, samples.data(), static_cast<sf_count_t>(samples.size())) ==
                   static_cast<sf_count_t>(samples.size());
    sf_close(file);
    return written;
}

// Cuts `samples` to their speech, from its first frame to its last.
void trim(std::vector<short>* samples, int rate) {
    std::vector<Segment> speech;
    appendSpeech(*samples, rate, 0, 0, &speech);
    if (speech.empty()) return;
    const size_t end = static_cast<size_t>(speech.back().endMs * rate / 1000);
    samples->resize(end);
    samples->erase(samples->begin(), samples->begin() + speech.front().startMs * rate / 1000);
}

}  // namespace

bool makeRecording(const std::vector<Turn>& turns, const std::string& directory,
                   Recording* recording) {
    int64_t atMs = 0;
    for (size_t t = 0; t < turns.size(); ++t) {
        const Turn& turn = turns[t];
        const std::string made = directory + "/turn" + std::to_string(t) + ".wav";
        std::string path = turn.file.empty() ? made : turn.file;
        if (turn.file.empty() && !speak(turn, path)) return false;
        std::vector<short> samples;
        int rate = 0;
        if (!readMono(path, &samples, &rate)) return false;
        if (turn.trimmed) {
            trim(&samples, rate);
            path = made;
            if (!writeMono(path, rate, samples)) return false;
        }
        if (turn.pauseMs > 0) {
            const std::string pause = directory + "/pause" + std::to_string(t) + ".wav";
            const std::vector<short> silence(static_cast<size_t>(rate * turn.pauseMs / 1000), 0);
            if (!writeMono(pause, rate, silence)) return false;
            recording->files.push_back(pause);
            atMs += turn.pauseMs;
        }
        recording->files.push_back(path);
        appendSpeech(samples, rate, turn.speaker, atMs, &recording->speech);
        atMs += static_cast<int64_t>(samples.size()) * 1000 / rate;
    }
    return true;
}

}  // namespace voxa_bench
