#include "platform/forks.h"

#include "metadata_support.h"

#include <fstream>
#include <optional>
#include <random>

namespace {
// Each test runs on a data fork and on a resource fork: what can be seen is the same.
class ForkIO : public testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        WriteFile(file_, "");
        if (IsResource()) {
            ASSERT_EQ(MakeResourceFork(RefTo(file_)), noErr);
        }
        ASSERT_EQ(OpenByRef(RefTo(file_), IsResource(), fsRdWrPerm, fork_), noErr);
    }
    void TearDown() override { EXPECT_EQ(FSCloseFork(fork_), noErr); }

    static bool IsResource() { return GetParam(); }
    OSErr Write(const std::string& bytes, uint16_t mode = fsAtMark, int64_t offset = 0) {
        ByteCount count = 77;
        const OSErr result =
            FSWriteFork(fork_, mode, offset, static_cast<ByteCount>(bytes.size()), bytes.data(), &count);
        EXPECT_EQ(count, result == noErr ? bytes.size() : 0u);
        return result;
    }
    // What a read gives, with its result code behind it when that is not 0.
    std::string Read(ByteCount size, uint16_t mode = fsAtMark, int64_t offset = 0) {
        std::string bytes(size, '?');
        ByteCount count = 77;
        const OSErr result = FSReadFork(fork_, mode, offset, size, bytes.data(), &count);
        return bytes.substr(0, count) + (result == noErr ? "" : "|" + std::to_string(result));
    }
    int64_t Mark() {
        int64_t mark = -1;
        EXPECT_EQ(FSGetForkPosition(fork_, &mark), noErr);
        return mark;
    }
    int64_t Size() {
        int64_t size = -1;
        EXPECT_EQ(FSGetForkSize(fork_, &size), noErr);
        return size;
    }

    TemporaryFolder folder_;
    const std::string file_ = folder_ / "file";
    FSForkRefNum fork_ = 0;
};
INSTANTIATE_TEST_SUITE_P(Kinds, ForkIO, testing::Bool(),
                         [](const auto& each) { return each.param ? "Resource" : "Data"; });
} // namespace

TEST_P(ForkIO, AtTheMark_MovesTheMark) {
    EXPECT_EQ(Write("hello "), noErr);
    EXPECT_EQ(Write("world"), noErr);
    EXPECT_EQ(Mark(), 11);
    EXPECT_EQ(Size(), 11);
    EXPECT_EQ(FSSetForkPosition(fork_, fsFromStart, 0), noErr);
    EXPECT_EQ(Read(5), "hello");
    EXPECT_EQ(Read(6), " world");
    EXPECT_EQ(Mark(), 11);
}

TEST_P(ForkIO, FewerBytesThanAskedFor_AreTheEnd) {
    ASSERT_EQ(Write("hello"), noErr);
    EXPECT_EQ(Read(10, fsFromStart, 2), "llo|-39");
    EXPECT_EQ(Mark(), 5);
    EXPECT_EQ(Read(10), "|-39");
    EXPECT_EQ(Read(3, fsFromStart, 2), "llo");
    EXPECT_EQ(Read(0), ""); // nothing asked for, nothing missing
}

TEST_P(ForkIO, EveryPositionMode_CountsFromItsPlace) {
    ASSERT_EQ(Write("0123456789"), noErr);
    EXPECT_EQ(Read(2, fsFromStart, 3), "34");
    EXPECT_EQ(Read(2, fsFromMark, 1), "67");
    EXPECT_EQ(Read(2, fsFromMark, -4), "45");
    EXPECT_EQ(Read(2, fsFromLEOF, -3), "78");
    EXPECT_EQ(Read(1, fsAtMark, 5), "9"); // the offset means nothing there
    EXPECT_EQ(Write("AB", fsFromStart, 1), noErr);
    EXPECT_EQ(Write("CD", fsFromLEOF, -1), noErr);
    EXPECT_EQ(Read(11, fsFromStart, 0), "0AB345678CD");
}

