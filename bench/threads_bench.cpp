// A thread's whole life, beside the standard library's.
#include "TavPort.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <thread>

namespace {

std::atomic<uint32_t> ran = 0;

uint32_t Count(void*) {
    return ran.fetch_add(1, std::memory_order_relaxed);
}

} // namespace

static void CreateRunWaitClose(benchmark::State& state) {
    for (auto _ : state) {
        OpacTavThread* thread = TavCreateThread(Count, nullptr, 0, 0);
        TavWaitThread(thread, TAV_INFINITE);
        TavCloseThreadRef(thread);
    }
}
BENCHMARK(CreateRunWaitClose)->UseRealTime();

static void HostCreateRunJoin(benchmark::State& state) {
    for (auto _ : state) {
        std::thread(Count, nullptr).join();
    }
}
BENCHMARK(HostCreateRunJoin)->UseRealTime();
