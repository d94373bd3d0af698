// Cached references, beside a mutex and a hash map of counted entries; the registries; expressions, beside the
// standard library's paths.
#include "TavPort.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <malloc.h>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <unordered_map>
#include <vector>

namespace {

std::u16string Digits(int n) {
    const std::string digits = std::to_string(n);
    return {digits.begin(), digits.end()};
}

// Documents in a hundred folders, in a random order.
std::vector<std::u16string> Paths(int count, bool sorted = false) {
    std::vector<std::u16string> paths;
    for (int i = 0; i < count; ++i) {
        paths.push_back(u"/Users/ann/Documents/Project " + Digits(i % 100) + u"/letter " + Digits(i) +
                        u".txt");
    }
    if (sorted) {
        std::sort(paths.begin(), paths.end());
    } else {
        std::shuffle(paths.begin(), paths.end(), std::mt19937(1));
    }
    return paths;
}

// What a program would write instead: entries that are counted, found by path under a mutex.
class CountedMap {
public:
    struct Entry {
        int count = 0;
    };
    using Node = std::pair<const std::u16string, Entry>;

    Node* Get(const std::u16string& path) {
        const std::lock_guard lock(mutex_);
        Node& node = *entries_.try_emplace(path).first;
        ++node.second.count;
        return &node;
    }
    void Put(Node* node) {
        const std::lock_guard lock(mutex_);
        if (--node->second.count == 0) entries_.erase(entries_.find(node->first));
    }

private:
    std::mutex mutex_;
    std::unordered_map<std::u16string, Entry> entries_;
};

void Found_Reference(benchmark::State& state) {
    const auto paths = Paths(static_cast<int>(state.range(0)));
    std::vector<OpacTavFSRef*> live;
    for (const auto& path : paths) live.push_back(Tav0FSRCreateWithPath(path.c_str()));
    size_t i = 0;
    for (auto _ : state) {
        OpacTavFSRef* r = Tav0FSRCreateWithPath(paths[i].c_str());
        benchmark::DoNotOptimize(r);
        Tav0FSRRelease(r);
        if (++i == paths.size()) i = 0;
    }
    for (OpacTavFSRef* r : live) Tav0FSRRelease(r);
}
BENCHMARK(Found_Reference)->Arg(10)->Arg(1000)->Arg(100000);

void Found_HashMap(benchmark::State& state) {
    const auto paths = Paths(static_cast<int>(state.range(0)));
    CountedMap map;
    for (const auto& path : paths) map.Get(path);
    size_t i = 0;
    for (auto _ : state) {
        auto* entry = map.Get(paths[i]);
        benchmark::DoNotOptimize(entry);
        map.Put(entry);
        if (++i == paths.size()) i = 0;
    }
}
BENCHMARK(Found_HashMap)->Arg(10)->Arg(1000)->Arg(100000);

void MakeAndRelease_References(benchmark::State& state) {
    const auto paths = Paths(static_cast<int>(state.range(0)), state.range(1));
    std::vector<OpacTavFSRef*> live(paths.size());
    for (auto _ : state) {
        for (size_t i = 0; i < paths.size(); ++i) live[i] = Tav0FSRCreateWithPath(paths[i].c_str());
        for (OpacTavFSRef* r : live) Tav0FSRRelease(r);
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(MakeAndRelease_References)
    ->ArgNames({"references", "sorted"})
    ->ArgsProduct({{10000, 100000, 1000000}, {0, 1}})
    ->Unit(benchmark::kMillisecond);

void MakeAndRelease_HashMap(benchmark::State& state) {
    const auto paths = Paths(static_cast<int>(state.range(0)), state.range(1));
    CountedMap map;
    std::vector<CountedMap::Node*> live(paths.size());
    for (auto _ : state) {
        for (size_t i = 0; i < paths.size(); ++i) live[i] = map.Get(paths[i]);
        for (auto* node : live) map.Put(node);
    }
}
BENCHMARK(MakeAndRelease_HashMap)
    ->ArgNames({"references", "sorted"})
    ->ArgsProduct({{10000, 100000, 1000000}, {0, 1}})
    ->Unit(benchmark::kMillisecond);

// Bytes that a live reference takes, its share of the cache included.
void Memory_Reference(benchmark::State& state) {
    const auto paths = Paths(static_cast<int>(state.range(0)));
    std::vector<OpacTavFSRef*> live(paths.size());
    for (auto _ : state) {
        const size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
        for (size_t i = 0; i < paths.size(); ++i) live[i] = Tav0FSRCreateWithPath(paths[i].c_str());
        const size_t taken = mallinfo2().uordblks + mallinfo2().hblkhd - before;
        for (OpacTavFSRef* r : live) Tav0FSRRelease(r);
        state.counters["bytes_each"] = static_cast<double>(taken) / static_cast<double>(paths.size());
    }
}
BENCHMARK(Memory_Reference)->Arg(1000)->Arg(100000)->Iterations(1);

void Memory_HashMap(benchmark::State& state) {
    const auto paths = Paths(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        const size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
        CountedMap map;
        for (const auto& path : paths) map.Get(path);
        const size_t taken = mallinfo2().uordblks + mallinfo2().hblkhd - before;
        state.counters["bytes_each"] = static_cast<double>(taken) / static_cast<double>(paths.size());
    }
}
BENCHMARK(Memory_HashMap)->Arg(1000)->Arg(100000)->Iterations(1);

void Evaluated_Cached(benchmark::State& state) {
    OpacTavFSExp* e = Tav0FSExpCreateExp(u"M\\/Users/ann\\Documents\\letter.txt");
    OpacTavFSRef* live = Tav0FSExpCalculateFSRCreate(e, nullptr);
    for (auto _ : state) {
        OpacTavFSRef* r = Tav0FSExpCalculateFSRCreate(e, nullptr);
        benchmark::DoNotOptimize(r);
        Tav0FSRRelease(r);
    }
    Tav0FSRRelease(live);
    Tav0FSExpRelease(e);
}
BENCHMARK(Evaluated_Cached);

void MadeAndEvaluated_Expression(benchmark::State& state) {
    OpacTavFSRef* home = Tav0FSRCreateWithPath(u"/Users/ann");
    for (auto _ : state) {
        OpacTavFSExp* e = Tav0FSExpCreateAbs(home);
        Tav0FSExpAppendSeg(e, u"Documents");
        Tav0FSExpAppendSeg(e, u"..");
        Tav0FSExpAppendSeg(e, u"letter.txt");
        OpacTavFSRef* r = Tav0FSExpCalculateFSRCreate(e, nullptr);
        benchmark::DoNotOptimize(r);
        Tav0FSRRelease(r);
        Tav0FSExpRelease(e);
    }
    Tav0FSRRelease(home);
}
BENCHMARK(MadeAndEvaluated_Expression);

// Named values registered, found and removed.
void Registered_Values(benchmark::State& state) {
    std::vector<MyStr16> names(static_cast<size_t>(state.range(0)));
    for (size_t i = 0; i < names.size(); ++i) std::to_string(i).copy(names[i].name, sizeof names[i].name - 1);
    std::shuffle(names.begin(), names.end(), std::mt19937(1));
    for (auto _ : state) {
        for (const MyStr16& name : names) Tav0FSValRegister(&name, u"text");
        for (const MyStr16& name : names) benchmark::DoNotOptimize(Tav0FSValRegister(&name, nullptr));
        for (const MyStr16& name : names) Tav0FSValRemove(&name);
    }
}
BENCHMARK(Registered_Values)->Arg(1'000)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

// Translation keys registered and found, in a process of their own each time, since they stay.
void Registered_Keys(benchmark::State& state) {
    std::vector<TavKey> keys(static_cast<size_t>(state.range(0)));
    for (size_t i = 0; i < keys.size(); ++i) keys[i] = static_cast<TavKey>(i + 1);
    std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
    for (auto _ : state) {
        const auto begin = std::chrono::steady_clock::now();
        const pid_t child = fork();
        if (child == 0) {
            const FSRef folder = {};
            for (const TavKey& key : keys) Tav0TranPathRegister(&key, &folder);
            for (const TavKey& key : keys) benchmark::DoNotOptimize(Tav0TranPathRegister(&key, nullptr));
            _exit(0);
        }
        waitpid(child, nullptr, 0);
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
        state.SetIterationTime(taken.count());
    }
}
BENCHMARK(Registered_Keys)->Arg(10'000)->Arg(100'000)->UseManualTime()->Unit(benchmark::kMillisecond);

void MadeAndEvaluated_StandardPath(benchmark::State& state) {
    for (auto _ : state) {
        std::filesystem::path path("/Users/ann");
        path /= "Documents";
        path /= "..";
        path /= "letter.txt";
        path = path.lexically_normal();
        benchmark::DoNotOptimize(path);
    }
}
BENCHMARK(MadeAndEvaluated_StandardPath);

} // namespace