TEST_P(ForkIO, CachingBits_AreIgnored) {
    EXPECT_EQ(Write("abc", noCacheMask), noErr);
    EXPECT_EQ(Write("d", noCacheMask | fsFromLEOF, 0), noErr);
    EXPECT_EQ(Read(4, noCacheMask | fsFromStart, 0), "abcd");
}

TEST_P(ForkIO, PositionBeforeTheStart_IsRefusedAndLeavesTheMark) {
    ASSERT_EQ(Write("hello"), noErr);
    ASSERT_EQ(FSSetForkPosition(fork_, fsFromStart, 2), noErr);
    EXPECT_EQ(FSSetForkPosition(fork_, fsFromStart, -1), posErr);
    EXPECT_EQ(FSSetForkPosition(fork_, fsFromMark, -3), posErr);
    EXPECT_EQ(FSSetForkPosition(fork_, fsFromLEOF, -6), posErr);
    EXPECT_EQ(FSSetForkPosition(fork_, fsFromMark, INT64_MAX), posErr);
    EXPECT_EQ(FSSetForkPosition(fork_, fsFromStart, INT64_MIN), posErr);
    EXPECT_EQ(Read(1, fsFromStart, -1), "|-40");
    EXPECT_EQ(Write("x", fsFromMark, -3), posErr);
    EXPECT_EQ(FSSetForkSize(fork_, fsFromStart, -1), posErr);
    EXPECT_EQ(FSAllocateFork(fork_, 0, fsFromStart, -1, 1, nullptr), posErr);
    EXPECT_EQ(Mark(), 2);
    EXPECT_EQ(Size(), 5);
}

TEST_P(ForkIO, MarkAtTheMark_StaysWhereItIs) {
    ASSERT_EQ(Write("hello"), noErr);
    EXPECT_EQ(FSSetForkPosition(fork_, fsAtMark, 3), noErr);
    EXPECT_EQ(Mark(), 5);
}

TEST_P(ForkIO, SizeAtTheMark_CutsThere) {
    ASSERT_EQ(Write("hello"), noErr);
    ASSERT_EQ(FSSetForkPosition(fork_, fsFromStart, 2), noErr);
    EXPECT_EQ(FSSetForkSize(fork_, fsAtMark, 4), noErr); // the offset means nothing there
    EXPECT_EQ(Size(), 2);
}

TEST_P(ForkIO, MarkBeyondTheEnd_LeavesZeroesWhenWritten) {
    ASSERT_EQ(Write("ab"), noErr);
    EXPECT_EQ(FSSetForkPosition(fork_, fsFromStart, 5), noErr);
    EXPECT_EQ(Mark(), 5);
    EXPECT_EQ(Size(), 2);
    EXPECT_EQ(Read(1), "|-39");
    EXPECT_EQ(Write("c"), noErr);
    EXPECT_EQ(Read(6, fsFromStart, 0), std::string("ab\0\0\0c", 6));
}

TEST_P(ForkIO, NothingToWrite_ChangesNothing) {
    EXPECT_EQ(FSWriteFork(fork_, fsFromStart, 9, 0, nullptr, nullptr), noErr);
    EXPECT_EQ(Size(), 0);
    EXPECT_EQ(Mark(), 9);
}

TEST_P(ForkIO, NullArguments_AreRefused) {
    EXPECT_EQ(FSReadFork(fork_, fsAtMark, 0, 1, nullptr, nullptr), paramErr);
    EXPECT_EQ(FSWriteFork(fork_, fsAtMark, 0, 1, nullptr, nullptr), paramErr);
    EXPECT_EQ(FSGetForkSize(fork_, nullptr), paramErr);
    EXPECT_EQ(FSGetForkPosition(fork_, nullptr), paramErr);
}

