#include "support/failing_host.h"

#include "platform/linux/folders.h"
#include "support/files.h"
#include "support/host_forward.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <linux/futex.h>
#include <sstream>
#include <string_view>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace host_faults {
namespace {

enum class Mode { kFail, kInterrupt, kShort };

// What is to go wrong: the n-th of the calls that the mode concerns, in the n-th way. Written while nothing
// runs but the test itself.
struct Plan {
    std::atomic<bool> active = false;
    Mode mode = Mode::kFail;
    unsigned call = 0;
    unsigned way = 0;
    std::atomic<unsigned> seen = 0;
    const Entry* hit = nullptr;
    int error = 0;
};
constinit Plan plan;

bool Concerns(Mode mode, const Entry& entry) {
    return mode == Mode::kFail        ? entry.errors[0] != 0
           : mode == Mode::kInterrupt ? entry.mayBeInterrupted
                                      : entry.sizeAt != 0;
}

unsigned WaysOf(Mode mode, const Entry& entry) {
    unsigned ways = 1;
    if (mode == Mode::kFail)
        while (entry.errors[ways] != 0) ++ways;
    return ways;
}

std::string Describe() {
    return plan.hit->name +
           (plan.mode == Mode::kShort ? std::string(": half") : std::string(": ") + strerror(plan.error));
}

size_t CountDescriptors() {
    CloseIdleDescriptors();
    return OpenDescriptors();
}

Outcome Run(const Scenario& scenario, Mode mode, unsigned call, unsigned way) {
    plan.mode = mode;
    plan.call = call;
    plan.way = way;
    plan.seen = 0;
    plan.hit = nullptr;
    plan.active = true;
    Outcome outcome;
    outcome.result = scenario.act();
    plan.active = false;
    if (plan.hit) outcome.failed = Describe();
    outcome.state = scenario.look();
    return outcome;
}

class Sweep {
public:
    explicit Sweep(const Scenario& scenario) : scenario_(scenario) {
        scenario_.prepare();
        Run(scenario_, Mode::kFail, 0, 0); // fills caches
        scenario_.prepare();
        before_ = scenario_.look();
        undisturbed_ = Run(scenario_, Mode::kFail, 0, 0);
    }

    unsigned Through(Mode mode) {
        constexpr unsigned kLimit = 10000;
        unsigned runs = 0;
        for (unsigned call = 1; call < kLimit; ++call) {
            unsigned ways = 1;
            for (unsigned way = 0; way < ways; ++way) {
                if (!RunOnce(mode, call, way)) return runs;
                ways = std::min(WaysOf(mode, *plan.hit), scenario_.mostWays);
                ++runs;
                if (testing::Test::HasFatalFailure()) return runs;
            }
        }
        ADD_FAILURE() << "the scenario never ran to its end";
        return runs;
    }

private:
    bool RunOnce(Mode mode, unsigned call, unsigned way) {
        scenario_.prepare();
        const size_t descriptors = CountDescriptors();
        const Outcome outcome = Run(scenario_, mode, call, way);
        const bool wasHit = plan.hit;
        const Entry* hit = plan.hit;
        testing::ScopedTrace trace(__FILE__, __LINE__,
                                   "call " + std::to_string(call) + ", " + outcome.failed);
        // Fewer when mounts came or went and the file that tells of them could not be opened again.
        EXPECT_LE(CountDescriptors(), descriptors);
        Judge(mode, outcome);
        if (wasHit && way == 0) LookAfterwards();
        plan.hit = hit;
        return wasHit;
    }

    // The lines of a state that the other has not, and the other way round.
    static std::string Difference(const std::string& expected, const std::string& found) {
        const auto missing = [](const std::string& from, const std::string& in, const char* sign) {
            std::istringstream lines(from);
            std::string text;
            for (std::string line; std::getline(lines, line);)
                if (in.find(line + "\n") == in.npos) text += sign + line + "\n";
            return text;
        };
        return missing(expected, found, "- ") + missing(found, expected, "+ ");
    }

    void Judge(Mode mode, const Outcome& outcome) {
        const bool asEver = outcome.result == undisturbed_.result;
        if (mode == Mode::kFail && scenario_.accepts(outcome)) return;
        if (mode != Mode::kFail || asEver) {
            EXPECT_EQ(outcome.result, undisturbed_.result);
            EXPECT_EQ(Difference(undisturbed_.state, outcome.state), "");
        } else {
            EXPECT_TRUE(outcome.result.starts_with("error")) << outcome.result;
            EXPECT_EQ(Difference(before_, outcome.state), "") << outcome.result;
        }
    }

