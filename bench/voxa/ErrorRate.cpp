#include "ErrorRate.h"

#include <algorithm>
#include <functional>
#include <map>

namespace voxa_bench {

namespace {

constexpr int64_t kFrameMs = 10;

}  // namespace

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
