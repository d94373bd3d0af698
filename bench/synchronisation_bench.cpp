// Synchronisation objects beside the host's own: pairs that meet nobody, looks at what is not there, a token
// between two threads on one processor and across two, many waiters.
#include "TavPort.h"

#include <benchmark/benchmark.h>

#include <condition_variable>
#include <mutex>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <thread>
#include <vector>

// ---- Pairs that meet nobody ----

static void Semaphore(benchmark::State& state) {
    MPSemaphoreID semaphore = TavCreateSemaphore(0, 10);
    for (auto _ : state) {
        benchmark::DoNotOptimize(TavReleaseSemaphore(semaphore));
        benchmark::DoNotOptimize(TavWaitSemaphore(semaphore, TAV_INFINITE));
    }
    TavCloseSemaphore(semaphore);
}
BENCHMARK(Semaphore);

static void HostSemaphore(benchmark::State& state) {
    sem_t semaphore;
    sem_init(&semaphore, 0, 0);
    for (auto _ : state) {
        benchmark::DoNotOptimize(sem_post(&semaphore));
        benchmark::DoNotOptimize(sem_wait(&semaphore));
    }
    sem_destroy(&semaphore);
}
BENCHMARK(HostSemaphore);

static void Mutex(benchmark::State& state) {
    MPSemaphoreID mutex = TavCreateMutex(0);
    for (auto _ : state) {
        benchmark::DoNotOptimize(TavWaitMutex(mutex, TAV_INFINITE));
        benchmark::DoNotOptimize(TavReleaseMutex(mutex));
    }
    TavCloseMutex(mutex);
}
BENCHMARK(Mutex);

static void HostMutex(benchmark::State& state) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    for (auto _ : state) {
        benchmark::DoNotOptimize(pthread_mutex_lock(&mutex));
        benchmark::DoNotOptimize(pthread_mutex_unlock(&mutex));
    }
}
BENCHMARK(HostMutex);

static void CriticalSection(benchmark::State& state) {
    MPCriticalRegionID section = 0;
    TavInitCriticalSection(&section);
    for (auto _ : state) {
        benchmark::DoNotOptimize(TavEnterCriticalSection(&section));
        benchmark::DoNotOptimize(TavLeaveCriticalSection(&section));
    }
    TavDeleteCriticalSection(&section);
}
BENCHMARK(CriticalSection);

static void HostRecursiveMutex(benchmark::State& state) {
    std::recursive_mutex mutex;
    for (auto _ : state) {
        mutex.lock();
        mutex.unlock();
    }
}
BENCHMARK(HostRecursiveMutex);

// One iteration sets the event and waits for it; a manual-reset one is reset as well.
static void Event(benchmark::State& state) {
    auto manual = static_cast<int32_t>(state.range(0));
    OpacTavEvent* event = TavCreateEvent(manual, 0);
    for (auto _ : state) {
        benchmark::DoNotOptimize(TavSetEvent(event));
        benchmark::DoNotOptimize(TavWaitEvent(event, TAV_INFINITE));
        if (manual != 0) {
            benchmark::DoNotOptimize(TavResetEvent(event));
        }
    }
    TavCloseEvent(event);
}
BENCHMARK(Event)->ArgName("manual")->Arg(0)->Arg(1);

