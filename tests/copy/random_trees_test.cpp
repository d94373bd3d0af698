// Random trees copied and compared by tools that know nothing of this library.
#include "TavPort.h"
#include "platform/catalog.h"
#include "platform/forks.h"
#include "support/files.h"
#include "support/references.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <sstream>

namespace fs = std::filesystem;

namespace {

class RandomTree {
public:
    explicit RandomTree(unsigned seed) : random_(seed) {}

    void Fill(const fs::path& folder, int depth) {
        fs::create_directory(folder);
        for (int i = Below(5); i > 0; --i) MakeItem(folder / (FreshName()), depth);
        if (Below(4) == 0) Dress(folder.string(), false);
        SetMode(folder, 0700 | Below(0100));
    }

private:
    int Below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }

    std::string FreshName() {
        static const char* stems[] = {"a",   "b c",          "\xC3\xA9", ".dot",
                                      "x:y", "\xE4\xB8\xAD", "bad\xFF",  "long"};
        std::string name = stems[Below(8)] + std::to_string(++made_);
        if (Below(20) == 0) name += std::string(200, 'n');
        return name;
    }
    void MakeItem(const fs::path& path, int depth) {
        switch (Below(6)) {
        case 0:
            if (depth > 0) return Fill(path, depth - 1);
            [[fallthrough]];
        case 1:
            return fs::create_symlink(Below(2) ? "nowhere" : "/tmp", path);
        default:
            return MakeFile(path);
        }
    }
    void MakeFile(const fs::path& path) {
        static const int sizes[] = {0, 1, 511, 512, 513, 5000, 70000};
        WriteFile(path.string(),
                  std::string(static_cast<size_t>(sizes[Below(7)]), static_cast<char>('a' + Below(26))));
        if (Below(3) == 0) Dress(path.string(), true);
        SetMode(path, 0400 | Below(01000));
        timespec dates[2] = {{0, UTIME_OMIT}, {1000000000 + Below(500000000), 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), dates, 0), 0);
    }
    // Finder information, a resource fork where there can be one, a lock, dates of creation and backup.
    void Dress(const std::string& path, bool isFile) {
        FSRef ref = Reference(path);
        if (isFile && Below(2)) AddResources(ref);
        FSCatalogInfo info{};
        for (int i = 0; i < 8; ++i) info.finderInfo[i] = static_cast<uint8_t>('A' + Below(26));
        for (uint8_t& byte : info.extFinderInfo) byte = static_cast<uint8_t>(Below(256));
        info.createDate = {0, 3000000000u + static_cast<uint32_t>(Below(1000000)), 0};
        info.backupDate = {0, 3000000000u + static_cast<uint32_t>(Below(1000000)), 0};
        if (Below(3) == 0) info.nodeFlags = kFSNodeLockedMask;
        FSCatalogInfoBitmap which = kFSCatInfoFinderInfo | kFSCatInfoCreateDate | kFSCatInfoNodeFlags;
        if (Below(2)) which |= kFSCatInfoFinderXInfo;
        if (Below(2)) which |= kFSCatInfoBackupDate;
        ASSERT_EQ(FSSetCatalogInfo(&ref, which, &info), noErr);
    }
    void AddResources(const FSRef& ref) {
        HFSUniStr255 name;
        FSForkRefNum fork;
        std::string bytes(static_cast<size_t>(Below(3000)), 'r');
        ASSERT_EQ(FSGetResourceForkName(&name), noErr);
        ASSERT_EQ(FSCreateFork(&ref, name.length, name.unicode), noErr);
        ASSERT_EQ(FSOpenFork(&ref, name.length, name.unicode, fsWrPerm, &fork), noErr);
        ASSERT_EQ(FSWriteFork(fork, fsAtMark, 0, static_cast<ByteCount>(bytes.size()), bytes.data(), nullptr),
                  noErr);
        ASSERT_EQ(FSCloseFork(fork), noErr);
    }
    static void SetMode(const fs::path& path, int mode) {
        ASSERT_EQ(chmod(path.c_str(), static_cast<mode_t>(mode)), 0);
    }

    std::mt19937 random_;
    int made_ = 0;
};

