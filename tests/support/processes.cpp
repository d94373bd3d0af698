#include "support/processes.h"

#include <array>
#include <cstring>
#include <fcntl.h>
#include <string>
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

int ExitStatusOf(pid_t child) {
    int status = 0;
    if (waitpid(child, &status, 0) != child) {
        return -1000;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

char StateOf(pid_t thread) {
    std::string path = "/proc/self/task/" + std::to_string(thread) + "/stat";
    std::array<char, 512> text{};
    int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return '?';
    }
    ssize_t size = read(file, text.data(), text.size() - 1);
    close(file);
    const char* end = size > 0 ? strrchr(text.data(), ')') : nullptr;
    return end != nullptr ? end[2] : '?';
}