    void LookAfterwards() {
        scenario_.prepare();
        const Outcome outcome = Run(scenario_, Mode::kFail, 0, 0);
        EXPECT_EQ(outcome.result, undisturbed_.result) << "in the next run, without a failure";
        EXPECT_EQ(Difference(undisturbed_.state, outcome.state), "");
    }

    const Scenario& scenario_;
    std::string before_;
    Outcome undisturbed_;
};

} // namespace

Verdict Decide(const Entry& entry) {
    if (!plan.active || !Concerns(plan.mode, entry) || plan.call == 0) return {};
    if (++plan.seen != plan.call) return {};
    plan.hit = &entry;
    plan.error = plan.mode == Mode::kInterrupt
                     ? EINTR
                     : entry.errors[(plan.way + plan.call) % WaysOf(Mode::kFail, entry)];
    if (plan.mode == Mode::kShort) return {0, true};
    return {plan.error};
}

void SetErrorNumber(int error) {
    errno = error;
}

unsigned FailEachCall(const Scenario& scenario) {
    return Sweep(scenario).Through(Mode::kFail);
}

unsigned InterruptEachCall(const Scenario& scenario) {
    Sweep sweep(scenario);
    const unsigned interrupted = sweep.Through(Mode::kInterrupt);
    return interrupted + sweep.Through(Mode::kShort);
}

// ---- What there is to see

// Text as it is, other bytes by their numbers, equal bytes in a row counted.
static std::string Printed(const std::string& bytes) {
    std::string text = "'";
    for (size_t at = 0; at < bytes.size();) {
        const auto byte = static_cast<unsigned char>(bytes[at]);
        const size_t end = std::min(bytes.find_first_not_of(bytes[at], at), bytes.size());
        if (byte > ' ' && byte < 127)
            text.append(end - at, bytes[at]);
        else
            text += "<" + std::to_string(byte) + (end - at > 1 ? "*" + std::to_string(end - at) : "") + ">";
        at = end;
    }
    return text + "'";
}

static std::string AttributesOf(const std::string& path) {
    char names[4096], value[65536];
    std::string text;
    const ssize_t length = llistxattr(path.c_str(), names, sizeof names);
    for (ssize_t at = 0; at < length; at += static_cast<ssize_t>(std::strlen(names + at)) + 1) {
        const ssize_t size = lgetxattr(path.c_str(), names + at, value, sizeof value);
        text += std::string(" ") + (names + at) + "=" +
                Printed(std::string(value, size < 0 ? 0 : static_cast<size_t>(size)));
    }
    return text;
}

std::string TreeAt(const std::string& folder) {
    std::vector<std::string> lines;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        const std::string path = entry.path();
        struct stat facts;
        if (lstat(path.c_str(), &facts) != 0) continue;
        std::string line = path.substr(folder.size()) + " " + std::to_string(facts.st_mode);
        if (S_ISLNK(facts.st_mode)) line += " -> " + fs::read_symlink(path).string();
        if (S_ISREG(facts.st_mode)) line += " " + Printed(ReadFile(path));
        lines.push_back(line + AttributesOf(path) + "\n");
    }
    std::sort(lines.begin(), lines.end());
    std::string text;
    for (const std::string& line : lines) text += line;
    return text;
}

} // namespace host_faults

// ---- Raw system calls

// Nothing interrupts a futex call that wakes others.
static bool WakesOthers(const host_faults::Entry& entry, long operation) {
    return std::string_view(entry.name).starts_with("futex") &&
           (operation & ~FUTEX_PRIVATE_FLAG) != FUTEX_WAIT_BITSET;
}

extern "C" {
long RealSystemCall(long number, ...) __asm__("__real_syscall");
long WrapSystemCall(long number, long a, long b, long c, long d, long e, long f) __asm__("__wrap_syscall");

long WrapSystemCall(long number, long a, long b, long c, long d, long e, long f) {
    using namespace host_faults;
    const Entry* entry = EntryOf(number);
    Verdict verdict = entry && !WakesOthers(*entry, b) ? Decide(*entry) : Verdict();
    if (verdict.isShort) c = Half(c);
    if (verdict.error != 0) return Fail<long>(*entry, verdict.error);
    return RealSystemCall(number, a, b, c, d, e, f);
}
}
