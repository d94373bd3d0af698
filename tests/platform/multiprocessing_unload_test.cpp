// Loading, using and unloading the shared library: nothing of the multiprocessing service stays behind.
#include "support/sanitizers.h"
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <pthread.h>
#include <sstream>
#include <string>

namespace {

std::filesystem::path Library() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() /
           "TavPort.framework/Versions/A/TavPort";
}

uint32_t ReturnNothing(void*) {
    return 0;
}

// The exported functions that the test calls.
struct Functions {
    explicit Functions(void* library) {
        Find(library, "TavCreateThread", create);
        Find(library, "TavResumeThread", resume);
        Find(library, "TavWaitThread", wait);
        Find(library, "TavCloseThreadRef", close);
        Find(library, "TavCreateSemaphore", createSemaphore);
        Find(library, "TavCloseSemaphore", closeSemaphore);
    }

    template <typename Function>
    static void Find(void* library, const char* name, Function*& function) {
        function = reinterpret_cast<Function*>(dlsym(library, name));
        ASSERT_NE(function, nullptr) << name;
    }

    void* (*create)(uint32_t (*)(void*), void*, uint32_t, uint32_t) = nullptr;
    int32_t (*resume)(void*) = nullptr;
    uint32_t (*wait)(void*, int32_t) = nullptr;
    int32_t (*close)(void*) = nullptr;
    uint32_t (*createSemaphore)(uint32_t, uint32_t) = nullptr;
    int32_t (*closeSemaphore)(uint32_t) = nullptr;
};

void Use(void* library) {
    Functions functions(library);
    uint32_t semaphore = functions.createSemaphore(1, 1);
    ASSERT_NE(semaphore, 0u);
    for (uint32_t flags : {0u, 1u}) {
        void* thread = functions.create(ReturnNothing, nullptr, 0, flags);
        ASSERT_NE(thread, nullptr);
        functions.resume(thread);
        ASSERT_EQ(functions.wait(thread, -1), 0u);
        ASSERT_EQ(functions.close(thread), 1);
    }
    ASSERT_EQ(functions.closeSemaphore(semaphore), 1);
}

// What the process has mapped, by the table of its mappings: there an emulator answers for the program, while
// the counters of a process take in the emulator's own memory.
uint64_t MappedBytes() {
    uint64_t total = 0;
    std::ifstream table("/proc/self/maps");
    std::string line;
    while (std::getline(table, line)) {
        uint64_t first = 0, end = 0;
        char dash = 0;
        std::istringstream(line) >> std::hex >> first >> dash >> end;
        total += end - first;
    }
    return total;
}

int CountHandledSignals() {
    int handled = 0;
    for (int number = 1; number <= SIGRTMAX; number++) {
        struct sigaction action {};
        handled += sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_DFL;
    }
    return handled;
}

// The key that comes next; a key that stays in use makes it grow.
pthread_key_t NextKey() {
    pthread_key_t key = 0;
    EXPECT_EQ(pthread_key_create(&key, nullptr), 0);
    EXPECT_EQ(pthread_key_delete(key), 0);
    return key;
}

} // namespace

TEST(Unload, InALoopLeavesNoMemoryNoHandlerAndNoKey) {
    if (!std::filesystem::exists(Library())) {
        GTEST_SKIP() << "the shared library has not been built";
    }
    int handled = CountHandledSignals();
    pthread_key_t key = 0;
    // The C library keeps a few stacks of threads that have ended, now one more, now one less. What is lost each time adds
    // up: then the least of the last rounds is more than the most of those before.
    uint64_t most = 0, least = UINT64_MAX;
    for (int i = 0; i < 300; i++) {
        void* library = dlopen(Library().c_str(), RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << dlerror();
        Use(library);
        ASSERT_EQ(dlclose(library), 0);
        ASSERT_EQ(dlopen(Library().c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr) << "still loaded";
        ASSERT_EQ(CountHandledSignals(), handled);
        if (i == 100) key = NextKey();
        if (i >= 200)
            least = std::min(least, MappedBytes());
        else if (i >= 100)
            most = std::max(most, MappedBytes());
    }
    EXPECT_EQ(NextKey(), key);
    if (kAddressSanitizer || kThreadSanitizer) return; // which have memory of their own for it
    EXPECT_GT(most, 0u);
    EXPECT_LE(least, most);
}
