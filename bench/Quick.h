// How much the benchmarks measure: everything (make bench), or, with VOXA_BENCH_QUICK set in the
// environment (make test), each benchmark once on the least data, to prove that it still builds
// and runs. Quick figures mean nothing.
#ifndef VOXA_BENCH_QUICK_H
#define VOXA_BENCH_QUICK_H

#include <cstddef>
#include <cstdlib>
#include <iterator>
#include <vector>

namespace voxa_bench {

inline const bool kQuick = std::getenv("VOXA_BENCH_QUICK") != nullptr;

// `full` in a full run, `quick` in a quick one.
template <typename T>
T quickOr(T quick, T full) {
    return kQuick ? quick : full;
}

// The items of a data set that a run measures: all of them, or the first `quickCount`.
template <typename T, size_t N>
std::vector<T> measured(const T (&items)[N], size_t quickCount = 1) {
    return std::vector<T>(std::begin(items), std::begin(items) + (kQuick ? quickCount : N));
}

}  // namespace voxa_bench

#endif  // VOXA_BENCH_QUICK_H