TEST_P(ForkIO, Size_CanBeCutAndGrown) {
    ASSERT_EQ(Write("0123456789"), noErr);
    EXPECT_EQ(FSSetForkSize(fork_, fsFromStart, 4), noErr);
    EXPECT_EQ(Size(), 4);
    EXPECT_EQ(Mark(), 10); // stays
    EXPECT_EQ(FSSetForkSize(fork_, fsFromLEOF, 2), noErr);
    EXPECT_EQ(Read(10, fsFromStart, 0), std::string("0123\0\0", 6) + "|-39");
    EXPECT_EQ(FSSetForkSize(fork_, fsFromMark, -1), noErr);
    EXPECT_EQ(Size(), 5);
    EXPECT_EQ(FSSetForkSize(fork_, fsFromStart, 0), noErr);
    EXPECT_EQ(Size(), 0);
}

TEST_P(ForkIO, OtherNumberOfTheSameFork_SeesEveryChange) {
    FSForkRefNum other = 0;
    ASSERT_EQ(OpenByRef(RefTo(file_), IsResource(), fsRdWrPerm, other), noErr);
    ASSERT_EQ(Write("0123456789"), noErr);
    char bytes[10];
    EXPECT_EQ(FSReadFork(other, fsFromStart, 0, 10, bytes, nullptr), noErr);
    EXPECT_EQ(FSSetForkSize(fork_, fsFromStart, 3), noErr);
    ByteCount count = 0;
    EXPECT_EQ(FSReadFork(other, fsFromStart, 0, 10, bytes, &count), eofErr);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(FSWriteFork(other, fsFromStart, 5, 1, "x", nullptr), noErr);
    EXPECT_EQ(Size(), 6);
    EXPECT_EQ(Read(6, fsFromStart, 0), std::string("012\0\0x", 6));
    EXPECT_EQ(FSCloseFork(other), noErr);
}

TEST_P(ForkIO, Allocating_KeepsTheSizeAndTheMark) {
    uint64_t actual = 0;
    ASSERT_EQ(Write("hello"), noErr);
    EXPECT_EQ(FSAllocateFork(fork_, kFSAllocNoRoundUpMask, fsFromStart, 0, 100000, &actual), noErr);
    EXPECT_EQ(actual, 100000u);
    EXPECT_EQ(Size(), 5);
    EXPECT_EQ(Mark(), 5);
    EXPECT_EQ(FSAllocateFork(fork_, kFSAllocNoRoundUpMask, fsFromStart, 0, 0, &actual), noErr);
    EXPECT_EQ(actual, 0u);
    EXPECT_EQ(Read(5, fsFromStart, 0), "hello");
}

TEST_P(ForkIO, AllocatingWhatABlockHolds_IsLeftToTheWrite) {
    uint64_t actual = 0;
    EXPECT_EQ(FSAllocateFork(fork_, kFSAllocNoRoundUpMask, fsFromStart, 0, 1000, &actual), noErr);
    EXPECT_EQ(actual, 1000u);
    EXPECT_EQ(Size(), 0);
    EXPECT_EQ(Write(std::string(1000, 'x')), noErr);
    EXPECT_EQ(Size(), 1000);
}

TEST_P(ForkIO, AllocatingMoreThanThereIs_IsRefused) {
    uint64_t actual = 77;
    EXPECT_EQ(FSAllocateFork(fork_, 0, fsFromStart, 0, uint64_t{1} << 50, &actual), dskFulErr);
    EXPECT_EQ(actual, 0u);
    EXPECT_EQ(FSAllocateFork(fork_, 0, fsFromStart, 0, UINT64_MAX, nullptr), dskFulErr);
    EXPECT_EQ(FSAllocateFork(fork_, 0, fsFromStart, 10, INT64_MAX, nullptr), dskFulErr);
    EXPECT_EQ(Size(), 0);
}

