#include "support/users.h"

#include "support/processes.h"

#include <grp.h>
#include <unistd.h>

constexpr unsigned kNobody = 65534;

bool CanBecomeAnotherUser() {
    return geteuid() == 0;
}

bool AsAnotherUser(const std::function<bool()>& body) {
    return InChild([&] {
        bool changed = setgroups(0, nullptr) == 0 && setgid(kNobody) == 0 && setuid(kNobody) == 0;
        return changed && body();
    });
}
