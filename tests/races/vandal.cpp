#include "races/vandal.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <random>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A name in a folder that is open; nothing is ever reached through a link, so that this process leaves alone
// what is outside.
struct Spot {
    Spot(int openFolder, const char* entry) : folder(openFolder), name(entry) {}
    ~Spot() {
        if (folder >= 0) close(folder);
    }
    Spot(const Spot&) = delete;
    Spot& operator=(const Spot&) = delete;

    const int folder;
    const char* const name;
};

class Mischief {
public:
    Mischief(const std::string& tree, const std::string& outside, unsigned seed)
        : tree_(tree), outside_(outside), random_(seed) {}

    void Step() {
        const Spot one(AnyFolder(), AnyName()), other(AnyFolder(), AnyName());
        switch (random_() % 6) {
        case 0:
            renameat(one.folder, one.name, other.folder, other.name);
            break;
        case 1:
            Swap(one, outside_);
            break;
        case 2:
            Swap(one, outside_ + "/secret");
            break;
        case 3:
            unlinkat(one.folder, one.name, 0);
            break;
        case 4:
            (void)!linkat(one.folder, one.name, other.folder, other.name, 0);
            break;
        default:
            break;
        }
        Make();
    }

private:
    static constexpr int kFolder = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    static constexpr std::array<const char*, 5> kNames = {"a", "b", "c", "f", "g"};

    const char* AnyName() { return kNames[random_() % kNames.size()]; }

    // The tree, or a folder of its first or second level; -1 when there is none.
    int AnyFolder() {
        int folder = open(tree_.c_str(), kFolder);
        for (unsigned depth = random_() % 3; depth > 0 && folder >= 0; --depth) {
            const int next = openat(folder, kNames[random_() % 3], kFolder);
            close(folder);
            folder = next;
        }
        return folder;
    }

    // Puts a link where something was, and after a moment that again.
    void Swap(const Spot& spot, const std::string& target) {
        const std::string aside = std::string(spot.name) + ".aside";
        if (renameat(spot.folder, spot.name, spot.folder, aside.c_str()) != 0) return;
        (void)!symlinkat(target.c_str(), spot.folder, spot.name);
        for (unsigned i = random_() % 50; i > 0; --i) (void)faccessat(spot.folder, spot.name, F_OK, 0);
        unlinkat(spot.folder, spot.name, 0);
        renameat(spot.folder, aside.c_str(), spot.folder, spot.name);
    }

    // Names of folders are sometimes files', and the other way round.
    void Make() {
        mkdir(tree_.c_str(), 0755);
        const Spot spot(AnyFolder(), AnyName());
        if (random_() % 2) {
            mkdirat(spot.folder, spot.name, 0755);
            return;
        }
        const int file = openat(spot.folder, spot.name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (file < 0) return;
        (void)!write(file, "inside", 6);
        close(file);
    }

    const std::string tree_, outside_;
    std::mt19937 random_;
};

} // namespace

Vandal::Vandal(const std::string& tree, const std::string& outside, unsigned seed) : child_(fork()) {
    if (child_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    Mischief mischief(tree, outside, seed);
    for (;;) mischief.Step();
}

Vandal::~Vandal() {
    if (child_ <= 0) return;
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
}
