// Event delivery from the PAL's stream callback to the client's callback, for each payload kind
// (target: under 1 us uncontended), and what a waiting event thread costs while a binder thread
// holds the session's lock for a second (targets: under 0.01% of a core, delivery at most 1.5
// times a plain condition-variable wake after the lock comes free), beside a plain busy spin.

#include <aidl/vendor/orbo/hardware/voxa/BnVoxaCallback.h>
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <pal/fake_pal.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <ctime>
#include <future>
#include <thread>
#include <vector>

#include "Quick.h"
#include "VoxaSession.h"

namespace aidl::vendor::orbo::hardware::voxa {
namespace {

using fake_pal::FakePal;
using fake_pal::Function;

class CountingCallback : public BnVoxaCallback {
  public:
    ndk::ScopedAStatus onAsrEvent(int32_t, const VoxaEvent&) override {
        mCount++;
        mLastDelivery = std::chrono::steady_clock::now();
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus onSdzEvent(int32_t, const SpeakerDiarizationEvent&) override {
        mCount++;
        return ndk::ScopedAStatus::ok();
    }
    std::atomic<int64_t> mCount{0};
    std::chrono::steady_clock::time_point mLastDelivery;  // written by the delivering thread
};

// A listening session on the fake PAL, its logging silenced so that delivery itself is measured.
struct ListeningSession {
    ListeningSession() {
        __android_log_set_minimum_priority(ANDROID_LOG_ERROR);
        FakePal::instance().reset();
        session->loadModel(VoxaModel());
        VoxaConfig config;
        config.input_lang_code = "en-US";
        config.output_lang_code = "en-US";
        session->start(config);
        stream = FakePal::instance().openStreams().back();
    }
    ~ListeningSession() {
        session->close();
        __android_log_set_minimum_priority(ANDROID_LOG_DEFAULT);
    }
    int32_t deliver(uint32_t eventId, std::vector<uint8_t>& payload) {
        return VoxaSession::palCallback(
                stream, eventId, reinterpret_cast<unsigned int*>(payload.data()), payload.size(),
                reinterpret_cast<unsigned long>(session.get()));
    }

    PalWorker worker;
    std::shared_ptr<CountingCallback> client = ndk::SharedRefBase::make<CountingCallback>();
    std::shared_ptr<VoxaSession> session = std::make_shared<VoxaSession>(1, client, worker);
    pal_stream_handle* stream = nullptr;
};

std::vector<uint8_t> zeroed(size_t size) {
    return std::vector<uint8_t>(size, 0);
}

// One result with a short text, as a typical engine result.
void putResult(std::vector<uint8_t>& payload, size_t textOffset, const char* text) {
    uint32_t one = 1;
    std::memcpy(payload.data() + 4, &one, sizeof(one));
    std::memcpy(payload.data() + textOffset, text, std::strlen(text));
}

void BM_DeliverAsrEvent(benchmark::State& state) {
    ListeningSession listening;
    std::vector<uint8_t> payload = zeroed(8 + 5140);
    putResult(payload, 8 + 12, "the quick brown fox");
    for (auto _ : state) benchmark::DoNotOptimize(listening.deliver(0, payload));
    state.SetItemsProcessed(listening.client->mCount);
}
BENCHMARK(BM_DeliverAsrEvent);

void BM_DeliverTimestampEvent(benchmark::State& state) {
    ListeningSession listening;
    std::vector<uint8_t> payload = zeroed(8 + 14768);
    putResult(payload, 8 + 12, "the quick brown fox");
    int32_t words = 4;
    std::memcpy(payload.data() + 8 + 1056, &words, sizeof(words));
    for (auto _ : state) benchmark::DoNotOptimize(listening.deliver(1, payload));
    state.SetItemsProcessed(listening.client->mCount);
}
BENCHMARK(BM_DeliverTimestampEvent);

void BM_DeliverSdzEvent(benchmark::State& state) {
    ListeningSession listening;
    std::vector<uint8_t> payload = zeroed(16 + 2 * 144);
    uint32_t header[4] = {1, 0, 2, 1};  // one result, two speakers, flag set
    std::memcpy(payload.data(), header, sizeof(header));
    for (auto _ : state) benchmark::DoNotOptimize(listening.deliver(2, payload));
    state.SetItemsProcessed(listening.client->mCount);
}
BENCHMARK(BM_DeliverSdzEvent);

double threadCpuSeconds(pthread_t thread) {
    clockid_t clock;
    pthread_getcpuclockid(thread, &clock);
    timespec now;
    clock_gettime(clock, &now);
    return now.tv_sec + now.tv_nsec / 1e9;
}

const auto kHold =
        voxa_bench::quickOr(std::chrono::milliseconds(10), std::chrono::milliseconds(250));
const int kWaits = voxa_bench::quickOr(1, 31);

// CPU seconds a waiting thread uses per second of waiting, once it waits.
struct WaitCost {
    double cpu = 0;
    double wall = 0;

