// What a person wants to know and the library's interface does not say: why a call failed, owners and modes, the stored
// metadata; and what only a program of its own can do: stop at Ctrl-C.
#pragma once

#include <csignal>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace host {

// The path from "/" on, without links on the way; a link in the last place stays. With its "." and ".." as they are when
// something on the way is missing.
std::string Absolute(const std::string& path);

// What is in the way of reading what is at `path`, or of making, renaming or deleting it; asked afterwards, so it is the
// likely reason. Empty when nothing is found.
std::string Obstacle(const std::string& path, bool forWriting);

// The same with a text in any case.
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

bool IsFolder(const std::string& path);  // of a link: what it leads to
bool IsSpecial(const std::string& path); // a device, pipe or socket, or a link to one
bool IsLink(const std::string& path);
bool IsReadable(const std::string& path); // folders: searched, too

// Whether a file ends where its size says; those that the system writes when they are read do not.
bool IsSizeKnown(const std::string& path);

bool Exists(const std::string& path); // also a link that leads nowhere

// Whether a folder is the working folder, one above it, or "/"; a link is none of them.
bool HoldsWorkingFolder(const std::string& path);

// Everything in a tree: paths below it, bytes of content. Not whole when a signal was noted.
struct Tree {
    std::vector<std::string> items;
    std::vector<std::string> unreadable; // folders among them whose content could not be seen
    uint64_t bytes = 0;
    std::string error; // what ended it early
};
Tree Survey(const std::string& path);

// Whether a volume has less than so many bytes left, or no room for another file.
bool IsFull(const std::string& path, uint64_t wanted);

// At least the number of drives.
size_t CountMounts();

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