TEST_P(ForkIO, ClosedNumber_IsRefusedEverywhere) {
    FSForkRefNum closed = 0;
    ASSERT_EQ(OpenByRef(RefTo(file_), IsResource(), fsRdWrPerm, closed), noErr);
    ASSERT_EQ(FSCloseFork(closed), noErr);
    for (const int number : {int{closed}, 0, -1, 32767}) {
        const auto fork = static_cast<FSForkRefNum>(number);
        char byte;
        ByteCount count = 77;
        int64_t value = 77;
        uint64_t actual = 77;
        EXPECT_EQ(FSReadFork(fork, fsAtMark, 0, 1, &byte, &count), rfNumErr);
        EXPECT_EQ(count, 0u);
        count = 77;
        EXPECT_EQ(FSWriteFork(fork, fsAtMark, 0, 1, "x", &count), rfNumErr);
        EXPECT_EQ(count, 0u);
        EXPECT_EQ(FSSetForkPosition(fork, fsFromStart, 0), rfNumErr);
        EXPECT_EQ(FSGetForkPosition(fork, &value), rfNumErr);
        EXPECT_EQ(FSGetForkSize(fork, &value), rfNumErr);
        EXPECT_EQ(FSSetForkSize(fork, fsFromStart, 0), rfNumErr);
        EXPECT_EQ(FSAllocateFork(fork, 0, fsFromStart, 0, 1, &actual), rfNumErr);
        EXPECT_EQ(FSCloseFork(fork), rfNumErr);
        EXPECT_EQ(value, 77);
    }
}

// The process's own counts of calls that read and write; nothing where the kernel does not count.
static std::optional<std::pair<long, long>> CallsSoFar() {
    std::ifstream file("/proc/self/io");
    std::string name;
    long value, reads = -1, writes = -1;
    while (file >> name >> value) {
        if (name == "syscr:") reads = value;
        if (name == "syscw:") writes = value;
    }
    if (reads < 0 || writes < 0) return std::nullopt;
    return std::pair{reads, writes};
}

TEST_P(ForkIO, AtTheMark_IsOneCallEach) {
    const auto start = CallsSoFar();
    if (!start) GTEST_SKIP() << "the kernel does not count calls";
    const long ownReads = CallsSoFar()->first - start->first;
    const std::string bytes(4096, 'x');
    ASSERT_EQ(Write(bytes + bytes), noErr);
    ASSERT_EQ(FSSetForkPosition(fork_, fsFromStart, 0), noErr);
    const auto before = CallsSoFar();
    EXPECT_EQ(Write(bytes), noErr);
    EXPECT_EQ(Read(4096), bytes);
    const auto after = CallsSoFar();
    EXPECT_EQ(after->first - before->first - ownReads, 1);
    EXPECT_EQ(after->second - before->second, 1);
}

TEST_P(ForkIO, RandomWork_AgreesWithAModel) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::string model;
    size_t mark = 0;
    for (int step = 0; step < 3000; ++step) {
        const size_t position = random() % 3000;
        const std::string bytes(random() % 200, static_cast<char>('a' + step % 26));
        switch (random() % 4) {
        case 0:
            ASSERT_EQ(FSSetForkPosition(fork_, fsFromStart, static_cast<int64_t>(position)), noErr);
            mark = position;
            break;
        case 1:
            ASSERT_EQ(Write(bytes), noErr);
            if (!bytes.empty() && model.size() < mark + bytes.size()) model.resize(mark + bytes.size());
            if (!bytes.empty()) model.replace(mark, bytes.size(), bytes);
            mark += bytes.size();
            break;
        case 2: {
            const std::string expected = mark < model.size() ? model.substr(mark, 100) : "";
            ASSERT_EQ(Read(100), expected + (expected.size() < 100 ? "|-39" : ""));
            mark += expected.size();
            break;
        }
        default:
            if (random() % 4) break;
            ASSERT_EQ(FSSetForkSize(fork_, fsFromStart, static_cast<int64_t>(position)), noErr);
            model.resize(position);
        }
        ASSERT_EQ(Size(), static_cast<int64_t>(model.size()));
        ASSERT_EQ(Mark(), static_cast<int64_t>(mark));
    }
    EXPECT_EQ(ReadWhole(RefTo(file_), IsResource()), model);
}

