// The calls that copying a fork makes, with what it tells them. The linker puts a recorder in front of the
// fork operations; one of them can be made to fail.
#include "copy/fork_copy.h"
#include "platform/references.h"
#include "support/files.h"
#include "support/references.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Calls = std::vector<std::string>;

struct Recorder {
    FSRef dest{};
    FSForkRefNum destFork = 0;
    Calls calls;
    std::string failing; // the call that fails, by the beginning of its record
    OSErr code = noErr;
};
Recorder recorder;

std::string Side(bool isDest) {
    return isDest ? " to" : " from";
}

// Notes a call; the code that it is to give, or 0.
OSErr Note(const std::string& call) {
    recorder.calls.push_back(call);
    return !recorder.failing.empty() && call.starts_with(recorder.failing) ? recorder.code : noErr;
}

std::string Number(int64_t number) {
    return " " + std::to_string(number);
}

} // namespace

extern "C" {

OSErr __real_FSOpenFork(const FSRef*, UniCharCount, const UniChar*, int8_t, FSForkRefNum*);
OSErr __real_FSCloseFork(FSForkRefNum);
OSErr __real_FSReadFork(FSForkRefNum, uint16_t, int64_t, ByteCount, void*, ByteCount*);
OSErr __real_FSWriteFork(FSForkRefNum, uint16_t, int64_t, ByteCount, const void*, ByteCount*);
OSErr __real_FSSetForkSize(FSForkRefNum, uint16_t, int64_t);
OSErr __real_FSAllocateFork(FSForkRefNum, FSAllocationFlags, uint16_t, int64_t, uint64_t, uint64_t*);

OSErr __wrap_FSOpenFork(const FSRef* ref, UniCharCount length, const UniChar* name, int8_t permissions,
                        FSForkRefNum* fork) {
    const bool isDest = FSCompareFSRefs(ref, &recorder.dest) == noErr;
    OSErr result = Note("open" + Side(isDest) + Number(permissions));
    if (result == noErr) result = __real_FSOpenFork(ref, length, name, permissions, fork);
    if (result == noErr && isDest) recorder.destFork = *fork;
    return result;
}

OSErr __wrap_FSCloseFork(FSForkRefNum fork) {
    const OSErr failure = Note("close" + Side(fork == recorder.destFork));
    const OSErr result = __real_FSCloseFork(fork);
    return failure != noErr ? failure : result;
}

OSErr __wrap_FSReadFork(FSForkRefNum fork, uint16_t mode, int64_t offset, ByteCount count, void* buffer,
                        ByteCount* actual) {
    const OSErr failure = Note("read" + Side(fork == recorder.destFork) + Number(mode) + Number(count));
    return failure != noErr ? failure : __real_FSReadFork(fork, mode, offset, count, buffer, actual);
}

OSErr __wrap_FSWriteFork(FSForkRefNum fork, uint16_t mode, int64_t offset, ByteCount count,
                         const void* buffer, ByteCount* actual) {
    const OSErr failure = Note("write" + Side(fork == recorder.destFork) + Number(mode) + Number(count));
    return failure != noErr ? failure : __real_FSWriteFork(fork, mode, offset, count, buffer, actual);
}

OSErr __wrap_FSSetForkSize(FSForkRefNum fork, uint16_t mode, int64_t offset) {
    const OSErr failure = Note("cut" + Side(fork == recorder.destFork) + Number(mode) + Number(offset));
    return failure != noErr ? failure : __real_FSSetForkSize(fork, mode, offset);
}

OSErr __wrap_FSAllocateFork(FSForkRefNum fork, FSAllocationFlags flags, uint16_t mode, int64_t offset,
                            uint64_t count, uint64_t* actual) {
    const OSErr failure = Note("allocate" + Side(fork == recorder.destFork) + Number(flags) + Number(mode) +
                               Number(offset) + Number(static_cast<int64_t>(count)));
    return failure != noErr ? failure : __real_FSAllocateFork(fork, flags, mode, offset, count, actual);
}

} // extern "C"

