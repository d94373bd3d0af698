// The shared object loaded, used and unloaded while the process goes on: nothing of it may stay.
#include "support/files.h"
#include "support/sanitizers.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "TavPort.h"

static const std::string kLibrary = TAVPORT_FRAMEWORK "/Versions/A/TavPort";

// Above the number of keys that a process can have, so that one that stays each time is met.
static constexpr int kRounds = PTHREAD_KEYS_MAX + 100;

class Library {
public:
    Library() : handle_(dlopen(kLibrary.c_str(), RTLD_NOW | RTLD_LOCAL)) {}
    ~Library() {
        if (handle_) dlclose(handle_);
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
    explicit operator bool() const { return handle_ != nullptr; }
    template <typename Function>
    Function* Find(const char* name) const {
        return reinterpret_cast<Function*>(dlsym(handle_, name));
    }

private:
    void* handle_;
};
#define FIND(library, name) (library).Find<decltype(name)>(#name)

static size_t Mappings() {
    std::ifstream maps("/proc/self/maps");
    size_t count = 0;
    for (std::string line; std::getline(maps, line);)
        count += line.find("/TavPort.framework/") != std::string::npos;
    return count;
}

static std::vector<void*> SignalHandlers() {
    std::vector<void*> handlers;
    for (int signal = 1; signal < NSIG; ++signal) {
        struct sigaction action {};
        bool known = sigaction(signal, nullptr, &action) == 0;
        handlers.push_back(known ? reinterpret_cast<void*>(action.sa_handler) : nullptr);
    }
    return handlers;
}

// Goes through the caches that the library keeps: references, folders, strings.
static void Use(const Library& library, const std::string& folder) {
    std::u16string path = Wide(folder + "/file");
    OpacTavFSRef* file = FIND(library, Tav0FSRCreateWithPath)(path.c_str());
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(FIND(library, Tav0FSRIsExist)(file), 1);
    FIND(library, Tav0FSRRelease)(file);
    TavChar root[1025];
    EXPECT_EQ(FIND(library, TavGetPathDriver)(path.c_str(), root), 1);
    EXPECT_EQ(FIND(library, tav_wcscmpi)(u"\u00e4\u03a9", u"\u00c4\u03c9"), 0);
}

// Fills both registries, which own what is in them.
static void Register(const Library& library) {
    const TavKey key = TAV_KEY('p', 'r', 'e', 'f');
    const FSRef ref = {};
    FIND(library, Tav0TranPathRegister)(&key, &ref);
    const MyStr16 name = {"lang"};
    FIND(library, Tav0FSValRegister)(&name, u"a text that is long enough to have a block of its own");
}

TEST(Loading, AgainAndAgain_LeavesNothingBehind) {
    TemporaryFolder folder;
    WriteFile(folder / "file", "x");
    auto handlers = SignalHandlers();
    size_t descriptors = OpenDescriptors();
    for (int round = 0; round < kRounds && !HasFailure(); ++round) {
        Library library;
        ASSERT_TRUE(library) << dlerror();
        Use(library, folder.path().string());
    }
    EXPECT_EQ(OpenDescriptors(), descriptors);
    EXPECT_EQ(SignalHandlers(), handlers);
    EXPECT_EQ(Mappings(), 0u) << "the library stays in memory";
    pthread_key_t key;
    ASSERT_EQ(pthread_key_create(&key, nullptr), 0) << "each load kept a key";
    pthread_key_delete(key);
}

TEST(Loading, Registrations_GoWithTheLibrary) {
    if (kAddressSanitizer || kThreadSanitizer) GTEST_SKIP() << "the sanitizers' allocator does not count";
    const auto bytesInUse = [] { return mallinfo2().uordblks; };
    size_t before = 0;
    constexpr int kWarmUp = 20, kCounted = 200;
    for (int round = 0; round < kWarmUp + kCounted; ++round) {
        if (round == kWarmUp) before = bytesInUse();
        Library library;
        ASSERT_TRUE(library) << dlerror();
        Register(library);
    }
    EXPECT_LT(bytesInUse(), before + 32 * kCounted) << "blocks stay with each load";
}

// Their holders have the blocks, and may still look at them.
TEST(Loading, ReferencesStillHeld_OutliveTheLibrary) {
    const std::u16string path = u"/held";
    OpacTavFSRef* held = nullptr;
    {
        Library library;
        ASSERT_TRUE(library) << dlerror();
        Register(library);
        held = FIND(library, Tav0FSRCreateWithPath)(path.c_str());
        ASSERT_NE(held, nullptr);
    }
    ASSERT_EQ(Mappings(), 0u);
    int32_t count;
    TavChar units[6];
    std::memcpy(&count, held, sizeof count);
    std::memcpy(units, reinterpret_cast<const char*>(held) + sizeof count, sizeof units);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(std::u16string(units), path);
    std::free(held);
}

TEST(Loading, Unloaded_LeavesNoForkHandler) {
    {
        Library library;
        ASSERT_TRUE(library) << dlerror();
    }
    // A handler that stayed would run code that is no longer there.
    pid_t child = fork();
    if (child == 0) _exit(0);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}
