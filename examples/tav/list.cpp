// ls, cat, drives, stat: what only looks.
#include "command.h"

#include "host.h"
#include "text.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

struct CloseSearch {
    void operator()(TavFindSearch* search) const { TavFindClose(search); }
};
using Search = std::unique_ptr<TavFindSearch, CloseSearch>;

// Begins a search; null when nothing is found.
Search Begin(const std::string& path, TavFindDataW& found) {
    TavFindSearch* search = TavFindFirstFile(Units(path).c_str(), &found);
    return Search(search == TAV_INVALID_FIND ? nullptr : search);
}

// In a name as it is found "/" stands for ":".
std::string Name(const TavFindDataW& found) {
    std::string name = Bytes(found.cFileName);
    std::replace(name.begin(), name.end(), '/', ':');
    return name;
}

// One object. A search compares with names in which "/" stands for ":", takes a "*" in front for everything, and of a
// link finds what it leads to: these are looked for in their folder.
bool Find(const std::string& path, TavFindDataW& found) {
    const std::string name = path.substr(path.rfind('/') + 1);
    const bool plain = name.find(':') == std::string::npos && name.substr(0, 1) != "*" && !host::IsLink(path);
    if (plain) return Begin(path, found) != nullptr;
    const Search search = Begin(path.substr(0, path.size() - name.size()) + "*", found);
    while (search && TavFindNextFile(search.get(), &found)) {
        if (Name(found) == name) return true;
    }
    found = {};
    return host::IsLink(path) && Begin(path, found); // where the folder may not be read
}

uint64_t SizeOnDisk(const TavFindDataW& found) {
    return uint64_t{found.nFileSizeHigh} << 32 | found.nFileSizeLow;
}

std::string Kind(const TavFindDataW& found) {
    std::string kind = found.dwFileAttributes & TAV_FILE_ATTRIBUTE_DIRECTORY ? "folder" : "file";
    if (found.dwFileAttributes & TAV_FILE_ATTRIBUTE_HIDDEN) kind += ", hidden";
    return kind;
}

void AddRow(Table& table, const TavFindDataW& found) {
    table.Add(
        {Kind(found), WithCommas(SizeOnDisk(found)), Moment(found.ftLastWriteTime), Shown(Name(found))});
}

Table Listing() {
    return Table({"kind", "on disk", "changed", "name"});
}

int ListFolder(const std::string& path, bool hiddenToo) {
    TavFindDataW found;
    Search search = Begin(path == "/" ? "/*" : path + "/*", found);
    if (!search || !host::IsReadable(path)) return Complain(path, host::Reason(path, false));
    std::vector<TavFindDataW> entries;
    do {
        const bool self = std::strcmp(Bytes(found.cFileName).c_str(), ".") == 0;
        const bool hidden = found.dwFileAttributes & TAV_FILE_ATTRIBUTE_HIDDEN;
        if (!self && (hiddenToo || !hidden)) entries.push_back(found);
    } while (TavFindNextFile(search.get(), &found));
    std::sort(entries.begin(), entries.end(), [](const TavFindDataW& a, const TavFindDataW& b) {
        return tav_wcscmp(a.cFileName, b.cFileName) < 0;
    });
    Table table = Listing();
    for (const TavFindDataW& entry : entries) AddRow(table, entry);
    table.Print();
    return kDone;
}

int ListOne(const std::string& path, bool hiddenToo) {
    if (host::IsFolder(path)) return ListFolder(path, hiddenToo);
    TavFindDataW found;
    if (!Find(path, found)) return Complain(path, host::Reason(path, false));
    Table table = Listing();
    AddRow(table, found);
    table.Print();
    return kDone;
}

int PrintFile(const std::string& path) {
    if (host::IsFolder(path)) return Complain(path, "it is a folder");
    const int32_t handle = TavFileOpenExt(At(path).get(), TAV_FILE_READ);
    if (handle == -1) return Complain(path, host::Reason(path, false));
    std::vector<char> buffer(1 << 16);
    uint32_t count = 0;
    bool written = true;
    while (written && TavFileReadExt(handle, buffer.data(), static_cast<uint32_t>(buffer.size()), &count)) {
        written = std::fwrite(buffer.data(), 1, count, stdout) == count;
    }
    int64_t position = 0;
    int64_t size = 0;
    TavFileGetPointerExt(handle, &position);
    TavFileGetFileSizeExt(handle, &size);
    TavFileCloseExt(handle);
    if (!written) return kFailed; // said at the end
    return position < size ? Complain(path, "cannot be read to its end") : kDone;
}

