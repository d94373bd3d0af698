#include "support/users.h"

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

constexpr unsigned kNobody = 65534;

bool CanBecomeAnotherUser() {
    return geteuid() == 0;
}

bool AsAnotherUser(const std::function<bool()>& body) {
    pid_t child = fork();
    if (child < 0) return false;
    if (child == 0) {
        bool changed = setgroups(0, nullptr) == 0 && setgid(kNobody) == 0 && setuid(kNobody) == 0;
        _exit(changed && body() ? 0 : 1);
    }
    int status = 1;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
