// Threads that end by force, processes that fork, and programs that are started while everything is in use.
#include "system/threads.h"

#include "platform/linux/multiprocessing_ids.h"
#include "support/emulation.h"
#include "support/files.h"
#include "support/forced_end.h"
#include "support/processes.h"
#include "support/sanitizers.h"
#include "support/virtual_paths.h"
#include "system/synchronisation.h"

#include <array>
#include <atomic>
#include <fcntl.h>
#include <functional>
#include <random>
#include <set>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

uint32_t CallFunction(void* parameter) {
    return (*static_cast<std::function<uint32_t()>*>(parameter))();
}

void Spin(unsigned times) {
    std::atomic<unsigned> count = 0;
    while (count.fetch_add(1, std::memory_order_relaxed) < times) {
    }
}

std::atomic<MPCriticalRegionID> section = 0;

// Enters the section of the moment, if it is not deleted meanwhile.
void InSection(const std::function<void()>& body) {
    MPCriticalRegionID mine = section;
    if (TavEnterCriticalSection(&mine) == 1) {
        body();
        TavLeaveCriticalSection(&mine);
    }
}

// Writes at the beginning of a file and reads it again.
bool WriteAndRead(int32_t file) {
    std::array<char, 100> buffer{};
    uint32_t moved = 0;
    int64_t size = 0;
    return TavFileSetPointerExt(file, 0, nullptr, TAV_FILE_BEGIN) == 1 &&
           TavFileWriteExt(file, buffer.data(), buffer.size(), &moved) == 1 && moved == buffer.size() &&
           TavFileSetPointerExt(file, 10, nullptr, TAV_FILE_BEGIN) == 1 &&
           TavFileReadExt(file, buffer.data(), 50, &moved) == 1 && moved == 50 &&
           TavFileGetFileSizeExt(file, &size) == 1 && size == static_cast<int64_t>(buffer.size());
}

} // namespace

