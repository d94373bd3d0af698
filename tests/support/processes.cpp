#include "support/processes.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

// A child has its parent's threads on the thread sanitizer's list and none of them to join.
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
    return "report_thread_leaks=0";
}

int RunInChild(const std::function<int()>& body) {
    pid_t child = fork();
    if (child == 0) {
        alarm(60);
        _exit(body());
    }
    return ExitStatusOf(child);
}

bool InChild(const std::function<bool()>& body) {
    return RunInChild([&] { return body() ? 0 : 1; }) == 0;
}

int ExitStatusOf(pid_t child) {
    constexpr int kNoChild = -1000;
    if (child < 0) {
        return kNoChild;
    }
    int status = 0;
    pid_t ended = -1;
    while ((ended = waitpid(child, &status, 0)) < 0 && errno == EINTR) {
    }
    if (ended != child) {
        return kNoChild;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

char StateOf(pid_t thread) {
    // Without taking memory: the sanitizers' allocators are not made ready for a fork in another thread.
    std::array<char, 64> path{};
    snprintf(path.data(), path.size(), "/proc/self/task/%d/stat", thread);
    std::array<char, 512> text{};
    int file = open(path.data(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return '?';
    }
    ssize_t size = read(file, text.data(), text.size() - 1);
    close(file);
    const char* end = size > 0 ? strrchr(text.data(), ')') : nullptr;
    return end != nullptr ? end[2] : '?';
}