namespace {

class ForkCopyCalls : public testing::Test {
protected:
    // Copies a file of so many bytes through a buffer of two blocks.
    OSErr Copy(size_t size, bool isLocal, const std::string& failing = "", OSErr code = noErr) {
        content.clear();
        for (size_t i = 0; i < size; ++i) content += static_cast<char>('a' + i % 26);
        WriteFile(folder / "from", content);
        WriteFile(folder / "to", "");
        const FSRef source = Reference(folder / "from"), dest = Reference(folder / "to");
        recorder = {dest, 0, {}, failing, code};
        CopyParams params{buffer, sizeof buffer, false, isLocal, false, kDupeActionStandard};
        return CopyForks(&source, &dest, &params);
    }
    std::string Copied() { return ReadFile(folder / "to"); }
    static size_t Closed() {
        size_t closed = 0;
        for (const std::string& call : recorder.calls) closed += call.starts_with("close");
        return closed;
    }

    TemporaryFolder folder;
    std::string content;
    char buffer[1024];
};

} // namespace

// Read permission is 1, write permission 2; flag 4 allocates without rounding up; mode 1 counts from the
// start, mode 32 goes on from the mark past the cache.
TEST_F(ForkCopyCalls, LocalForkIsAllocatedWholeWrittenInWholeBlocksAndCutBack) {
    ASSERT_EQ(Copy(1500, true), noErr);
    EXPECT_EQ(recorder.calls, (Calls{"open to 2", "open from 1", "allocate to 4 1 0 1500",
                                     "read from 32 1024", "write to 32 1024", "read from 32 476",
                                     "write to 32 512", "cut to 1 1500", "close to", "close from"}));
    EXPECT_EQ(Copied(), content);
}

TEST_F(ForkCopyCalls, ServedForkIsWrittenExactlyAndNotCut) {
    ASSERT_EQ(Copy(1500, false), noErr);
    EXPECT_EQ(recorder.calls,
              (Calls{"open to 2", "open from 1", "allocate to 4 1 0 1500", "read from 32 1024",
                     "write to 32 1024", "read from 32 476", "write to 32 476", "close to", "close from"}));
    EXPECT_EQ(Copied(), content);
}

TEST_F(ForkCopyCalls, ForkOfWholeBuffersIsNotCut) {
    ASSERT_EQ(Copy(2048, true), noErr);
    EXPECT_EQ(recorder.calls,
              (Calls{"open to 2", "open from 1", "allocate to 4 1 0 2048", "read from 32 1024",
                     "write to 32 1024", "read from 32 1024", "write to 32 1024", "close to", "close from"}));
}

TEST_F(ForkCopyCalls, ErrorOfEachCallIsTheResultAndWhatIsOpenIsClosed) {
    const struct {
        const char* failing;
        size_t closed;
    } rows[] = {{"open to", 0},  {"open from", 1}, {"allocate", 2}, {"read from", 2},
                {"write to", 2}, {"cut to", 2},    {"close to", 2}};
    for (const auto& row : rows) {
        EXPECT_EQ(Copy(1500, true, row.failing, dskFulErr), dskFulErr) << row.failing;
        EXPECT_EQ(Closed(), row.closed) << row.failing;
    }
}

TEST_F(ForkCopyCalls, NothingIsReadOrWrittenWithoutTheRoomForIt) {
    EXPECT_EQ(Copy(1500, true, "allocate", dskFulErr), dskFulErr);
    EXPECT_EQ(recorder.calls,
              (Calls{"open to 2", "open from 1", "allocate to 4 1 0 1500", "close to", "close from"}));
}

// It was read whole by then.
TEST_F(ForkCopyCalls, ErrorOfTheSourcesCloseIsIgnored) {
    EXPECT_EQ(Copy(1500, true, "close from", ioErr), noErr);
    EXPECT_EQ(Copied(), content);
}

// Where others may write and not read, the forks are opened before anything is written, and closed once.
TEST_F(ForkCopyCalls, DropBoxGetsAsMuchAsItsForksHold) {
    WriteFile(folder / "from", "content");
    WriteFile(folder / "to", "......");
    const FSRef source = Reference(folder / "from"), dest = Reference(folder / "to");
    recorder = {dest, 0, {}, "", noErr};
    CopyParams params{buffer, sizeof buffer, false, true, false, kDupeActionStandard};
    ASSERT_EQ(CopyForksToDropBox(&source, &dest, &params), noErr);
    EXPECT_EQ(Copied(), "conten");
    EXPECT_EQ(recorder.calls.front(), "open to 2");
    EXPECT_EQ(recorder.calls.back(), "close to");
    EXPECT_EQ(Closed(), 2u);
}
