// tav: what the library can do, from a terminal. Uses its exported functions only; what they cannot say is in host.cpp.
#include "command.h"

#include "host.h"
#include "text.h"

#include <cstdio>
#include <cstring>
#include <exception>

namespace {

const Command kCommands[] = {
    {"ls", "list folders", "[-a] [PATH ...]", "a", "  -a  hidden items, too\n", 0, SIZE_MAX, List},
    {"cat", "print files", "FILE ...", "", "", 1, SIZE_MAX, Concatenate},
    {"cp", "copy a file, or a folder with everything in it", "[-f] SOURCE DESTINATION", "f",
     "  -f  replace what is there\n\nInto a folder that exists the copy goes under the source's name. A copy "
     "has another name\n"
     "until it is complete; Ctrl-C or a full disk leaves the destination as it was. What cannot be copied\n"
     "is named and left out.\n",
     2, 2, Copy},
    {"mv", "move or rename on one drive", "SOURCE DESTINATION", "",
     "\nInto a folder that exists it goes under its own name. Nothing is ever replaced.\n", 2, 2, Move},
    {"rm", "delete files, with -r folders", "[-r] PATH ...", "r",
     "  -r  folders with everything in them, locked or not\n\nThe working folder and those above it stay.\n",
     1, SIZE_MAX, Remove},
    {"mkdir", "make folders", "FOLDER ...", "", "", 1, SIZE_MAX, MakeFolders},
    {"stat", "tell what is known of files and folders", "PATH ...", "", "", 1, SIZE_MAX, Status},
    {"drives", "list drives", "", "", "", 0, 0, Drives},
    {"eval", "evaluate a virtual path step by step", "[-k KEY=FOLDER] [-v NAME=TEXT] [-b BASE] EXPRESSION",
     "k:v:b:",
     "  -k KEY=FOLDER  register a key of one to four characters up to U+00FF\n"
     "  -v NAME=TEXT   register a value\n"
     "  -b BASE        the folder that \"$$NAME\\...\" starts from; without a NAME the next part is lost\n\n"
     "For example: tav eval -k pref=/etc -v lang=de '$pref\\%lang\\Data'\n",
     1, 1, Evaluate},
};

void PrintOverview(std::FILE* output) {
    std::fprintf(output, "usage: tav COMMAND [OPTIONS] [ARGUMENTS]\n\n");
    for (const Command& command : kCommands)
        std::fprintf(output, "  %-7s %s\n", command.name, command.summary);
    std::fprintf(output, "\nA path that ends in \"/\" names a folder, and nothing else is taken for it.\n");
    std::fprintf(output, "tav COMMAND --help says more. Exit codes: 0 done, 1 failed, 2 not understood.\n");
}

void PrintHelp(const Command& command) {
    std::printf("usage: tav %s %s\n%s: %s.\n%s", command.name, command.usage, command.name, command.summary,
                command.help);
}

int NotUnderstood(const Command& command, const std::string& why) {
    std::fprintf(stderr, "tav %s: %s; see: tav %s --help\n", command.name, why.c_str(), command.name);
    return kUsage;
}

// Reads the options; the text says what is wrong with them, empty for nothing.
std::string Parse(const Command& command, const std::vector<std::string>& words, Options& options) {
    bool optionsEnded = false;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (optionsEnded || word.size() < 2 || word[0] != '-') {
            options.arguments.push_back(word);
        } else if (word == "--") {
            optionsEnded = true;
        } else if (word == "--help") {
            options.help = true;
            return "";
        } else {
            const char* known = word[1] == ':' ? nullptr : std::strchr(command.letters, word[1]);
            if (!known || (known[1] != ':' && word.size() > 2)) return "there is no option " + Shown(word);
            std::string value = word.substr(2);
            if (known[1] == ':' && value.empty()) {
                if (++i == words.size()) return "-" + std::string(1, word[1]) + " needs a value";
                value = words[i];
            }
            options.values[word[1]].push_back(value);
        }
    }
    for (const std::string& argument : options.arguments) {
        if (argument.empty()) return "an empty name names nothing";
    }
    if (options.arguments.size() < command.fewest) return "something is missing";
    if (options.arguments.size() > command.most) return "that is too much";
    return "";
}

int Run(const std::vector<std::string>& words) {
    if (words.empty()) {
        PrintOverview(stderr);
        return kUsage;
    }
    if (words[0] == "--help" || words[0] == "help") {
        PrintOverview(stdout);
        return kDone;
    }
    for (const Command& command : kCommands) {
        if (words[0] != command.name) continue;
        const std::vector<std::string> rest(words.begin() + 1, words.end());
        Options options;
        const std::string why = Parse(command, rest, options);
        if (options.help) {
            PrintHelp(command);
            return kDone;
        }
        return why.empty() ? command.run(options) : NotUnderstood(command, why);
    }
    std::fprintf(stderr, "tav: there is no command %s; see: tav --help\n", Shown(words[0]).c_str());
    return kUsage;
}

} // namespace

Reference At(const std::string& path) {
    return Reference(Tav0FSRCreateWithPath(Units(path).c_str()));
}

int Complain(const std::string& what, const std::string& why) {
    std::fflush(stdout);
    std::fprintf(stderr, "tav: %s: %s\n", Shown(what).c_str(), Shown(why).c_str());
    return kFailed;
}

bool IsNoFolder(const std::string& argument) {
    const std::string path = host::Absolute(argument);
    if (argument.back() != '/' || !host::Exists(path) || host::IsFolder(path)) return false;
    Complain(path, "is no folder");
    return true;
}

int main(int argc, char** argv) {
    int result = kFailed;
    try {
        result = Run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const std::exception& error) {
        return Complain("failed", error.what());
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) return Complain("output", "cannot be written");
    return result;
}
