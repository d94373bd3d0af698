// Listing folders that are hard to list: awkward names and items, folders that change or may not be read,
// huge ones.
#include "support/files.h"
#include "support/listing.h"
#include "support/users.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <malloc.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <set>

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

namespace {

std::string Repeated(const char* text, int count) {
    std::string result;
    while (count-- > 0) result += text;
    return result;
}

// A search that is closed when the test ends.
class Search {
public:
    explicit Search(const std::string& path) : search_(TavFindFirstFile(Wide(path).c_str(), &item_.data)) {}
    ~Search() {
        if (found()) TavFindClose(search_);
    }
    Search(const Search&) = delete;
    Search& operator=(const Search&) = delete;

    bool found() const { return search_ != TAV_INVALID_FIND; }
    bool Next() { return TavFindNextFile(search_, &item_.data); }
    std::string name() const { return Narrow(item_.name()); }

private:
    FoundItem item_;
    TavFindSearch* search_;
};

// The entries that a search still has, at most `limit`; beyond it something goes round in circles.
size_t CountRest(Search& search, size_t limit) {
    size_t count = 0;
    while (count < limit && search.Next()) ++count;
    return count;
}

} // namespace

// ---- Names

TEST(FindFiles, LongestNames_AreListed) {
    TemporaryFolder folder;
    const Names names = {std::string(255, 'n'), Repeated("\u65E5", 85), Repeated("\U00010400", 63)};
    for (const std::string& name : names) WriteFile(folder / name, "");
    Names sorted = names;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(NamesBehindFirst(folder.path()), sorted);
    for (const std::string& name : names) EXPECT_EQ(Narrow(FindAll(folder / name).at(0).name()), name);
}

TEST(FindFiles, NamesThatAreNotText_AreListedAndFound) {
    TemporaryFolder folder;
    WriteFile(folder / "a\xFF\x80", "");
    auto items = FindAll(folder.path().string());
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[1].name(), u"a\xDCFF\xDC80");
    auto found = FindAll(Wide(folder.path()) + u"/a\xDCFF\xDC80");
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].name(), u"a\xDCFF\xDC80");
    EXPECT_EQ(FindAll(Wide(folder.path()) + u"/a\xDCFF\xDC81").size(), 0u);
}

TEST(FindFiles, NameWithAColon_IsListedWithASlash) {
    TemporaryFolder folder;
    WriteFile(folder / "a:b", "");
    EXPECT_EQ(NamesBehindFirst(folder.path()), Names{"a/b"});
    // kept: the name of the item is then another text than the one sought.
    EXPECT_EQ(FindAll(folder / "a:b").size(), 0u);
}

TEST(FindFiles, NamesThatDifferInCase_AreEachFoundExactly) {
    TemporaryFolder folder;
    for (const char* name : {"name", "Name", "NAME"}) WriteFile(folder / name, "");
    EXPECT_EQ(NamesBehindFirst(folder.path()), (Names{"NAME", "Name", "name"}));
    for (const char* name : {"name", "Name", "NAME"})
        EXPECT_EQ(Narrow(FindAll(folder / name).at(0).name()), name);
}

TEST(FindFiles, LongestPath_Has1023Units) {
    TemporaryFolder folder;
    std::string path = folder.path().string();
    while (path.size() + 202 < 1021) path += "/" + std::string(200, 'd');
    path += "/" + std::string(1021 - path.size() - 1, 'd');
    fs::create_directories(path);
    ASSERT_EQ(path.size(), 1021u);
    WriteFile(path + "/f", "");
    WriteFile(path + "/ff", "");
    EXPECT_EQ(NamesBehindFirst(path + "/*"), (Names{"f", "ff"}));
    EXPECT_EQ(FindAll(path + "/f").size(), 1u);
    EXPECT_EQ(FindAll(path + "/ff").size(), 0u);
    EXPECT_EQ(FindAll(path + "/" + std::string(5000, '*')).size(), 0u);
}

// ---- Items

TEST(FindFiles, Links_AreListedAsFiles) {
    TemporaryFolder folder;
    fs::create_directory(folder / "d");
    fs::create_symlink("d", folder / "to-folder");
    fs::create_symlink("missing", folder / "broken");
    fs::create_symlink("b", folder / "a");
    fs::create_symlink("a", folder / "b");
    auto items = FindAll(folder.path().string());
    EXPECT_EQ(items.size(), 6u);
    for (const char16_t* name : {u"to-folder", u"broken", u"a", u"b"}) {
        EXPECT_EQ(Find(items, name).name(), name);
        EXPECT_EQ(Find(items, name).data.dwFileAttributes, 0u);
    }
}

