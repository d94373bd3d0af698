#include "support/child.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

bool InChild(const std::function<bool()>& body) {
    pid_t child = fork();
    if (child < 0) return false;
    if (child == 0) _exit(body() ? 0 : 1);
    int status = 1;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
