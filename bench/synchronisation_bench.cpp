// Synchronisation objects beside the host's own: pairs that meet nobody, a token between two threads, many
// waiters.
#include "TavPort.h"

#include <benchmark/benchmark.h>

#include <mutex>
#include <pthread.h>
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

static void EventSetAndWait(benchmark::State& state) {
    OpacTavEvent* event = TavCreateEvent(0, 0);
    for (auto _ : state) {
        benchmark::DoNotOptimize(TavSetEvent(event));
        benchmark::DoNotOptimize(TavWaitEvent(event, TAV_INFINITE));
    }
    TavCloseEvent(event);
}
BENCHMARK(EventSetAndWait);

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

// ---- A token between two threads; one iteration is there and back ----

static void PingPong(benchmark::State& state) {
    OpacTavEvent* ping = TavCreateEvent(0, 0);
    OpacTavEvent* pong = TavCreateEvent(0, 0);
    std::thread other([=] {
        while (TavWaitEvent(ping, TAV_INFINITE) == TAV_WAIT_OBJECT_0) {
            TavSetEvent(pong);
        }
    });
    for (auto _ : state) {
        TavSetEvent(ping);
        TavWaitEvent(pong, TAV_INFINITE);
    }
    TavCloseEvent(ping);
    other.join();
    TavCloseEvent(pong);
}
BENCHMARK(PingPong)->UseRealTime();

static void HostPingPong(benchmark::State& state) {
    struct alignas(64) Semaphore {
        sem_t semaphore;
    } ping{}, pong{};
    sem_init(&ping.semaphore, 0, 0);
    sem_init(&pong.semaphore, 0, 0);
    bool done = false;
    std::thread other([&] {
        for (sem_wait(&ping.semaphore); !done; sem_wait(&ping.semaphore)) {
            sem_post(&pong.semaphore);
        }
    });
    for (auto _ : state) {
        sem_post(&ping.semaphore);
        sem_wait(&pong.semaphore);
    }
    done = true;
    sem_post(&ping.semaphore);
    other.join();
}
BENCHMARK(HostPingPong)->UseRealTime();

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
            for (sem_wait(&gate); !done; sem_wait(&gate)) {
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