TEST(FindFiles, LinkToAFolder_ListsTheFolder) {
    TemporaryFolder folder;
    fs::create_directory(folder / "d");
    WriteFile(folder / "d/inside", "");
    fs::create_symlink("d", folder / "link");
    EXPECT_EQ(NamesBehindFirst(folder / "link"), Names{"inside"});
    EXPECT_EQ(NamesBehindFirst(folder / "link/*"), Names{"inside"});
    EXPECT_EQ(FindAll(folder / "link").at(0).data.dwFileAttributes, 0x12u);
}

TEST(FindFiles, LinkToAFile_HasTheTargetsSizeAndTimesByNameAndItsOwnInAListing) {
    TemporaryFolder folder;
    WriteFile(folder / "target", std::string(100000, 'x'));
    fs::create_symlink("target", folder / "link");
    const timespec old[2] = {{1000000000, 0}, {1100000000, 0}}, late[2] = {{1200000000, 0}, {1300000000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, (folder / "target").c_str(), old, 0), 0);
    ASSERT_EQ(utimensat(AT_FDCWD, (folder / "link").c_str(), late, AT_SYMLINK_NOFOLLOW), 0);
    const auto listing = FindAll(folder.path().string());
    const FoundItem listed = Find(listing, u"link"), target = Find(listing, u"target");
    const auto found = FindAll(folder / "link");
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].name(), u"link");
    EXPECT_EQ(found[0].size(), target.size());
    EXPECT_LT(listed.size(), target.size());
    // Since 1970.
    const auto seconds = [](const TavFileTime& time) {
        uint64_t value = 0;
        for (int i = 0; i < 6; ++i) value = value << 8 | time.bytes[i];
        return static_cast<int64_t>(value) - 2082844800;
    };
    EXPECT_EQ(seconds(found[0].data.ftLastAccessTime), old[0].tv_sec);
    EXPECT_EQ(seconds(found[0].data.ftLastWriteTime), old[1].tv_sec);
    EXPECT_EQ(seconds(listed.data.ftLastAccessTime), late[0].tv_sec);
    EXPECT_EQ(seconds(listed.data.ftLastWriteTime), late[1].tv_sec);
}

TEST(FindFiles, LinkThatLeadsNowhere_IsNotFoundByName) {
    TemporaryFolder folder;
    fs::create_symlink("missing", folder / "broken");
    fs::create_symlink("circle", folder / "circle");
    for (const char* path : {"broken", "circle", "circle/*", "circle/x"})
        EXPECT_EQ(FindAll(folder / path).size(), 0u);
}

TEST(FindFiles, PipesSocketsAndDevices_AreListedWithoutBeingOpened) {
    TemporaryFolder folder;
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, (folder / "socket").c_str(), sizeof address.sun_path - 1);
    int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    Names expected = {"pipe", "socket"};
    if (mknod((folder / "device").c_str(), S_IFCHR | 0600, makedev(1, 3)) == 0)
        expected.insert(expected.begin(), "device");
    EXPECT_EQ(NamesBehindFirst(folder.path()), expected);
    for (const std::string& name : expected) {
        auto items = FindAll(folder / name);
        ASSERT_EQ(items.size(), 1u) << name;
        EXPECT_EQ(items[0].data.dwFileAttributes, 0u);
    }
    close(listener);
}

TEST(FindFiles, SidecarBesideItsFile_IsNotShown) {
    TemporaryFolder folder;
    const std::string sidecar("\x00\x05\x16\x07\x00\x02\x00\x00", 8);
    WriteFile(folder / "file", "x");
    WriteFile(folder / "._file", sidecar + std::string(1000, '\0'));
    WriteFile(folder / "._orphan", sidecar);
    WriteFile(folder / "._text", "x");
    WriteFile(folder / "text", "x");
    EXPECT_EQ(NamesBehindFirst(folder.path()), (Names{"._orphan", "._text", "file", "text"}));
}

TEST(FindFiles, FinderFlagsInASidecar_AreHeeded) {
    TemporaryFolder folder;
    // One entry: 32 bytes of Finder information from byte 38 on, in them the flag of invisible items.
    std::string sidecar("\x00\x05\x16\x07\x00\x02\x00\x00", 8);
    sidecar +=
        std::string(16, ' ') + std::string("\x00\x01\x00\x00\x00\x09\x00\x00\x00\x26\x00\x00\x00\x20", 14);
    sidecar += std::string(8, '\0') + "\x40" + std::string(23, '\0');
    for (const char* name : {"a", "b"}) WriteFile(folder / name, "");
    WriteFile(folder / "._b", sidecar);
    auto items = FindAll(folder.path().string());
    EXPECT_EQ(items.size(), 3u);
    EXPECT_EQ(Find(items, u"a").data.dwFileAttributes, 0u);
    EXPECT_EQ(Find(items, u"b").data.dwFileAttributes, TAV_FILE_ATTRIBUTE_HIDDEN);
}

// ---- Folders that may not be read

