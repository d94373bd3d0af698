// What a person wants to know and the library's interface does not say: why a call failed, owners and modes, the stored
// metadata; and what only a program of its own can do: stop at Ctrl-C.
#pragma once

#include <csignal>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace host {

// The path from "/" on, without links on the way; a link in the last place stays.
std::string Absolute(const std::string& path);

// Why something could not be done with what is at `path`; asked afterwards, so it is the likely reason.
std::string Reason(const std::string& path, bool forWriting);

struct Facts {
    std::string kind; // "file", "folder", "link to …"
    uint64_t size = 0;
    std::string mode;  // rwxr-xr-x
    std::string owner; // ann:users
    bool locked = false;
    std::string type; // Finder type and creator, empty for none
    std::string creator;
    uint16_t finderFlags = 0;
    uint64_t resourceFork = 0;
};
bool Look(const std::string& path, Facts& facts);

bool IsFolder(const std::string& path); // of a link: what it leads to
bool IsReadable(const std::string& path);
bool Exists(const std::string& path); // also a link that leads nowhere

// Whether a folder is the working folder, one above it, or "/"; a link is none of them.
bool HoldsWorkingFolder(const std::string& path);

// Everything in a tree: paths below it, bytes of content. Not whole when a signal was noted.
struct Tree {
    std::vector<std::string> items;
    uint64_t bytes = 0;
};
Tree Survey(const std::string& path);
uint64_t FreeBytes(const std::string& path);

bool IsTerminal(int descriptor);

// As long as one lives, Ctrl-C, a request to end and a terminal that goes away are only noted: what cannot be left
// half-made is finished. What was ignored before stays so.
class SignalsNoted {
public:
    SignalsNoted();
    ~SignalsNoted();
    SignalsNoted(const SignalsNoted&) = delete;
    SignalsNoted& operator=(const SignalsNoted&) = delete;

private:
    struct sigaction before_[3];
};
bool Interrupted();

// Runs `work` in a process of its own while calling `tick` at once and every tenth of a second, and stops it when a
// signal is noted.
enum class Outcome { kDone, kFailed, kInterrupted };
Outcome RunStoppable(const std::function<bool()>& work, const std::function<void()>& tick);

} // namespace host