// The threads that end do not allocate: a lock of the C library would stay held.
TEST_F(ForcedEnd, AtTwoThousandRandomMomentsLeavesContendedSectionsAndFilesUsable) {
    TemporaryFolder folder;
    const Ref path = MakeRef(Wide(folder / "file"));
    const Ref other = MakeRef(Wide(folder / "other"));
    MPSemaphoreID semaphore = TavCreateSemaphore(0, 1'000'000);
    OpacTavEvent* event = TavCreateEvent(0, 0);
    std::atomic<bool> done = false;
    std::atomic<long> entered = 0;
    MPCriticalRegionID first = 0;
    ASSERT_EQ(TavInitCriticalSection(&first), 1);
    section = first;
    std::thread bystander([&] {
        int32_t file = TavFileCreateExt(other.get(), TAV_FILE_READ | TAV_FILE_WRITE | TAV_FILE_REPLACE);
        while (!done) {
            InSection([&] {
                entered++;
                EXPECT_TRUE(WriteAndRead(file));
            });
            TavSetEvent(event);
            TavWaitSemaphore(semaphore, 0);
        }
        EXPECT_EQ(TavFileCloseExt(file), 0);
    });
    uint32_t baseline = CountObjects();
    unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (int i = 0; i < 2000; i++) {
        int32_t file = TavFileCreateExt(path.get(), TAV_FILE_READ | TAV_FILE_WRITE | TAV_FILE_REPLACE);
        ASSERT_GT(file, 0);
        std::atomic<bool> begun = false;
        std::function<uint32_t()> entry = [&] {
            for (;;) {
                InSection([&] {
                    TavReleaseSemaphore(semaphore);
                    WriteAndRead(file);
                });
                begun = true;
                TavWaitEvent(event, 1);
            }
            return 0u;
        };
        OpacTavThread* thread = TavCreateThread(CallFunction, &entry, 0, 0);
        ASSERT_NE(thread, nullptr);
        while (i % 2 == 0 && !begun) {
            std::this_thread::yield();
        }
        Spin(random() % 50'000);
        ASSERT_EQ(TavTerminateThread(thread, i), 1);
        ASSERT_EQ(TavWaitThread(thread, 20'000), TAV_WAIT_OBJECT_0);
        ASSERT_EQ(TavCloseThreadRef(thread), 1);
        // Whether or not it stayed held, and whoever waits for it.
        MPCriticalRegionID old = section;
        MPCriticalRegionID next = 0;
        ASSERT_EQ(TavInitCriticalSection(&next), 1);
        section = next;
        ASSERT_EQ(TavDeleteCriticalSection(&old), 1);
        ASSERT_TRUE(WriteAndRead(file));
        ASSERT_EQ(TavFileCloseExt(file), 0);
        ASSERT_EQ(CountObjects(), baseline);
    }
    done = true;
    bystander.join();
    EXPECT_GT(entered, 0);
    first = section;
    EXPECT_EQ(TavDeleteCriticalSection(&first), 1);
    EXPECT_EQ(TavCloseSemaphore(semaphore), 1);
    EXPECT_EQ(TavCloseEvent(event), 1);
    EXPECT_EQ(TavFileDeleteExt(path.get()), 1);
    EXPECT_EQ(TavFileDeleteExt(other.get()), 1);
}

namespace {

// One use of a part of the library; `place` keeps those of several threads apart.
struct Use {
    const char* name;
    bool (*use)(const std::string& place);
};

bool UseFiles(const std::string& place) {
    const Ref path = MakeRef(Wide(place + "/file"));
    int32_t file = TavFileCreateExt(path.get(), TAV_FILE_READ | TAV_FILE_WRITE | TAV_FILE_REPLACE);
    return file > 0 && WriteAndRead(file) && TavFileCloseExt(file) == 0 && TavFileDeleteExt(path.get()) == 1;
}

bool UseExpressions(const std::string& place) {
    return Evaluated(u"M\\" + Wide(place) + u"\\Sub\\..\\x") == Wide(place + "/x");
}

bool UseLists(const std::string& place) {
    TavFindDataW found;
    TavFindSearch* list = TavFindFirstFile(Wide(place + "/*").c_str(), &found);
    if (list == TAV_INVALID_FIND) {
        return false;
    }
    while (TavFindNextFile(list, &found) == 1) {
    }
    return TavFindClose(list) == 1 && TavGetDriveType(u"/") != 0;
}

bool UseText(const std::string&) {
    std::array<TavChar, 50> text{};
    return tav_wcscmpi(u"\u03B1\u00E4", u"\u0391\u00C4") == 0 &&
           tav_snwprintf(text.data(), 40, u"%d %s", 7, u"x") == 3;
}

bool UseObjects(const std::string&) {
    MPSemaphoreID mutex = TavCreateMutex(1);
    OpacTavEvent* event = TavCreateEvent(1, 1);
    return TavReleaseMutex(mutex) == 1 && TavWaitMutex(mutex, 0) == TAV_WAIT_OBJECT_0 &&
           TavCloseMutex(mutex) == 1 && TavWaitEvent(event, 0) == TAV_WAIT_OBJECT_0 &&
           TavCloseEvent(event) == 1;
}

bool UseThreads(const std::string&) {
    OpacTavThread* thread = TavCreateThread(nullptr, nullptr, 0, 0);
    return thread != nullptr && TavWaitThread(thread, -1) == TAV_WAIT_OBJECT_0 &&
           TavCloseThreadRef(thread) == 1;
}

bool UseCopies(const std::string& place) {
    std::filesystem::create_directories(place + "/tree/inner");
    WriteFile(place + "/tree/inner/leaf", "leaf");
    const Ref copy = MakeRef(Wide(place + "/copy"));
    return TavCopyFile(Wide(place + "/tree").c_str(), Wide(place + "/copy").c_str(), 1) == 1 &&
           ReadFile(place + "/copy/inner/leaf") == "leaf" && TavFileDeleteExt(copy.get()) == 1;
}

constexpr Use kUses[] = {
    {"files", UseFiles},     {"expressions", UseExpressions}, {"lists", UseLists},   {"text", UseText},
    {"objects", UseObjects}, {"threads", UseThreads},         {"copies", UseCopies},
};

// The numbers of the descriptors that are open, the one that lists them not among them.
std::set<int> Descriptors() {
    std::set<int> all;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        all.insert(std::stoi(entry.path().filename()));
    }
    std::erase_if(all, [](int descriptor) { return fcntl(descriptor, F_GETFD) < 0; });
    return all;
}

// The first root of the list of volumes, which the library keeps.
std::string FirstVolume() {
    std::array<TavChar, 4096> roots{};
    TavGetLogicalDriveStrings(roots.size(), roots.data());
    return Narrow(roots.data());
}

} // namespace

TEST(Descriptors, WhileEverythingIsOpen_AreClosedInPrograms) {
    const std::set<int> before = Descriptors();
    TemporaryFolder folder;
    WriteFile(folder / "file", "x");
    WriteFile(folder / "other", "x");
    std::filesystem::copy_file(TAVPORT_TEST_MODULES "/good.so", folder / "plug.so");

    TavFindDataW found;
    TavFindSearch* search = TavFindFirstFile(Wide(folder / "*").c_str(), &found);
    ASSERT_NE(search, TAV_INVALID_FIND);
    const Ref path = MakeRef(Wide(folder / "file"));
    const int32_t file = TavFileOpenExt(path.get(), TAV_FILE_READ | TAV_FILE_WRITE);
    ASSERT_GT(file, 0);
    OpacTavLibrary* library = TavLoadLibrary(Wide(folder / "plug.so").c_str());
    ASSERT_NE(TavGetProcAddress(library, "ModuleAnswer"), nullptr);
    EXPECT_EQ(FirstVolume(), "/");
    OpacTavEvent* event = TavCreateEvent(1, 0);
    std::function<uint32_t()> wait = [&] { return TavWaitEvent(event, -1); };
    OpacTavThread* thread = TavCreateThread(CallFunction, &wait, 0, 0);
    ASSERT_NE(thread, nullptr);

    std::set<std::string> open;
    for (const int descriptor : Descriptors()) {
        if (before.contains(descriptor)) {
            continue;
        }
        std::error_code error;
        const std::string target =
            std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), error);
        EXPECT_TRUE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC) << target;
        open.insert(target);
    }
    // The search holds the folder, the handle its file.
    EXPECT_TRUE(open.contains(folder.path()));
    EXPECT_TRUE(open.contains(folder / "file"));

    TavSetEvent(event);
    EXPECT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_OBJECT_0);
    EXPECT_EQ(TavCloseThreadRef(thread), 1);
    EXPECT_EQ(TavCloseEvent(event), 1);
    TavFreeLibrary(library);
    EXPECT_EQ(TavFileCloseExt(file), 0);
    EXPECT_EQ(TavFindClose(search), 1);
}

