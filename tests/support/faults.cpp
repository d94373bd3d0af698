#include "support/faults.h"

#include "support/forward.h"

#include <array>
#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <mutex>
#include <new>
#include <ostream>
#include <unordered_set>

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* block, size_t size);
void __real_free(void* block);
}

namespace faults {
namespace {

// The bookkeeping must not meet itself: its own memory comes from behind the forwarding layer.
template <typename T>
struct Behind {
    using value_type = T;
    Behind() = default;
    template <typename U>
    Behind(const Behind<U>&) {}
    T* allocate(size_t count) {
        if (void* block = __real_malloc(count * sizeof(T))) return static_cast<T*>(block);
        throw std::bad_alloc();
    }
    void deallocate(T* block, size_t) { __real_free(block); }
    bool operator==(const Behind&) const { return true; }
};

struct State {
    std::mutex mutex;
    bool active = false;
    Fault fault;
    unsigned seen = 0;
    unsigned fired = 0;
    const char* firedAt = "";
    std::vector<const char*, Behind<const char*>> log;
    std::vector<size_t, Behind<size_t>> sizes;
    std::unordered_set<void*, std::hash<void*>, std::equal_to<>, Behind<void*>> heap;
};

// Never destroyed: memory is given back until the very end of the process.
State& TheState() {
    alignas(State) static char storage[sizeof(State)];
    static State* state = new (storage) State;
    return *state;
}

std::atomic<int> pauses{0};
std::array<std::atomic<long>, static_cast<size_t>(Kind::kCount)> open;
thread_local int depth = 0;
thread_local bool blockFailed = false;

bool Selects(const std::string& wanted, const char* name, bool isMemory) {
    return wanted.empty() || wanted == (isMemory ? "memory" : "seam") || wanted == name;
}

Verdict Decide(const char* name, bool fallible, bool isMemory, size_t size = 0) {
    State& state = TheState();
    std::lock_guard lock(state.mutex);
    if (!state.active || pauses > 0) return {};
    state.log.push_back(name);
    if (isMemory) state.sizes.push_back(size);
    if (!fallible || !Selects(state.fault.operation, name, isMemory)) return {};
    ++state.seen;
    bool hit = state.fault.call != 0 &&
               (state.seen == state.fault.call || (state.fault.lasting && state.seen > state.fault.call));
    if (!hit) return {};
    ++state.fired;
    state.firedAt = name;
    return {false, true, state.fault.effect == Effect::kPartial, state.fault.code};
}

bool IsMemory(const std::string& name) {
    return name == "malloc" || name == "calloc" || name == "realloc" || name == "operator new";
}

// Blocks of the code under test are known one by one; what the provider keeps is its own affair.
void* Known(void* block) {
    if (!block || depth > 0) return block;
    State& state = TheState();
    std::lock_guard lock(state.mutex);
    if (state.active && pauses == 0) state.heap.insert(block);
    return block;
}

bool Forget(void* block) {
    State& state = TheState();
    std::lock_guard lock(state.mutex);
    return state.heap.erase(block) > 0;
}

} // namespace

Verdict Enter(const Operation& operation) {
    if (depth++ > 0) return {.isInner = true};
    return Decide(operation.name, operation.fallible, false);
}

void Leave() {
    --depth;
}

void SetMemoryError(bool failed) {
    blockFailed = failed;
}
OSErr MemoryError(OSErr real) {
    return blockFailed ? memFullErr : real;
}

void Count(Kind kind, long change) {
    if (depth == 1) open[static_cast<size_t>(kind)] += change;
}

Injection::Injection(const Fault& fault) {
    State& state = TheState();
    state.log.reserve(4096);
    state.sizes.reserve(4096);
    // A long name is a block of its own; it comes and goes outside the lock, which blocks take as well.
    Fault next = fault;
    std::lock_guard lock(state.mutex);
    if (state.active) abort();
    std::swap(state.fault, next);
    state.seen = state.fired = 0;
    state.firedAt = "";
    state.log.clear();
    state.sizes.clear();
    state.active = true;
}

Injection::~Injection() {
    State& state = TheState();
    std::lock_guard lock(state.mutex);
    state.active = false;
}

unsigned Injection::fired() const {
    std::lock_guard lock(TheState().mutex);
    return TheState().fired;
}

std::string Injection::firedAt() const {
    Pause pause;
    return TheState().firedAt;
}

unsigned Injection::calls(const std::string& operation) const {
    std::lock_guard lock(TheState().mutex);
    unsigned count = 0;
    for (const char* name : TheState().log) count += name == operation;
    return count;
}

std::vector<std::string> Injection::log() const {
    Pause pause;
    std::vector<std::string> names;
    for (const char* name : TheState().log)
        if (!IsMemory(name)) names.emplace_back(name);
    return names;
}

std::vector<size_t> Injection::sizes() const {
    Pause pause;
    return {TheState().sizes.begin(), TheState().sizes.end()};
}

Pause::Pause() {
    ++pauses;
}
Pause::~Pause() {
    --pauses;
}

OpenObjects Open() {
    auto of = [](Kind kind) { return open[static_cast<size_t>(kind)].load(); };
    std::lock_guard lock(TheState().mutex);
    return {.forks = of(Kind::kFork),
            .iterators = of(Kind::kIterator),
            .strings = of(Kind::kString),
            .blocks = of(Kind::kBlock),
            .registry = of(Kind::kRegistry),
            .waitables = of(Kind::kWaitable),
            .heap = static_cast<long>(TheState().heap.size())};
}

std::ostream& operator<<(std::ostream& stream, const OpenObjects& objects) {
    return stream << "forks " << objects.forks << ", iterators " << objects.iterators << ", strings "
                  << objects.strings << ", blocks " << objects.blocks << ", registry " << objects.registry
                  << ", waitables " << objects.waitables << ", heap " << objects.heap;
}

unsigned FailEachCall(const Sweep& sweep) {
    constexpr unsigned kLimit = 100000;
    for (unsigned call = 0; call < kLimit; ++call) {
        Fault fault = sweep.fault;
        fault.call = call;
        OpenObjects before = Open();
        std::string failed;
        sweep.prepare();
        bool hit;
        {
            Injection injection(fault);
            sweep.scenario();
            hit = injection.fired() > 0;
            failed = injection.firedAt();
        }
        {
            testing::ScopedTrace trace(__FILE__, __LINE__,
                                       "call " + std::to_string(call) + " failed: " + failed);
            sweep.check(failed);
            EXPECT_TRUE(call == 0 || before == Open()) << "before: " << before << "\nafter:  " << Open();
        }
        if (call > 0 && !hit) return call - 1;
        if (testing::Test::HasFatalFailure()) return call;
    }
    ADD_FAILURE() << "the scenario never ran to its end";
    return kLimit;
}

} // namespace faults

