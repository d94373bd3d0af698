#include "paths/enumeration.h"
#include "platform/references.h"
#include "support/files.h"
#include "support/listing.h"
#include "support/private_mounts.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cstring>

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

namespace {

// The six-byte seconds and the fraction of a moment.
TavFileTime FileTime(const timespec& time) {
    constexpr int64_t kSecondsTo1970 = 2082844800;
    uint64_t seconds = static_cast<uint64_t>(time.tv_sec + kSecondsTo1970);
    uint64_t bits = seconds << 16 | static_cast<uint64_t>(time.tv_nsec) * 65536 / 1000000000;
    TavFileTime result;
    for (int i = 7; i >= 0; --i, bits >>= 8) result.bytes[i] = static_cast<uint8_t>(bits);
    return result;
}

bool Same(const TavFileTime& a, const TavFileTime& b) {
    return memcmp(a.bytes, b.bytes, 8) == 0;
}

void SetCreationTime(const std::string& path, const UTCDateTime& date) {
    FSRef ref;
    ASSERT_EQ(FSPathMakeRef(reinterpret_cast<const uint8_t*>(path.c_str()), &ref, nullptr), noErr);
    FSCatalogInfo info = {};
    info.createDate = date;
    ASSERT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoCreateDate, &info), noErr);
}

void SetFinderFlags(const std::string& path, uint16_t flags) {
    FSRef ref;
    ASSERT_EQ(FSPathMakeRef(reinterpret_cast<const uint8_t*>(path.c_str()), &ref, nullptr), noErr);
    FSCatalogInfo info = {};
    info.finderInfo[8] = static_cast<uint8_t>(flags >> 8);
    ASSERT_EQ(FSSetCatalogInfo(&ref, kFSCatInfoFinderInfo, &info), noErr);
}

uint32_t AttributesOf(const std::string& folder, const std::u16string& name) {
    return Find(FindAll(folder + "/*"), name).data.dwFileAttributes;
}

// A folder with files of several kinds of names.
class Listing : public testing::Test {
protected:
    void SetUp() override {
        for (const char* name : {"Letter.txt", "notes", "a*b", "a?b"}) WriteFile(folder_ / name, "x");
        fs::create_directory(folder_ / "sub");
    }

    std::string path() const { return folder_.path().string(); }
    const Names everything_ = {"Letter.txt", "a*b", "a?b", "notes", "sub"};
    TemporaryFolder folder_;
};

} // namespace

// ---- What is listed

TEST(FindFiles, EmptyFolder_ShowsOnlyItself) {
    TemporaryFolder folder;
    TavFindDataW data;
    TavFindSearch* search = TavFindFirstFile(Wide(folder / "*").c_str(), &data);
    ASSERT_NE(search, TAV_INVALID_FIND);
    EXPECT_EQ(data.dwFileAttributes, 0x12u);
    EXPECT_EQ(std::u16string(data.cFileName), u".");
    for (int i = 0; i < 3; ++i) EXPECT_EQ(TavFindNextFile(search, &data), 0);
    EXPECT_EQ(data.dwFileAttributes, 0u);
    EXPECT_EQ(TavFindClose(search), 1);
}

TEST_F(Listing, Stars_ShowEverything) {
    for (const char* star : {"/*", "/*.*", "/*.txt", "/*.", "/**", "/*?x"}) {
        EXPECT_EQ(NamesBehindFirst(path() + star), everything_) << star;
        EXPECT_EQ(FindAll(path() + star)[0].name(), u".") << star;
    }
}

TEST_F(Listing, PathOfTheFolder_ShowsEverything) {
    for (const char* end : {"", "/"}) {
        EXPECT_EQ(NamesBehindFirst(path() + end), everything_);
        EXPECT_EQ(FindAll(path() + end)[0].name(), u".");
        EXPECT_EQ(FindAll(path() + end)[0].data.dwFileAttributes, 0x12u);
    }
}

TEST_F(Listing, ExactName_ShowsThatItemAlone) {
    auto items = FindAll(path() + "/notes");
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].name(), u"notes");
    EXPECT_EQ(items[0].data.dwFileAttributes, 0u);
}

TEST_F(Listing, ExactNameInOtherLetterCase_ShowsTheNameAsStored) {
    WriteFile(folder_ / "R\u00E9sum\u00E9", "");
    EXPECT_EQ(FindAll(path() + "/LETTER.TXT").at(0).name(), u"Letter.txt");
    EXPECT_EQ(FindAll(path() + "/LETTER.TXT").size(), 1u);
    EXPECT_EQ(FindAll(path() + "/r\u00C9SUM\u00C9").at(0).name(), u"R\u00E9sum\u00E9");
}

