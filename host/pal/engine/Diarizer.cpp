#include "Diarizer.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "FrontEnd.h"

namespace pal_engine {

namespace {

// Speech is louder than the quietest tenth of an utterance by this share of the way up to its
// loudest twentieth; pauses shorter than kBridgeMs between speech are speech, stretches shorter
// than kMinStretch frames are not.
constexpr float kSpeechLevel = 0.35f;
constexpr int64_t kBridgeMs = 300;
constexpr int64_t kMinStretch = 10;
// Cepstra kept while no utterance ends: a minute.
constexpr size_t kMaxFrames = 6000;
// Speaker-change detection: each side of a change has at least kMinSide frames; the window
// starts at kWindow frames, grows by kGrow up to kMaxWindow, then slides; candidates every kStep.
constexpr size_t kMinSide = 100;
constexpr size_t kWindow = 300;
constexpr size_t kGrow = 100;
constexpr size_t kMaxWindow = 1000;
constexpr size_t kStep = 5;
// Weights of the BIC penalty for a change and for keeping two clusters apart.
constexpr double kChangePenalty = 1.3;
constexpr double kMergePenalty = 1.1;
// Pieces shorter than this are too short to found a speaker: they go to the closest cluster.
// Speakers heard for less than this have no model to resegment with.
constexpr double kMinClusterFrames = 100;
// Resegmentation: passes, and the log-likelihood a change of speaker must gain.
constexpr int kResegmentPasses = 2;
constexpr double kSwitchPenalty = 100;
// Pieces remembered; past it the oldest ones fold into a later piece of the same speaker, which
// keeps the cost of clustering bounded.
constexpr size_t kMaxPieces = 48;

// The BIC penalty of a full-covariance Gaussian more, over `count` frames.
double penalty(int dimension, double count) {
    const double parameters = dimension + dimension * (dimension + 1) / 2.0;
    return 0.5 * parameters * std::log(count);
}

// How much better two Gaussians explain `a` and `b` than one does, less the penalty.
double separation(const Statistics& a, const Statistics& b, double weight, int dimension) {
    Statistics both = a;
    both.merge(b);
    return 0.5 * (both.count * both.logDeterminant() - a.count * a.logDeterminant() -
                  b.count * b.logDeterminant()) -
           weight * penalty(dimension, both.count);
}

}  // namespace

Diarizer::Diarizer(int frameSize) : mFrameSize(frameSize), mDimension(frameSize - 1) {}

void Diarizer::addFrames(const float* frames, size_t count) {
    mFrames.insert(mFrames.end(), frames, frames + count * static_cast<size_t>(mFrameSize));
    const size_t kept = mFrames.size() / static_cast<size_t>(mFrameSize);
    if (kept > kMaxFrames) {
        const size_t dropped = kept - kMaxFrames;
        mFrames.erase(mFrames.begin(),
                      mFrames.begin() + static_cast<std::ptrdiff_t>(dropped * mFrameSize));
        mFirstFrame += static_cast<int64_t>(dropped);
    }
}

std::vector<SpeakerTurn> Diarizer::assign(const Span& utterance) {
    const size_t size = static_cast<size_t>(mFrameSize);
    const int64_t kept = static_cast<int64_t>(mFrames.size() / size);
    const int64_t begin = std::clamp<int64_t>(utterance.startMs / kFrameMs - mFirstFrame, 0, kept);
    const int64_t end = std::clamp<int64_t>(utterance.endMs / kFrameMs - mFirstFrame, begin, kept);
    // Speech: frames whose energy stands well above the utterance's quietest.
    std::vector<float> energies;
    for (int64_t f = begin; f < end; ++f)
        energies.push_back(mFrames[static_cast<size_t>(f) * size]);
    std::vector<float> sorted = energies;
    std::sort(sorted.begin(), sorted.end());
    std::vector<std::pair<int64_t, int64_t>> stretches;
    if (!sorted.empty()) {
        const float floor = sorted[sorted.size() / 10];
        const float peak = sorted[sorted.size() * 19 / 20];
        const float threshold = floor + kSpeechLevel * (peak - floor);
        for (int64_t f = begin; f < end; ++f) {
            if (energies[static_cast<size_t>(f - begin)] < threshold) {
                continue;
            }
            if (!stretches.empty() && f - stretches.back().second <= kBridgeMs / kFrameMs) {
                stretches.back().second = f + 1;
            } else {
                stretches.push_back({f, f + 1});
            }
        }
    }
    stretches.erase(std::remove_if(stretches.begin(), stretches.end(),
                                   [](const auto& s) { return s.second - s.first < kMinStretch; }),
                    stretches.end());
    // Their cepstra without the energy, end to end, and the frame of the recording of each.
    std::vector<float> speech;
    std::vector<int64_t> frameOf;
    for (const auto& [first, last] : stretches) {
        for (int64_t f = first; f < last; ++f) {
            const float* frame = mFrames.data() + static_cast<size_t>(f) * size;
            speech.insert(speech.end(), frame + 1, frame + mFrameSize);
            frameOf.push_back(mFirstFrame + f);
        }
    }
    mFrames.erase(mFrames.begin(), mFrames.begin() + static_cast<std::ptrdiff_t>(end * mFrameSize));
    mFirstFrame += end;
    if (frameOf.empty()) {
        return {};
    }

    // One new piece between each two changes of speaker.
    std::vector<size_t> bounds = changes(speech);
    bounds.insert(bounds.begin(), 0);
    bounds.push_back(frameOf.size());
    const size_t first = mPieces.size();
    for (size_t b = 0; b + 1 < bounds.size(); ++b) {
        Piece piece{Statistics(mDimension), 0};
        for (size_t f = bounds[b]; f < bounds[b + 1]; ++f) {
            piece.statistics.add(speech.data() + f * static_cast<size_t>(mDimension));
        }
        mPieces.push_back(piece);
    }
    const int32_t known = mSpeakers;
    label(first);
    for (int pass = 0; pass < kResegmentPasses; ++pass) {
        if (!resegment(speech, first, &bounds)) break;
    }
    renumber(first, known);
    // The turns: runs of consecutive frames of one speaker.
    std::vector<SpeakerTurn> turns;
    for (size_t b = 0; b + 1 < bounds.size(); ++b) {
        const int32_t speaker = mPieces[first + b].speaker;
        for (size_t f = bounds[b]; f < bounds[b + 1]; ++f) {
            const int64_t startMs = frameOf[f] * kFrameMs;
            const bool follows = f > 0 && frameOf[f] == frameOf[f - 1] + 1;
            if (follows && !turns.empty() && turns.back().speaker == speaker) {
                turns.back().span.endMs = startMs + kFrameMs;
            } else {
                turns.push_back({speaker, {startMs, startMs + kFrameMs}});
            }
        }
    }

    // Old pieces fold into a later piece of the same speaker, which keeps their evidence.
    while (mPieces.size() > kMaxPieces) {
        for (size_t later = 1; later < mPieces.size(); ++later) {
            if (mPieces[later].speaker == mPieces[0].speaker) {
                mPieces[later].statistics.merge(mPieces[0].statistics);
                break;
            }
        }
        mPieces.erase(mPieces.begin());
    }
    return turns;
}

bool Diarizer::resegment(const std::vector<float>& frames, size_t first,
                         std::vector<size_t>* bounds) {
    // The Gaussian of each speaker heard long enough, from all of its pieces.
    std::vector<int32_t> speakers;
    std::vector<Statistics> heard;
    for (const Piece& piece : mPieces) {
        const size_t s = static_cast<size_t>(
                std::find(speakers.begin(), speakers.end(), piece.speaker) - speakers.begin());
        if (s == speakers.size()) {
            speakers.push_back(piece.speaker);
            heard.emplace_back(mDimension);
        }
        heard[s].merge(piece.statistics);
    }
    std::vector<Gaussian> models;
    std::vector<int32_t> speakerOf;
    for (size_t s = 0; s < speakers.size(); ++s) {
        if (heard[s].count >= kMinClusterFrames) {
            models.emplace_back(heard[s]);
            speakerOf.push_back(speakers[s]);
        }
    }
    if (models.size() < 2) {
        return false;
    }
    // Viterbi: the likeliest speaker of each frame, a change of speaker costing kSwitchPenalty.
    const size_t dimension = static_cast<size_t>(mDimension);
    const size_t n = frames.size() / dimension;
    const size_t m = models.size();
    std::vector<double> score(m, 0.0);
    std::vector<double> next(m);
    std::vector<double> scratch;
    std::vector<size_t> from(n * m);
    for (size_t t = 0; t < n; ++t) {
        const size_t best =
                static_cast<size_t>(std::max_element(score.begin(), score.end()) - score.begin());
        for (size_t k = 0; k < m; ++k) {
            const bool change = score[best] - kSwitchPenalty > score[k];
            from[t * m + k] = change ? best : k;
            next[k] = (change ? score[best] - kSwitchPenalty : score[k]) +
                      models[k].score(frames.data() + t * dimension, &scratch);
        }
        score.swap(next);
    }
    std::vector<size_t> path(n);
    size_t k = static_cast<size_t>(std::max_element(score.begin(), score.end()) - score.begin());
    for (size_t t = n; t-- > 0;) {
        path[t] = k;
        k = from[t * m + k];
    }
    // The new pieces: one per run of frames of one speaker.
    mPieces.erase(mPieces.begin() + static_cast<std::ptrdiff_t>(first), mPieces.end());
    bounds->assign(1, 0);
    for (size_t t = 1; t <= n; ++t) {
        if (t == n || path[t] != path[t - 1]) {
            Piece piece{Statistics(mDimension), speakerOf[path[bounds->back()]]};
            for (size_t f = bounds->back(); f < t; ++f) {
                piece.statistics.add(frames.data() + f * dimension);
            }
            mPieces.push_back(piece);
            bounds->push_back(t);
        }
    }
    return true;
}

void Diarizer::renumber(size_t first, int32_t known) {
    std::vector<int32_t> numbers(static_cast<size_t>(mSpeakers - known), 0);
    mSpeakers = known;
    for (size_t p = first; p < mPieces.size(); ++p) {
        int32_t& speaker = mPieces[p].speaker;
        if (speaker > known) {
            int32_t& number = numbers[static_cast<size_t>(speaker - known - 1)];
            if (number == 0) {
                number = ++mSpeakers;
            }
            speaker = number;
        }
    }
}

std::vector<size_t> Diarizer::changes(const std::vector<float>& frames) const {
    const size_t dimension = static_cast<size_t>(mDimension);
    const size_t n = frames.size() / dimension;
    auto statistics = [&](size_t begin, size_t end) {
        Statistics made(mDimension);
        for (size_t f = begin; f < end; ++f) made.add(frames.data() + f * dimension);
        return made;
    };
    std::vector<size_t> found;
    size_t begin = 0;
    size_t end = std::min(n, kWindow);
    while (end - begin >= 2 * kMinSide) {
        const Statistics window = statistics(begin, end);
        Statistics left = statistics(begin, begin + kMinSide);
        double best = 0;
        size_t bestAt = 0;
        for (size_t at = begin + kMinSide; at + kMinSide <= end; at += kStep) {
            Statistics right = window;
            right.remove(left);
            double gain = separation(left, right, kChangePenalty, mDimension);
            if (gain > best) {
                best = gain;
                bestAt = at;
            }
            for (size_t f = at; f < std::min(at + kStep, end); ++f) {
                left.add(frames.data() + f * dimension);
            }
        }
        if (bestAt != 0) {
            found.push_back(bestAt);
            begin = bestAt;
            end = std::min(n, begin + kWindow);
            continue;
        }
        if (end == n) {
            break;
        }
        end = std::min(n, end + kGrow);
        if (end - begin > kMaxWindow) {
            begin = end - kMaxWindow;
        }
    }
    return found;
}

std::vector<size_t> Diarizer::cluster() const {
    std::vector<Statistics> clusters;
    std::vector<size_t> of(mPieces.size());
    std::vector<bool> alive(mPieces.size());
    bool anyLong = false;
    for (size_t p = 0; p < mPieces.size(); ++p) {
        clusters.push_back(mPieces[p].statistics);
        of[p] = p;
        alive[p] = mPieces[p].statistics.count >= kMinClusterFrames;
        anyLong = anyLong || alive[p];
    }
    if (!anyLong) {
        alive.assign(alive.size(), true);
    }
    // gains[i][j], j < i: how much better i and j stay apart.
    std::vector<std::vector<double>> gains(clusters.size());
    for (size_t i = 0; i < clusters.size(); ++i) {
        for (size_t j = 0; j < i; ++j) {
            gains[i].push_back(alive[i] && alive[j] ? separation(clusters[i], clusters[j],
                                                                 kMergePenalty, mDimension)
                                                    : 0);
        }
    }
    for (;;) {
        double lowest = 0;
        size_t into = 0;
        size_t from = 0;
        for (size_t i = 0; i < clusters.size(); ++i) {
            for (size_t j = 0; alive[i] && j < i; ++j) {
                if (alive[j] && gains[i][j] < lowest) {
                    lowest = gains[i][j];
                    into = j;
                    from = i;
                }
            }
        }
        if (into == from) {
            break;
        }
        clusters[into].merge(clusters[from]);
        alive[from] = false;
        for (size_t& c : of) {
            if (c == from) c = into;
        }
        for (size_t k = 0; k < clusters.size(); ++k) {
            if (!alive[k] || k == into) continue;
            double gain = separation(clusters[into], clusters[k], kMergePenalty, mDimension);
            if (k < into) {
                gains[into][k] = gain;
            } else {
                gains[k][into] = gain;
            }
        }
    }
    // A short piece joins the cluster that it departs from least.
    for (size_t p = 0; p < mPieces.size(); ++p) {
        if (alive[of[p]]) continue;
        double least = std::numeric_limits<double>::max();
        for (size_t c = 0; c < clusters.size(); ++c) {
            if (!alive[c]) continue;
            double gain = separation(mPieces[p].statistics, clusters[c], 0, mDimension);
            if (gain < least) {
                least = gain;
                of[p] = c;
            }
        }
    }
    return of;
}

void Diarizer::label(size_t first) {
    const std::vector<size_t> of = cluster();
    // Each cluster takes the speaker that most of its reported frames had, each speaker going
    // to one cluster at most; a cluster left without one is a new speaker.
    struct Vote {
        double frames;
        size_t cluster;
        int32_t speaker;
    };
    std::vector<Vote> votes;
    for (size_t p = 0; p < first; ++p) {
        auto same = [&](const Vote& v) {
            return v.cluster == of[p] && v.speaker == mPieces[p].speaker;
        };
        auto found = std::find_if(votes.begin(), votes.end(), same);
        if (found == votes.end()) {
            votes.push_back({mPieces[p].statistics.count, of[p], mPieces[p].speaker});
        } else {
            found->frames += mPieces[p].statistics.count;
        }
    }
    std::sort(votes.begin(), votes.end(),
              [](const Vote& a, const Vote& b) { return a.frames > b.frames; });
    std::vector<int32_t> speakerOf(mPieces.size(), 0);
    std::vector<bool> taken(static_cast<size_t>(mSpeakers) + 1, false);
    for (const Vote& vote : votes) {
        if (speakerOf[vote.cluster] == 0 && !taken[static_cast<size_t>(vote.speaker)]) {
            speakerOf[vote.cluster] = vote.speaker;
            taken[static_cast<size_t>(vote.speaker)] = true;
        }
    }
    for (size_t p = first; p < mPieces.size(); ++p) {
        if (speakerOf[of[p]] == 0) {
            speakerOf[of[p]] = ++mSpeakers;
        }
        mPieces[p].speaker = speakerOf[of[p]];
    }
}

}  // namespace pal_engine