// The event that one writes with the host's means.
class HostEventObject {
public:
    explicit HostEventObject(bool manual) : manual_(manual) {}
    void Set() {
        std::lock_guard guard(mutex_);
        signalled_ = true;
        if (manual_) {
            changed_.notify_all();
        } else {
            changed_.notify_one();
        }
    }
    void Reset() {
        std::lock_guard guard(mutex_);
        signalled_ = false;
    }
    void Wait() {
        std::unique_lock guard(mutex_);
        changed_.wait(guard, [this] { return signalled_; });
        signalled_ = manual_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool signalled_ = false;
    bool manual_;
};

static void HostEvent(benchmark::State& state) {
    bool manual = state.range(0) != 0;
    HostEventObject event(manual);
    for (auto _ : state) {
        event.Set();
        event.Wait();
        if (manual) {
            event.Reset();
        }
    }
}
BENCHMARK(HostEvent)->ArgName("manual")->Arg(0)->Arg(1);

// ---- Looking at what is not there ----

static void PollSemaphore(benchmark::State& state) {
    MPSemaphoreID semaphore = TavCreateSemaphore(0, 1);
    for (auto _ : state) {
        benchmark::DoNotOptimize(TavWaitSemaphore(semaphore, 0));
    }
    TavCloseSemaphore(semaphore);
}
BENCHMARK(PollSemaphore);

static void PollEvent(benchmark::State& state) {
    OpacTavEvent* event = TavCreateEvent(0, 0);
    for (auto _ : state) {
        benchmark::DoNotOptimize(TavWaitEvent(event, 0));
    }
    TavCloseEvent(event);
}
BENCHMARK(PollEvent);

static void HostPoll(benchmark::State& state) {
    sem_t semaphore;
    sem_init(&semaphore, 0, 0);
    for (auto _ : state) {
        benchmark::DoNotOptimize(sem_trywait(&semaphore));
    }
    sem_destroy(&semaphore);
}
BENCHMARK(HostPoll);

// ---- A token between two threads; one iteration is there and back ----

// Keeps the calling thread on one of the processors that it may use, counted from 0.
static void StayOn(int which) {
    cpu_set_t allowed;
    sched_getaffinity(0, sizeof allowed, &allowed);
    for (int cpu = 0; cpu < CPU_SETSIZE; cpu++) {
        if (CPU_ISSET(cpu, &allowed) && which-- == 0) {
            cpu_set_t one;
            CPU_ZERO(&one);
            CPU_SET(cpu, &one);
            sched_setaffinity(0, sizeof one, &one);
            return;
        }
    }
}

// Lets the threads of a run stay where its argument says: 0 wherever the host puts them, 1 both on one
// processor, 2 on two.
class Placement {
public:
    explicit Placement(const benchmark::State& state) : where_(state.range(0)) {
        sched_getaffinity(0, sizeof before_, &before_);
    }
    ~Placement() { sched_setaffinity(0, sizeof before_, &before_); }
    void Here() const {
        if (where_ != 0) {
            StayOn(0);
        }
    }
    void There() const {
        sched_setaffinity(0, sizeof before_, &before_);
        if (where_ != 0) {
            StayOn(where_ == 2 ? 1 : 0);
        }
    }

private:
    int64_t where_;
    cpu_set_t before_{};
};

static void PingPong(benchmark::State& state) {
    OpacTavEvent* ping = TavCreateEvent(0, 0);
    OpacTavEvent* pong = TavCreateEvent(0, 0);
    Placement placement(state);
    std::thread other([=, &placement] {
        placement.There();
        while (TavWaitEvent(ping, TAV_INFINITE) == TAV_WAIT_OBJECT_0) {
            TavSetEvent(pong);
        }
    });
    placement.Here();
    for (auto _ : state) {
        TavSetEvent(ping);
        TavWaitEvent(pong, TAV_INFINITE);
    }
    TavCloseEvent(ping);
    other.join();
    TavCloseEvent(pong);
}
BENCHMARK(PingPong)->ArgName("processors")->Arg(0)->Arg(1)->Arg(2)->UseRealTime();

static void HostPingPong(benchmark::State& state) {
    struct alignas(64) Semaphore {
        sem_t semaphore;
    } ping{}, pong{};
    sem_init(&ping.semaphore, 0, 0);
    sem_init(&pong.semaphore, 0, 0);
    bool done = false;
    Placement placement(state);
    std::thread other([&] {
        placement.There();
        while (sem_wait(&ping.semaphore) == 0 && !done) {
            sem_post(&pong.semaphore);
        }
    });
    placement.Here();
    for (auto _ : state) {
        sem_post(&ping.semaphore);
        sem_wait(&pong.semaphore);
    }
    done = true;
    sem_post(&ping.semaphore);
    other.join();
}
BENCHMARK(HostPingPong)->ArgName("processors")->Arg(0)->Arg(1)->Arg(2)->UseRealTime();

// ---- Many objects at a time; the time for all ----

static void Objects(benchmark::State& state) {
    std::vector<OpacTavEvent*> events(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        for (OpacTavEvent*& event : events) event = TavCreateEvent(0, 1);
        for (OpacTavEvent* event : events) TavWaitEvent(event, 0);
        for (OpacTavEvent* event : events) TavCloseEvent(event);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(Objects)->Arg(1'000)->Arg(10'000)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);

// ---- Many waiters, each released once; the time for all ----

static void Waiters(benchmark::State& state) {
    auto count = static_cast<uint32_t>(state.range(0));
    MPSemaphoreID gate = TavCreateSemaphore(0, count);
    MPSemaphoreID back = TavCreateSemaphore(0, count);
    std::vector<std::thread> threads;
    for (uint32_t i = 0; i < count; i++) {
        threads.emplace_back([=] {
            while (TavWaitSemaphore(gate, TAV_INFINITE) == TAV_WAIT_OBJECT_0) {
                TavReleaseSemaphore(back);
            }
        });
    }
    for (auto _ : state) {
        for (uint32_t i = 0; i < count; i++) {
            TavReleaseSemaphore(gate);
        }
        for (uint32_t i = 0; i < count; i++) {
            TavWaitSemaphore(back, TAV_INFINITE);
        }
    }
    state.SetItemsProcessed(state.iterations() * count);
    TavCloseSemaphore(gate);
    for (std::thread& thread : threads) {
        thread.join();
    }
    TavCloseSemaphore(back);
}
BENCHMARK(Waiters)->Arg(10)->Arg(100)->Arg(1000)->UseRealTime();

static void HostWaiters(benchmark::State& state) {
    auto count = static_cast<uint32_t>(state.range(0));
    sem_t gate;
    sem_t back;
    sem_init(&gate, 0, 0);
    sem_init(&back, 0, 0);
    bool done = false;
    std::vector<std::thread> threads;
    for (uint32_t i = 0; i < count; i++) {
        threads.emplace_back([&] {
            while (sem_wait(&gate) == 0 && !done) {
                sem_post(&back);
            }
        });
    }
    for (auto _ : state) {
        for (uint32_t i = 0; i < count; i++) {
            sem_post(&gate);
        }
        for (uint32_t i = 0; i < count; i++) {
            sem_wait(&back);
        }
    }
    state.SetItemsProcessed(state.iterations() * count);
    done = true;
    for (uint32_t i = 0; i < count; i++) {
        sem_post(&gate);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}
BENCHMARK(HostWaiters)->Arg(10)->Arg(100)->Arg(1000)->UseRealTime();