TEST_F(Listing, WildcardsElsewhere_AreOrdinaryUnits) {
    EXPECT_EQ(FindAll(path() + "/a*b").size(), 1u);
    EXPECT_EQ(FindAll(path() + "/a*b").at(0).name(), u"a*b");
    EXPECT_EQ(FindAll(path() + "/a?b").at(0).name(), u"a?b");
    EXPECT_EQ(FindAll(path() + "/n*").size(), 0u);
    EXPECT_EQ(FindAll(path() + "/note?").size(), 0u);
    EXPECT_EQ(FindAll(path() + "/?*").size(), 0u);
}

TEST_F(Listing, FolderNamedLikeAStar_CountsOnlyWithMoreBehindIt) {
    fs::create_directory(folder_ / "*");
    fs::create_directory(folder_ / "*x");
    WriteFile(folder_ / "*x/inside", "");
    EXPECT_EQ(NamesBehindFirst(path() + "/*").size(), everything_.size() + 2);
    EXPECT_EQ(NamesBehindFirst(path() + "/*x"), Names{"inside"});
}

TEST_F(Listing, FolderWhoseNameEndsInAStar_IsListed) {
    fs::create_directory(folder_ / "x*");
    WriteFile(folder_ / "x*/inside", "");
    EXPECT_EQ(NamesBehindFirst(path() + "/x*"), Names{"inside"});
}

TEST_F(Listing, StarBehindAFile_ShowsTheFile) {
    auto items = FindAll(path() + "/notes/*");
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].name(), u"notes");
}

TEST_F(Listing, PathThatNamesNothing_FindsNothing) {
    for (const std::string& missing :
         {path() + "/missing", path() + "/missing/*", path() + "/missing/", path() + "/notes/x",
          std::string("missing"), std::string("*"), std::string("")})
        EXPECT_EQ(FindAll(missing).size(), 0u) << missing;
}

TEST(FindFiles, Root_IsListed) {
    for (const char* path : {"/", "/*"}) {
        auto items = FindAll(path);
        ASSERT_GT(items.size(), 1u);
        EXPECT_EQ(items[0].name(), u".");
        EXPECT_EQ(Find(items, u"tmp").data.dwFileAttributes, TAV_FILE_ATTRIBUTE_DIRECTORY);
        EXPECT_EQ(Find(items, u"..").name(), u"");
    }
}

TEST(FindFiles, NothingFound_ClearsOnlyTheAttributes) {
    FoundItem item, untouched;
    untouched.data.dwFileAttributes = 0;
    for (const std::u16string& path : {std::u16string(u"/missing/x"), u"/" + std::u16string(1023, u'x')}) {
        item.data.dwFileAttributes = 1;
        EXPECT_EQ(TavFindFirstFile(path.c_str(), &item.data), TAV_INVALID_FIND);
        EXPECT_EQ(memcmp(&item.data, &untouched.data, sizeof item.data), 0);
    }
}

TEST(FindFiles, EndOfTheListing_ClearsOnlyTheAttributes) {
    TemporaryFolder folder;
    FoundItem item;
    TavFindSearch* search = TavFindFirstFile(Wide(folder.path()).c_str(), &item.data);
    FoundItem untouched = item;
    untouched.data.dwFileAttributes = 0;
    EXPECT_EQ(TavFindNextFile(search, &item.data), 0);
    EXPECT_EQ(memcmp(&item.data, &untouched.data, sizeof item.data), 0);
    TavFindClose(search);
}

// ---- The search record

TEST_F(Listing, SearchRecord_HoldsThePathAndTheExactName) {
    TavFindDataW data;
    std::u16string star = Wide(path()) + u"/" + u"*.txt", name = Wide(path()) + u"/NOTES";
    TavFindSearch* all = TavFindFirstFile(star.c_str(), &data);
    TavFindSearch* one = TavFindFirstFile(name.c_str(), &data);
    EXPECT_EQ(all->iterator, nullptr);
    EXPECT_EQ(all->hasPattern, 0);
    EXPECT_EQ(std::u16string(all->pattern), u"");
    EXPECT_EQ(std::u16string(all->path), star);
    EXPECT_EQ(one->hasPattern, 1);
    EXPECT_EQ(std::u16string(one->pattern), u"NOTES");
    EXPECT_EQ(std::u16string(one->path), name);
    EXPECT_EQ(TavFindNextFile(all, &data), 1);
    EXPECT_NE(all->iterator, nullptr);
    TavFindClose(all);
    TavFindClose(one);
}