    void sample(std::thread& waiter) {
        std::this_thread::sleep_for(kHold / 10);
        auto start = std::chrono::steady_clock::now();
        double cpuStart = threadCpuSeconds(waiter.native_handle());
        std::this_thread::sleep_for(kHold);
        cpu += threadCpuSeconds(waiter.native_handle()) - cpuStart;
        wall += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    void report(benchmark::State& state) const { state.counters["cpu_per_wall"] = cpu / wall; }
};

double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

// Runs the calling thread on the first core alone. The threads of both measurements below then
// share one core: a wake that must bring another, idle core back first costs several times more
// on a virtual machine, and the kernel picks either case, which an unpinned run's scheduler
// trace shows making most of the difference between a delivery and a plain wake.
void pinToFirstCore() {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(0, &set);
    pthread_setaffinity_np(pthread_self(), sizeof(set), &set);
}

// How soon a thread blocked on a condition variable for kHold runs again after another thread
// notifies it and then waits: the floor under delivery_after_release_us.
double plainWakeSeconds() {
    std::mutex lock;
    std::condition_variable changed;
    bool notified = false;
    std::chrono::steady_clock::time_point woke;
    std::chrono::steady_clock::time_point notifiedAt;
    std::promise<void> woken;
    std::thread waiter([&] {
        pinToFirstCore();
        std::unique_lock<std::mutex> held(lock);
        changed.wait(held, [&] { return notified; });
        woke = std::chrono::steady_clock::now();
        woken.set_value();
    });
    std::thread notifier([&] {
        pinToFirstCore();
        std::this_thread::sleep_for(kHold);
        notifiedAt = std::chrono::steady_clock::now();
        {
            std::lock_guard<std::mutex> held(lock);
            notified = true;
        }
        changed.notify_one();
        woken.get_future().wait();
    });
    notifier.join();
    waiter.join();
    return std::chrono::duration<double>(woke - notifiedAt).count();
}

// When the session logged the exit line of its setParameter, the last thing it does before it
// lets its lock go: the moment the lock comes free, as near as the session's own log shows it.
std::atomic<std::chrono::steady_clock::time_point> gExitLogged;

void noteExitLine(const __android_logger_data*, const char* message) {
    if (std::strncmp(message, "setParameter: Exit", 18) == 0) {
        gExitLogged = std::chrono::steady_clock::now();
    }
}

// The event thread waits for a session lock that a binder thread holds inside a PAL call; then
// the time from the lock coming free to the delivery, against a plain wake measured alongside
// (medians, and their ratio).
void BM_WaitingEventThread(benchmark::State& state) {
    ListeningSession listening;
    __android_log_set_minimum_priority(ANDROID_LOG_INFO);
    __android_log_set_logger(&noteExitLine);
    std::vector<uint8_t> payload = zeroed(8 + 5140);
    WaitCost cost;
    std::vector<double> deliveries;
    std::vector<double> wakes;
    for (auto _ : state) {
        std::promise<void> entered;
        std::promise<void> release;
        FakePal::instance().setHook(Function::StreamSetParam, [&](const fake_pal::Call&) {
            entered.set_value();
            release.get_future().wait();
        });
        // Like a binder thread back in its pool, it waits once its call has returned.
        std::promise<void> delivered;
        std::thread binder([&] {
            pinToFirstCore();
            listening.session->setParameter(VoxaParameter());
            delivered.get_future().wait();
        });
        entered.get_future().wait();
        FakePal::instance().setHook(Function::StreamSetParam, nullptr);

        std::thread eventThread([&] {
            pinToFirstCore();
            listening.deliver(0, payload);
        });
        cost.sample(eventThread);
        release.set_value();
        eventThread.join();
        delivered.set_value();
        binder.join();
        deliveries.push_back(
                std::chrono::duration<double>(listening.client->mLastDelivery - gExitLogged.load())
                        .count());
        // The plain wake varies more from one time to the next; it gets more samples.
        for (int i = 0; i < 3; ++i) wakes.push_back(plainWakeSeconds());
    }
    __android_log_set_logger(&__android_log_stderr_logger);
    __android_log_set_minimum_priority(ANDROID_LOG_ERROR);
    cost.report(state);
    state.counters["delivery_after_release_us"] = 1e6 * median(deliveries);
    state.counters["plain_wake_us"] = 1e6 * median(wakes);
    state.counters["delivery_to_wake_ratio"] = median(deliveries) / median(wakes);
}
BENCHMARK(BM_WaitingEventThread)->Iterations(kWaits)->UseRealTime();

// The same wait as a plain busy spin on try_lock.
void BM_BusySpin(benchmark::State& state) {
    WaitCost cost;
    for (auto _ : state) {
        std::mutex lock;
        std::unique_lock<std::mutex> held(lock);
        std::atomic<bool> stop{false};
        std::thread spinner([&] {
            while (!lock.try_lock() && !stop) {
            }
        });
        cost.sample(spinner);
        stop = true;
        spinner.join();
    }
    cost.report(state);
}
BENCHMARK(BM_BusySpin)->Iterations(voxa_bench::quickOr(1, 3))->UseRealTime();

}  // namespace
}  // namespace aidl::vendor::orbo::hardware::voxa
