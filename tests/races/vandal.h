// Another process that upsets a tree while the library works in it.
#pragma once

#include <string>
#include <sys/types.h>

// While one lives, a child process makes, renames, replaces, links and unlinks the entries of `tree` at random,
// with plain system calls, and swaps its folders and files for links to `outside` and its file "secret", and back.
// The entries are called "a", "b", "c", "f" and "g", at three levels; the files hold "inside" or nothing yet.
class Vandal {
public:
    Vandal(const std::string& tree, const std::string& outside, unsigned seed);
    ~Vandal();
    Vandal(const Vandal&) = delete;
    Vandal& operator=(const Vandal&) = delete;

private:
    pid_t child_;
};
