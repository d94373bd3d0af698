// What the provider makes when it is first used, while another thread forks: the child must find it made or
// not begun, never a lock that nobody will give back. The thread that makes it is stopped in the middle, in
// the first call to a library underneath, when the fork has already begun.
#include "platform/linux/caseless.h"
#include "platform/linux/mac_roman.h"
#include "platform/linux/media.h"
#include "platform/linux/volume_list.h"
#include "platform/strings.h"
#include "support/processes.h"

#include <atomic>
#include <dlfcn.h>
#include <functional>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>
#include <thread>
#include <unicode/ucnv.h>
#include <unicode/unorm2.h>
#include <unicode/ustring.h>
#include <unistd.h>

namespace {

thread_local bool stopsHere = false; // this thread is the one that is stopped
std::atomic<bool> stopped = false;
std::atomic<bool> goOn = false;

void StopOnce() {
    if (!std::exchange(stopsHere, false)) {
        return;
    }
    stopped = true;
    while (!goOn) {
        std::this_thread::yield();
    }
}

template <typename Function>
Function* Real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

#define NAME_OF(function) NAME_AS_IT_IS(function)
#define NAME_AS_IT_IS(function) #function

} // namespace

// These stand before the libraries' functions of the same names for everything in the executable.
extern "C" {

struct udev;
struct libmnt_table;

int32_t u_strFoldCase(UChar* to, int32_t room, const UChar* from, int32_t length, uint32_t options,
                      UErrorCode* status) {
    static auto real = Real<decltype(u_strFoldCase)>(NAME_OF(u_strFoldCase));
    StopOnce();
    return real(to, room, from, length, options, status);
}

UConverter* ucnv_open(const char* name, UErrorCode* status) {
    static auto real = Real<decltype(ucnv_open)>(NAME_OF(ucnv_open));
    StopOnce();
    return real(name, status);
}

const UNormalizer2* unorm2_getNFDInstance(UErrorCode* status) {
    static auto real = Real<decltype(unorm2_getNFDInstance)>(NAME_OF(unorm2_getNFDInstance));
    StopOnce();
    return real(status);
}

libmnt_table* mnt_new_table() {
    static auto real = Real<libmnt_table*()>("mnt_new_table");
    StopOnce();
    return real();
}

udev* udev_new() {
    static auto real = Real<udev*()>("udev_new");
    StopOnce();
    return real();
}

} // extern "C"

namespace {

struct Use {
    const char* name;
    bool (*use)();
};

bool CompareGreek() {
    constexpr UniChar kSmall[] = {0x03B1, 0x03B2};
    constexpr UniChar kCapital[] = {0x0391, 0x0392};
    CFStringRef small = CFStringCreateWithCharacters(nullptr, kSmall, 2);
    CFStringRef capital = CFStringCreateWithCharacters(nullptr, kCapital, 2);
    bool equal = CFStringCompare(small, capital, kCFCompareCaseInsensitive) == kCFCompareEqualTo;
    CFRelease(small);
    CFRelease(capital);
    return equal;
}

bool EncodeMacRoman() {
    constexpr UniChar kComposed[] = {u'u', 0x0308};
    size_t position = 0;
    return mac_roman::Decode(0x80) == 0xC4 && mac_roman::Encode(kComposed, 2, position) == 0x9F;
}

bool FoldNames() {
    return FoldName("\xC3\x84") == FoldName("a\xCC\x88");
}

bool ListVolumes() {
    return CurrentVolumes() != nullptr;
}

bool FindNoMedia() {
    return FindMedia("no such device") == nullptr;
}

constexpr Use kUses[] = {
    {"Folding", CompareGreek}, {"MacRoman", EncodeMacRoman}, {"CaselessNames", FoldNames},
    {"Volumes", ListVolumes},  {"Media", FindNoMedia},
};

std::atomic<bool> forkBegins = false;
bool armed = false;

void WaitUntilStopped() {
    if (!armed) {
        return;
    }
    forkBegins = true;
    while (!stopped) {
        std::this_thread::yield();
    }
}

class FirstUse : public testing::TestWithParam<Use> {};

} // namespace

INSTANTIATE_TEST_SUITE_P(Uses, FirstUse, testing::ValuesIn(kUses),
                         [](const auto& parameter) { return parameter.param.name; });

TEST_P(FirstUse, WhileAnotherThreadForks_LeavesTheChildAbleToUseItToo) {
    // In a process in which it has certainly not been used.
    EXPECT_EQ(RunInChild([&] {
                  // Registered last, so it runs before the library's own.
                  pthread_atfork(WaitUntilStopped, nullptr, nullptr);
                  armed = true;
                  std::atomic<bool> used = false;
                  std::atomic<bool> forked = false;
                  std::thread user([&] {
                      while (!forkBegins) {
                          std::this_thread::yield();
                      }
                      stopsHere = true;
                      used = GetParam().use();
                  });
                  pid_t forking = gettid();
                  std::thread opener([&] {
                      // The fork waits for the user, or went past it.
                      while (!stopped || (!forked && StateOf(forking) != 'S')) {
                          std::this_thread::yield();
                      }
                      goOn = true;
                  });
                  pid_t child = fork();
                  if (child == 0) {
                      alarm(20);
                      _exit(GetParam().use() ? 0 : 1);
                  }
                  forked = true;
                  user.join();
                  opener.join();
                  return ExitStatusOf(child) == 0 && used ? 0 : 1;
              }),
              0);
}