TEST(FindFiles, FolderThatMayNotBeRead_ShowsOnlyItself) {
    if (!CanBecomeAnotherUser()) GTEST_SKIP() << "only the superuser can become another user";
    TemporaryFolder folder;
    fs::permissions(folder.path(), fs::perms(0755));
    fs::create_directory(folder / "closed");
    WriteFile(folder / "closed/file", "");
    fs::permissions(folder / "closed", fs::perms(0700));
    EXPECT_TRUE(AsAnotherUser([&] {
        auto items = FindAll(folder / "closed/*");
        return items.size() == 1 && items[0].name() == u"." && FindAll(folder / "closed/file").empty();
    }));
}

TEST(FindFiles, FolderThatMayBeReadButNotSearched_ComesToAnEnd) {
    if (!CanBecomeAnotherUser()) GTEST_SKIP() << "only the superuser can become another user";
    TemporaryFolder folder;
    fs::permissions(folder.path(), fs::perms(0755));
    fs::create_directory(folder / "names-only");
    for (char name = 'a'; name <= 'j'; ++name) WriteFile(folder / ("names-only/" + std::string(1, name)), "");
    fs::permissions(folder / "names-only", fs::perms(0744));
    EXPECT_TRUE(AsAnotherUser([&] {
        Search search(folder / "names-only");
        return search.found() && CountRest(search, 1000) <= 10 && !search.Next();
    }));
}

// ---- Folders that change

TEST(FindFiles, FolderThatVanishes_ComesToAnEnd) {
    TemporaryFolder folder;
    fs::create_directory(folder / "d");
    WriteFile(folder / "d/file", "");
    Search early(folder / "d"), late(folder / "d");
    ASSERT_TRUE(early.found() && late.found());
    EXPECT_TRUE(late.Next());
    fs::remove_all(folder / "d");
    EXPECT_FALSE(early.Next());
    EXPECT_LE(CountRest(late, 1000), 1u);
    EXPECT_FALSE(late.Next());
}

TEST(FindFiles, EntriesThatComeAndGo_LeaveTheOthersShownOnce) {
    TemporaryFolder folder;
    for (int i = 0; i < 1500; ++i) WriteFile(folder / std::to_string(i), "");
    Search search(folder.path());
    std::multiset<std::string> seen;
    for (int i = 0; search.Next(); ++i) {
        seen.insert(search.name());
        ASSERT_LT(i, 10000);
        if (i % 2 == 0 && i < 1000) WriteFile(folder / ("new" + std::to_string(i)), "");
        if (i % 3 == 0 && i < 1500) fs::remove(folder / std::to_string(i)); // every third goes
    }
    for (int i = 0; i < 1500; ++i) {
        size_t count = seen.count(std::to_string(i));
        EXPECT_LE(count, 1u) << i;
        EXPECT_TRUE(count == 1 || i % 3 == 0) << i;
    }
    for (const std::string& name : seen) EXPECT_EQ(seen.count(name), 1u) << name;
}

TEST(FindFiles, EndOfTheListing_StaysTheEnd) {
    TemporaryFolder folder;
    WriteFile(folder / "a", "");
    Search search(folder.path());
    EXPECT_EQ(CountRest(search, 10), 1u);
    for (const char* name : {"b", "c"}) WriteFile(folder / name, "");
    EXPECT_FALSE(search.Next());
    EXPECT_FALSE(search.Next());
}

TEST(FindFiles, EachEntryDeletedWhenShown_EmptiesTheFolder) {
    TemporaryFolder folder;
    for (int i = 0; i < 1000; ++i) WriteFile(folder / std::to_string(i), "");
    Search search(folder.path());
    while (search.Next()) ASSERT_TRUE(fs::remove(folder / search.name()));
    EXPECT_TRUE(fs::is_empty(folder.path()));
}

// ---- Costs

TEST(FindFiles, ManySearches_LeaveNoDescriptorBehind) {
    TemporaryFolder folder;
    WriteFile(folder / "file", "");
    FindAll(folder.path().string());
    size_t before = OpenDescriptors();
    for (int i = 0; i < 200; ++i) {
        FindAll(folder.path().string());
        Search begun(folder.path());
        begun.Next();
    }
    EXPECT_LE(OpenDescriptors(), before + 2);
}

TEST(FindFiles, HugeFolder_IsListedInConstantMemory) {
    constexpr size_t kEntries = 20000;
    TemporaryFolder folder;
    WriteFile(folder / "0", "");
    // Links to one file make the folder quickly.
    for (size_t i = 1; i < kEntries; ++i) fs::create_hard_link(folder / "0", folder / std::to_string(i));
    Search search(folder.path());
    size_t count = CountRest(search, 2000), early = mallinfo2().uordblks, most = 0;
    for (; search.Next(); ++count) most = std::max<size_t>(most, mallinfo2().uordblks);
    EXPECT_EQ(count, kEntries);
    EXPECT_LE(most, early + 64 * 1024);
}