TEST_F(Listing, TwoSearches_DoNotDisturbEachOther) {
    TavFindDataW data;
    TavFindSearch* first = TavFindFirstFile(Wide(path()).c_str(), &data);
    TavFindSearch* second = TavFindFirstFile(Wide(path()).c_str(), &data);
    size_t counts[2] = {};
    for (bool more = true; more;) {
        bool firstMore = TavFindNextFile(first, &data), secondMore = TavFindNextFile(second, &data);
        counts[0] += firstMore;
        counts[1] += secondMore;
        more = firstMore || secondMore;
    }
    EXPECT_EQ(counts[0], everything_.size());
    EXPECT_EQ(counts[1], everything_.size());
    TavFindClose(first);
    TavFindClose(second);
}

// ---- What is said of an item

TEST_F(Listing, Folder_HasTheDirectoryAttribute) {
    EXPECT_EQ(AttributesOf(path(), u"sub"), TAV_FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_EQ(AttributesOf(path(), u"notes"), 0u);
}

TEST_F(Listing, Package_IsListedAsAFile) {
    fs::create_directory(folder_ / "Editor.app");
    fs::create_directory(folder_ / "Marked");
    SetFinderFlags(folder_ / "Marked", 0x2000);
    EXPECT_EQ(AttributesOf(path(), u"Editor.app"), 0u);
    EXPECT_EQ(AttributesOf(path(), u"Marked"), 0u);
}

TEST_F(Listing, PathOfAPackage_IsAnExactName) {
    fs::create_directory(folder_ / "Editor.app");
    WriteFile(folder_ / "Editor.app/other", "");
    auto items = FindAll(path() + "/editor.app");
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].name(), u"Editor.app");
    EXPECT_EQ(items[0].data.dwFileAttributes, 0u);
    // The search goes on inside, for the same name.
    WriteFile(folder_ / "Editor.app/EDITOR.app", "");
    EXPECT_EQ(NamesBehindFirst(path() + "/editor.app"), Names{"EDITOR.app"});
}

// kept: a trailing slash makes the name that is sought one unit short at its front.
TEST_F(Listing, PathOfAPackageWithASlash_FindsNothing) {
    fs::create_directory(folder_ / "Editor.app");
    EXPECT_EQ(FindAll(path() + "/Editor.app/").size(), 0u);
}

TEST_F(Listing, StarInAPackage_ShowsThePackageAndWhatIsInside) {
    fs::create_directory(folder_ / "Editor.app");
    WriteFile(folder_ / "Editor.app/inside", "");
    auto items = FindAll(path() + "/Editor.app/*");
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].name(), u"Editor.app");
    EXPECT_EQ(items[0].data.dwFileAttributes, 0u);
    EXPECT_EQ(items[1].name(), u"inside");
}

TEST_F(Listing, LeadingDot_IsHidden) {
    WriteFile(folder_ / ".profile", "");
    fs::create_directory(folder_ / ".cache");
    EXPECT_EQ(AttributesOf(path(), u".profile"), TAV_FILE_ATTRIBUTE_HIDDEN);
    EXPECT_EQ(AttributesOf(path(), u".cache"), 0x12u);
    EXPECT_EQ(FindAll(path() + "/.profile").at(0).data.dwFileAttributes, TAV_FILE_ATTRIBUTE_HIDDEN);
}

TEST_F(Listing, FinderInvisible_IsHidden) {
    SetFinderFlags(folder_ / "notes", 0x4000);
    SetFinderFlags(folder_ / "sub", 0x4000);
    EXPECT_EQ(AttributesOf(path(), u"notes"), TAV_FILE_ATTRIBUTE_HIDDEN);
    EXPECT_EQ(AttributesOf(path(), u"sub"), 0x12u);
    EXPECT_EQ(FindAll(path() + "/notes").at(0).data.dwFileAttributes, TAV_FILE_ATTRIBUTE_HIDDEN);
}