TEST(Fork, WhileThreadsUseEverythingLeavesTheChildAbleToUseEverything) {
    if (kAddressSanitizer) GTEST_SKIP() << "the sanitizer's allocator may be locked in a child for good";
    TemporaryFolder folder;
    std::atomic<bool> done = false;
    std::vector<std::thread> threads;
    for (const Use& use : kUses) {
        std::string place = folder / use.name;
        std::filesystem::create_directory(place);
        std::filesystem::create_directory(place + "/Sub");
        threads.emplace_back([&done, &use, place] {
            while (!done) {
                EXPECT_TRUE(use.use(place)) << use.name;
            }
        });
    }
    std::string place = folder / "child";
    std::filesystem::create_directory(place);
    std::filesystem::create_directory(place + "/Sub");
    // The sanitizer ends children that start threads; the emulator may leave its lock for that held in them.
    const bool childrenStartThreads = !kThreadSanitizer && !IsEmulated();
    for (int i = 0; i < 50; i++) {
        EXPECT_EQ(RunInChild([&] {
                      int number = 0;
                      for (const Use& use : kUses) {
                          number++;
                          if (!childrenStartThreads && use.use == UseThreads) {
                              continue;
                          }
                          if (!use.use(place)) {
                              return number;
                          }
                      }
                      return 0;
                  }),
                  0);
    }
    done = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(CreateThread, WithoutThreadsLeft_GivesNullAndLeavesOnlyTheMutexes) {
    EXPECT_EQ(RunInChild([] {
                  // The superuser has no such limit.
                  if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0) {
                      return 1;
                  }
                  rlimit limit{0, 0};
                  setrlimit(RLIMIT_NPROC, &limit);
                  uint32_t before = CountObjects();
                  for (uint32_t i = 1; i <= 20; i++) {
                      if (TavCreateThread(nullptr, nullptr, 0, 0) != nullptr ||
                          CountObjects() != before + i) {
                          return 2;
                      }
                  }
                  for (uint32_t i = 1; i <= 20; i++) {
                      if (TavCreateThread(nullptr, nullptr, 0, 1) != nullptr ||
                          CountObjects() != before + 20 + 2 * i) {
                          return 3;
                      }
                  }
                  return 0;
              }),
              0);
}
