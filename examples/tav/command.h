// What the commands share: options, references that release themselves, one way to complain.
#pragma once

#include <TavPort.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

// Exit codes.
enum { kDone = 0, kFailed = 1, kUsage = 2 };

struct ReleaseReference {
    void operator()(OpacTavFSRef* reference) const { Tav0FSRRelease(reference); }
};
using Reference = std::unique_ptr<OpacTavFSRef, ReleaseReference>;

// A reference to the file or folder at an absolute path; null where memory is short.
Reference At(const std::string& path);

// One command line behind the command's name.
struct Options {
    std::map<char, std::vector<std::string>> values; // by letter; empty texts for switches
    std::vector<std::string> arguments;
    bool help = false; // nothing else counts then

    bool Has(char letter) const { return values.count(letter) > 0; }
};

struct Command {
    const char* name;
    const char* summary;
    const char* usage;   // what follows the name
    const char* letters; // options, those that take a value followed by ":"
    const char* help;    // what the options mean, and what else there is to say
    size_t fewest, most; // arguments
    int (*run)(const Options& options);
};

// Prints "tav: WHAT: WHY" to the error output and gives kFailed.
int Complain(const std::string& what, const std::string& why);

// Complains of an argument that ends in "/" although what is there is no folder.
bool IsNoFolder(const std::string& argument);

int List(const Options& options);
int Concatenate(const Options& options);
int Copy(const Options& options);
int Move(const Options& options);
int Remove(const Options& options);
int MakeFolders(const Options& options);
int Status(const Options& options);
int Drives(const Options& options);
int Evaluate(const Options& options);
