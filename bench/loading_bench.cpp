// Loading and unloading the library, and a shared object that has no content but needs the same others. The
// program itself must not link with these: they are loaded each time.
#include <benchmark/benchmark.h>

#include <dlfcn.h>

static void Load(benchmark::State& state, const char* path) {
    for (auto _ : state) {
        void* object = dlopen(path, RTLD_NOW | RTLD_LOCAL);
        if (!object) {
            state.SkipWithError(dlerror());
            break;
        }
        dlclose(object);
    }
}
BENCHMARK_CAPTURE(Load, library, TAVPORT_LIBRARY)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(Load, trivial, TAVPORT_TRIVIAL)->Unit(benchmark::kMicrosecond);