TEST(DataFork, BeyondFourGigabytes_Works) {
    TemporaryFolder folder;
    const std::string path = folder / "large";
    WriteFile(path, "");
    FSForkRefNum fork = 0;
    ASSERT_EQ(OpenByRef(RefTo(path), false, fsRdWrPerm, fork), noErr);
    const int64_t far = (int64_t{1} << 32) + 7;
    EXPECT_EQ(FSWriteFork(fork, fsFromStart, far, 3, "abc", nullptr), noErr);
    int64_t value = 0;
    EXPECT_EQ(FSGetForkSize(fork, &value), noErr);
    EXPECT_EQ(value, far + 3);
    EXPECT_EQ(FSGetForkPosition(fork, &value), noErr);
    EXPECT_EQ(value, far + 3);
    char bytes[3];
    EXPECT_EQ(FSReadFork(fork, fsFromLEOF, -3, 3, bytes, nullptr), noErr);
    EXPECT_EQ(std::string(bytes, 3), "abc");
    EXPECT_EQ(FSCloseFork(fork), noErr);
}

TEST(ResourceFork, BeyondWhatTheFormatHolds_IsRefused) {
    TemporaryFolder folder;
    const std::string path = folder / "x";
    WriteFile(path, "");
    ASSERT_EQ(MakeResourceFork(RefTo(path)), noErr);
    FSForkRefNum fork = 0;
    ASSERT_EQ(OpenByRef(RefTo(path), true, fsRdWrPerm, fork), noErr);
    ByteCount count = 77;
    EXPECT_EQ(FSWriteFork(fork, fsFromStart, UINT32_MAX - 82, 1, "x", &count), ioErr);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(FSSetForkSize(fork, fsFromStart, int64_t{1} << 32), ioErr);
    int64_t size = 77;
    EXPECT_EQ(FSGetForkSize(fork, &size), noErr);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(FSCloseFork(fork), noErr);
}

TEST(ForkOnAFullVolume, Writing_ReportsWhatWentIn) {
    const OwnVolume volume("tmpfs", "size=64k");
    if (!volume.reason().empty()) GTEST_SKIP() << volume.reason();
    WriteFile(volume / "x", "");
    FSForkRefNum fork = 0;
    ASSERT_EQ(OpenByRef(RefTo(volume / "x"), false, fsRdWrPerm, fork), noErr);
    EXPECT_EQ(FSAllocateFork(fork, 0, fsFromStart, 0, 100000, nullptr), dskFulErr);
    const std::string bytes(100000, 'x');
    ByteCount count = 0;
    EXPECT_EQ(FSWriteFork(fork, fsFromStart, 0, 100000, bytes.data(), &count), dskFulErr);
    EXPECT_GT(count, 0u);
    EXPECT_LE(count, 65536u);
    int64_t mark = 0, size = 0;
    EXPECT_EQ(FSGetForkPosition(fork, &mark), noErr);
    EXPECT_EQ(FSGetForkSize(fork, &size), noErr);
    EXPECT_EQ(mark, count);
    EXPECT_EQ(size, count);
    EXPECT_EQ(FSCloseFork(fork), noErr);
    EXPECT_EQ(MakeResourceFork(RefTo(volume / "x")), dskFulErr);
    EXPECT_FALSE(Exists(volume / "._x"));
}

TEST(ForkWhereSpaceCannotBeReserved, Allocating_Succeeds) {
    const OwnVolume volume("ramfs");
    if (!volume.reason().empty()) GTEST_SKIP() << volume.reason();
    WriteFile(volume / "x", "");
    FSForkRefNum fork = 0;
    ASSERT_EQ(OpenByRef(RefTo(volume / "x"), false, fsRdWrPerm, fork), noErr);
    uint64_t actual = 0;
    EXPECT_EQ(FSAllocateFork(fork, 0, fsFromStart, 0, 100000, &actual),
              noErr); // it does not say how large it is
    EXPECT_EQ(actual, 100000u);
    EXPECT_EQ(StatusOf(volume / "x").st_blocks, 0);
    EXPECT_EQ(FSCloseFork(fork), noErr);
}