// ---- Memory: the C library's entry points, and the operators on top of them ----

using faults::Decide;
using faults::Forget;
using faults::Known;

extern "C" {

void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
void* __wrap_realloc(void* block, size_t size);
void __wrap_free(void* block);

void* __wrap_malloc(size_t size) {
    return Decide("malloc", true, true, size).fail ? nullptr : Known(__real_malloc(size));
}

void* __wrap_calloc(size_t count, size_t size) {
    return Decide("calloc", true, true, count * size).fail ? nullptr : Known(__real_calloc(count, size));
}

void* __wrap_realloc(void* block, size_t size) {
    if (Decide("realloc", true, true, size).fail) return nullptr;
    bool known = Forget(block) || !block;
    void* moved = __real_realloc(block, size);
    if (!known) return moved;
    if (!moved && size != 0) Known(block);
    return Known(moved);
}

void __wrap_free(void* block) {
    if (block) Forget(block);
    __real_free(block);
}

} // extern "C"

void* operator new(size_t size) {
    if (Decide("operator new", true, true, size).fail) throw std::bad_alloc();
    if (void* block = __real_malloc(size ? size : 1)) return Known(block);
    throw std::bad_alloc();
}

void* operator new(size_t size, const std::nothrow_t&) noexcept {
    if (Decide("operator new", true, true, size).fail) return nullptr;
    return Known(__real_malloc(size ? size : 1));
}
void* operator new[](size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}

void* operator new[](size_t size) {
    return operator new(size);
}

void operator delete(void* block) noexcept {
    __wrap_free(block);
}
void operator delete(void* block, size_t) noexcept {
    __wrap_free(block);
}
void operator delete[](void* block) noexcept {
    __wrap_free(block);
}
void operator delete[](void* block, size_t) noexcept {
    __wrap_free(block);
}