// What a command prints.
std::string OutputOf(const std::string& command) {
    std::string text;
    FILE* pipe = popen(command.c_str(), "r");
    char block[65536];
    for (size_t count; (count = fread(block, 1, sizeof block, pipe)) > 0;) text.append(block, count);
    EXPECT_EQ(pclose(pipe), 0) << command;
    return text;
}

// Runs `tool` on everything in a tree that is not a sidecar, links themselves and not what they lead to.
std::string EachOf(const std::string& root, const std::string& chosen, const std::string& tool) {
    return OutputOf("cd '" + root + "' && find . ! -name '._*' " + chosen + " -print0 | LC_ALL=C sort -z | " +
                    "xargs -0 -r " + tool);
}

// Type, mode, owner and size of everything, the files' dates to the second, and what links say.
std::string Facts(const std::string& root) {
    return EachOf(root, "-type d", "stat --printf '%n %F %a %u %g\\n'") +
           EachOf(root, "-type f", "stat --printf '%n %F %a %u %g %s %Y\\n'") +
           EachOf(root, "-type l", "stat --printf '%N %u %g %s\\n'");
}

// The fields of the metadata attribute as bytes, by number; the dates apart.
struct Attribute {
    std::map<unsigned, std::string> fields;

    unsigned long Number(unsigned field, size_t at) const {
        auto found = fields.find(field);
        if (found == fields.end() || found->second.size() < at + 4) return 0;
        unsigned long number = 0;
        for (size_t i = at; i < at + 4; ++i) number = number << 8 | static_cast<uint8_t>(found->second[i]);
        return number;
    }
};

constexpr unsigned kFinderInfo = 9, kFileDates = 8, kServerInfo = 14;

std::string FromHex(const std::string& digits) {
    std::string bytes;
    for (size_t at = 0; at + 1 < digits.size(); at += 2)
        bytes += static_cast<char>(std::stoi(digits.substr(at, 2), nullptr, 16));
    return bytes;
}

Attribute Parse(const std::string& bytes) {
    Attribute attribute;
    const auto number = [&](size_t at, size_t size) {
        size_t value = 0;
        for (size_t i = at; i < at + size; ++i) value = value << 8 | static_cast<uint8_t>(bytes.at(i));
        return value;
    };
    EXPECT_EQ(number(0, 4), 0x00051607u);
    for (size_t i = 0, count = number(24, 2); i < count; ++i) {
        const size_t at = 26 + 12 * i;
        attribute.fields[static_cast<unsigned>(number(at, 4))] =
            bytes.substr(number(at + 4, 4), number(at + 8, 4));
    }
    return attribute;
}

// The attributes of everything in a tree that has one, by path.
std::map<std::string, Attribute> Attributes(const std::string& root) {
    std::map<std::string, Attribute> all;
    std::istringstream lines(
        EachOf(root, "! -type l", "getfattr -h -d -m '^user[.]org[.]netatalk[.]Metadata$' -e hex"));
    std::string line, path;
    while (std::getline(lines, line)) {
        constexpr std::string_view kFile = "# file: ", kValue = "user.org.netatalk.Metadata=0x";
        if (line.starts_with(kFile)) path = line.substr(kFile.size());
        if (line.starts_with(kValue)) all[path] = Parse(FromHex(line.substr(kValue.size())));
    }
    return all;
}

// When each object was born, in seconds since 1970.
std::map<std::string, long long> Births(const std::string& root) {
    std::map<std::string, long long> all;
    std::istringstream lines(EachOf(root, "! -type l", "stat --printf '%W %n\\n'"));
    for (std::string line; std::getline(lines, line);) {
        const std::string path = line.substr(line.find(' ') + 1);
        all[path.starts_with("./") ? path.substr(2) : path] = std::stoll(line);
    }
    return all;
}