const char* DriveName(int32_t type) {
    switch (type) {
    case TAV_DRIVE_FIXED:
        return "fixed";
    case TAV_DRIVE_REMOVABLE:
        return "removable";
    case TAV_DRIVE_CDROM:
        return "CD or DVD";
    default:
        return "other";
    }
}

// Found by its own path a folder is called ".", which says nothing of whether it is hidden.
bool IsHidden(const std::string& path, const host::Facts& facts) {
    const uint16_t kInvisible = 0x4000;
    return path.find("/.") == path.rfind('/') || (facts.finderFlags & kInvisible) != 0;
}

void PrintFacts(const std::string& path, const TavFindDataW& found, const host::Facts& facts) {
    const auto line = [](const char* name, const std::string& text) {
        std::printf("  %-14s %s\n", name, text.c_str());
    };
    std::printf("%s\n", Shown(path).c_str());
    line("kind",
         Shown(facts.kind) + (IsHidden(path, facts) ? ", hidden" : "") + (facts.locked ? ", locked" : ""));
    line("content", ByteCount(facts.size) + ", " + WithCommas(SizeOnDisk(found)) + " on disk");
    if (facts.resourceFork > 0) line("resource fork", ByteCount(facts.resourceFork));
    line("created", Moment(found.ftCreationTime));
    line("changed", Moment(found.ftLastWriteTime));
    line("last read", Moment(found.ftLastAccessTime));
    line("owner, mode", Shown(facts.owner) + "  " + facts.mode);
    if (!facts.type.empty() || !facts.creator.empty()) {
        line("type, creator", "\"" + Shown(facts.type) + "\" \"" + Shown(facts.creator) + "\"");
    }
    if (facts.finderFlags != 0) {
        char flags[8];
        std::snprintf(flags, sizeof flags, "0x%04x", facts.finderFlags);
        line("Finder flags", flags);
    }
}

// Runs something for each argument; fails when one of them failed.
template <typename Action>
int ForEach(const std::vector<std::string>& arguments, Action action) {
    int result = kDone;
    for (const std::string& argument : arguments) {
        if (IsNoFolder(argument) || action(host::Absolute(argument)) != kDone) result = kFailed;
    }
    return result;
}

} // namespace

int List(const Options& options) {
    const std::vector<std::string> here = {"."};
    bool first = true;
    return ForEach(options.arguments.empty() ? here : options.arguments, [&](const std::string& path) {
        if (options.arguments.size() > 1) std::printf("%s%s:\n", first ? "" : "\n", Shown(path).c_str());
        first = false;
        return ListOne(path, options.Has('a'));
    });
}

int Concatenate(const Options& options) {
    return ForEach(options.arguments, PrintFile);
}

int Status(const Options& options) {
    return ForEach(options.arguments, [](const std::string& path) {
        host::Facts facts;
        if (!host::Look(path, facts)) return Complain(path, host::Reason(path, false));
        TavFindDataW found = {}; // stays so for a link that leads nowhere
        Find(path, found);
        PrintFacts(path, found, facts);
        return int{kDone};
    });
}

int Drives(const Options&) {
    // The library writes the whole list however short the buffer is. Some drives may come meanwhile.
    const size_t kMostUnitsOfRoot = 1025;
    std::vector<TavChar> roots((host::CountMounts() + 64) * kMostUnitsOfRoot);
    TavGetLogicalDriveStrings(static_cast<uint32_t>(roots.size()), roots.data());
    if (!roots[0]) return Complain("drives", "cannot be listed"); // "/" is always there
    Table table({"type", "root"});
    for (const TavChar* root = roots.data(); *root; root += tav_wcslen(root) + 1) {
        table.Add({DriveName(TavGetDriveType(root)), Shown(Bytes(root))});
    }
    table.Print();
    return kDone;
}