TEST_F(Listing, Times_AreThoseOfTheItem) {
    timespec times[2] = {{1000000001, 500000000}, {1234567890, 250000000}};
    ASSERT_EQ(utimensat(AT_FDCWD, (folder_ / "notes").c_str(), times, 0), 0);
    for (const FoundItem& item : {FindAll(path() + "/notes").at(0), Find(FindAll(path()), u"notes")}) {
        EXPECT_TRUE(Same(item.data.ftLastAccessTime, FileTime(times[0])));
        EXPECT_TRUE(Same(item.data.ftLastWriteTime, FileTime(times[1])));
    }
}

TEST_F(Listing, CreationTime_IsTheItems) {
    std::string file = folder_ / "notes";
    SetCreationTime(file, {0, 3000000000u, 0});
    for (const FoundItem& item : {FindAll(file).at(0), Find(FindAll(path()), u"notes")})
        EXPECT_TRUE(Same(item.data.ftCreationTime, FileTime({3000000000 - 2082844800, 0})));
}

// Where the host keeps birth times every item has a creation date; this volume keeps none.
TEST(FindFiles, NoCreationTime_GivesTheLastWrite) {
    PrivateMounts mounts;
    SKIP_IF_MISSING(mounts.Missing());
    fs::create_directory("/births");
    if (mount("memory", "/births", "ramfs", 0, nullptr) != 0) GTEST_SKIP() << "no ramfs";
    const std::string file = "/births/file";
    WriteFile(file, "x");
    for (const UTCDateTime& date : {UTCDateTime{0, 3000000000u, 0}, UTCDateTime{}}) {
        SetCreationTime(file, date);
        const timespec times[2] = {{1000000001, 500000000}, {1234567890, 250000000}};
        ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
        const TavFileTime expected =
            FileTime(date.lowSeconds ? timespec{3000000000 - 2082844800, 0} : times[1]);
        for (const FoundItem& item : {FindAll(file).at(0), Find(FindAll("/births/*"), u"file")})
            EXPECT_TRUE(Same(item.data.ftCreationTime, expected)) << date.lowSeconds;
    }
}

TEST_F(Listing, FolderItself_HasItsOwnTimesAndNoSize) {
    const std::string sub = folder_ / "sub";
    WriteFile(sub + "/inside", std::string(10000, 'x'));
    SetCreationTime(sub, {0, 3000000000u, 0});
    timespec times[2] = {{1000000001, 500000000}, {1234567890, 250000000}};
    ASSERT_EQ(utimensat(AT_FDCWD, sub.c_str(), times, 0), 0);
    const FoundItem item = FindAll(sub + "/*").at(0);
    ASSERT_EQ(item.name(), u".");
    EXPECT_TRUE(Same(item.data.ftCreationTime, FileTime({3000000000 - 2082844800, 0})));
    EXPECT_TRUE(Same(item.data.ftLastWriteTime, FileTime(times[1])));
    EXPECT_EQ(item.size(), 0u);
    // Being listed is an access, which the host may note.
    struct stat facts;
    ASSERT_EQ(stat(sub.c_str(), &facts), 0);
    EXPECT_TRUE(Same(item.data.ftLastAccessTime, FileTime(times[0])) ||
                Same(item.data.ftLastAccessTime, FileTime(facts.st_atim)));
}

TEST_F(Listing, Size_IsTheSpaceThatTheDataTakes) {
    WriteFile(folder_ / "full", std::string(100000, 'x'));
    WriteFile(folder_ / "holes", "");
    fs::resize_file(folder_ / "holes", 5000000000);
    for (const char* name : {"full", "holes", "notes"}) {
        struct stat facts;
        ASSERT_EQ(stat((folder_ / name).c_str(), &facts), 0);
        uint64_t space = static_cast<uint64_t>(facts.st_blocks) * 512;
        EXPECT_EQ(Find(FindAll(path()), Wide(name)).size(), space) << name;
        EXPECT_EQ(FindAll(folder_ / name).at(0).size(), space) << name;
    }
}

TEST_F(Listing, Records_AreFilledWithinTheirBounds) {
    WriteFile(folder_ / std::string(255, 'n'), "");
    for (const FoundItem& item : FindAll(path())) {
        EXPECT_TRUE(item.Intact());
        EXPECT_EQ(item.data.dwReserved0, 0xA5A5A5A5u);
        EXPECT_EQ(item.data.dwReserved1, 0xA5A5A5A5u);
        for (size_t i = item.name().size() + 1; i < std::size(item.data.cFileName); ++i)
            EXPECT_EQ(item.data.cFileName[i], 0xA5A5);
        for (TavChar unit : item.data.cAlternateFileName) EXPECT_EQ(unit, 0xA5A5);
    }
}