// Finder information but for the flag that says that the Finder has placed the object.
std::string FinderInfo(const Attribute& attribute) {
    auto found = attribute.fields.find(kFinderInfo);
    std::string bytes = found == attribute.fields.end() ? std::string(32, '\0') : found->second;
    bytes.at(8) = static_cast<char>(bytes[8] & ~1);
    return bytes;
}

// The creation date that the attribute gives, or else the date of birth; seconds since 1970.
long long CreationDate(const Attribute& attribute, long long birth) {
    constexpr unsigned long kNoDate = 0x80000000, kFrom1970To2000 = 946684800;
    const unsigned long kept =
        attribute.fields.contains(kFileDates) ? attribute.Number(kFileDates, 0) : kNoDate;
    if (kept == kNoDate) return birth;
    return static_cast<int32_t>(kept) + static_cast<long long>(kFrom1970To2000);
}

// As the attribute gives it; the same for none and for no attribute at all.
unsigned long BackupDate(const Attribute& attribute) {
    constexpr unsigned long kNoDate = 0x80000000;
    return attribute.fields.contains(kFileDates) ? attribute.Number(kFileDates, 8) : kNoDate;
}

bool IsLocked(const Attribute& attribute) {
    return attribute.Number(kServerInfo, 0) & 0x01A0;
}

// The attribute names paths with escapes where they are not plain.
std::string Unescaped(const std::string& path) {
    std::string bytes;
    for (size_t at = 0; at < path.size(); ++at) {
        if (path[at] == '\\' && at + 3 < path.size()) {
            bytes += static_cast<char>(std::stoi(path.substr(at + 1, 3), nullptr, 8));
            at += 3;
        } else {
            bytes += path[at];
        }
    }
    return bytes;
}

void CompareAttributes(const std::string& from, const std::string& to) {
    std::map<std::string, Attribute> before, after;
    for (auto& [path, attribute] : Attributes(from)) before[Unescaped(path)] = attribute;
    for (auto& [path, attribute] : Attributes(to)) after[Unescaped(path)] = attribute;
    const auto births = Births(from), birthsAfter = Births(to);
    for (const auto& [path, birth] : births) {
        SCOPED_TRACE(path);
        ASSERT_TRUE(birthsAfter.contains(path));
        EXPECT_EQ(FinderInfo(before[path]), FinderInfo(after[path]));
        EXPECT_EQ(IsLocked(before[path]), IsLocked(after[path]));
        EXPECT_EQ(CreationDate(before[path], birth), CreationDate(after[path], birthsAfter.at(path)));
        EXPECT_EQ(BackupDate(before[path]), BackupDate(after[path]));
    }
}

} // namespace

TEST(RandomTrees, CopyComparesEqualAndIsDeletedToNothing) {
    const char* chosen = getenv("TAVPORT_TREES");
    const unsigned trees = chosen ? static_cast<unsigned>(atoi(chosen)) : 40;
    for (unsigned seed = 1; seed <= trees; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        TemporaryFolder folder;
        const std::string from = folder / "from", to = folder / "to";
        RandomTree(seed).Fill(from, 3);
        ASSERT_EQ(TavCopyFile(Wide(from).c_str(), Wide(to).c_str(), 1), 1);

        OutputOf("diff -r --no-dereference '" + from + "' '" + to + "' 2>&1");
        EXPECT_EQ(Facts(from), Facts(to));
        CompareAttributes(from, to);

        OpacTavFSRef* copy = Tav0FSRCreateWithPath(Wide(to).c_str());
        EXPECT_EQ(TavFileDeleteExt(copy), 1);
        EXPECT_FALSE(fs::exists(to));
        Tav0FSRRelease(copy);
        ASSERT_FALSE(testing::Test::HasFailure());
    }
}
