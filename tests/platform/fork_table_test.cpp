#include "platform/linux/fork_table.h"

#include "metadata_support.h"

#include <random>
#include <sys/wait.h>
#include <thread>

namespace {
std::unique_ptr<OpenFork> NewFork(int descriptor = -1, uint64_t inode = 1) {
    struct statx facts = {};
    facts.stx_ino = inode;
    return std::make_unique<OpenFork>(ForkKind::kData, descriptor, facts);
}

FSForkRefNum Add(int descriptor = -1, uint64_t inode = 1) {
    auto fork = NewFork(descriptor, inode);
    return AddFork(fork);
}

bool IsDescriptorOpen(int descriptor) {
    return fcntl(descriptor, F_GETFD) >= 0;
}
} // namespace

TEST(ForkTable, NumbersInRotation_ComeBackAfterAllOthers) {
    const FSForkRefNum first = Add();
    ASSERT_EQ(first, 1);
    ASSERT_EQ(CloseFork(first), noErr);
    for (int expected = 2; expected <= 32767; ++expected) {
        const FSForkRefNum number = Add();
        ASSERT_EQ(number, expected);
        ASSERT_EQ(CloseFork(number), noErr);
    }
    for (int expected = 1; expected <= 5; ++expected) EXPECT_EQ(Add(), expected);
}

TEST(ForkTable, AllNumbersInUse_GiveNoneAndLeaveTheForkToTheCaller) {
    for (int i = 1; i <= 32767; ++i) ASSERT_EQ(Add(-1, static_cast<uint64_t>(i)), i);
    auto fork = NewFork();
    EXPECT_EQ(AddFork(fork), 0);
    EXPECT_NE(fork, nullptr);
    ASSERT_EQ(CloseFork(777), noErr);
    EXPECT_EQ(AddFork(fork), 777);
    EXPECT_EQ(fork, nullptr);
    for (int i = 1; i <= 32767; ++i) ASSERT_EQ(CloseFork(static_cast<FSForkRefNum>(i)), noErr);
}

TEST(ForkTable, NumbersThatAreNotOpen_AreRefused) {
    const FSForkRefNum number = Add();
    for (const int each : {0, -1, -32768, 2, 32767}) {
        EXPECT_EQ(CloseFork(static_cast<FSForkRefNum>(each)), rfNumErr) << each;
        EXPECT_FALSE(HeldFork(static_cast<FSForkRefNum>(each))) << each;
    }
    EXPECT_EQ(CloseFork(number), noErr);
    EXPECT_EQ(CloseFork(number), rfNumErr);
    EXPECT_FALSE(HeldFork(number));
}

TEST(ForkTable, ForkClosedWhileItIsHeld_KeepsItsDescriptorUntilItIsLetGo) {
    const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const FSForkRefNum number = Add(descriptor);
    {
        const HeldFork held(number);
        ASSERT_TRUE(held);
        EXPECT_EQ(CloseFork(number), noErr);
        EXPECT_TRUE(IsDescriptorOpen(descriptor));
        EXPECT_FALSE(HeldFork(number));
        EXPECT_EQ(CloseFork(number), rfNumErr);
        EXPECT_TRUE(IsDescriptorOpen(held->descriptor));
    }
    EXPECT_FALSE(IsDescriptorOpen(descriptor));
}

TEST(ForkTable, OpenForks_AreToldByObject) {
    struct statx one = {}, other = {};
    one.stx_ino = 1;
    other.stx_ino = 257;
    EXPECT_FALSE(AnyForkIsOpen());
    const FSForkRefNum first = Add(-1, 1), second = Add(-1, 1);
    EXPECT_TRUE(AnyForkIsOpen());
    EXPECT_EQ(OpenForkFlags(one), kFSNodeForkOpenMask | kFSNodeDataOpenMask);
    EXPECT_EQ(OpenForkFlags(other), 0);
    EXPECT_EQ(CloseFork(second), noErr);
    EXPECT_TRUE(OpenForkFlags(one));
    EXPECT_EQ(CloseFork(first), noErr);
    EXPECT_FALSE(OpenForkFlags(one));
    EXPECT_FALSE(AnyForkIsOpen());
}

TEST(ForkTable, ManyThreads_NeverReachAForkThatIsNotTheirs) {
    constexpr int kThreads = 4, kRounds = 20000;
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (int index = 0; index < kThreads; ++index) {
        threads.emplace_back([index, &wrong] {
            for (int round = 0; round < kRounds; ++round) {
                const uint64_t mine =
                    static_cast<uint64_t>(index) * kRounds + static_cast<uint64_t>(round) + 1;
                const FSForkRefNum number = Add(-1, mine);
                const HeldFork held(number);
                if (!held || held->key.inode != mine) ++wrong;
                if (CloseFork(number) != noErr || CloseFork(number) != rfNumErr) ++wrong;
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_FALSE(AnyForkIsOpen());
}

TEST(ForkTable, ClosingAgainstReading_NeverReadsAnotherFile) {
    TemporaryFolder folder;
    WriteFile(folder / "a", std::string(64, 'a'));
    const FSRef ref = RefTo(folder / "a");
    std::atomic<int> number = 0;
    std::atomic<bool> done = false;
    std::atomic<int> wrong = 0;
    std::thread reader([&] {
        while (!done) {
            char byte = 'a';
            const auto fork = static_cast<FSForkRefNum>(number.load());
            const OSErr result = FSReadFork(fork, fsFromStart, 0, 1, &byte, nullptr);
            if ((result != noErr && result != rfNumErr) || byte != 'a') ++wrong;
        }
    });
    for (int round = 0; round < 3000; ++round) {
        FSForkRefNum fork = 0;
        ASSERT_EQ(OpenByRef(ref, false, fsRdPerm, fork), noErr);
        number = fork;
        ASSERT_EQ(FSCloseFork(fork), noErr);
        const int other = open("/dev/zero", O_RDONLY | O_CLOEXEC); // takes the descriptor's number
        ASSERT_GE(other, 0);
        close(other);
    }
    done = true;
    reader.join();
    EXPECT_EQ(wrong, 0);
}

TEST(ForkTable, AForkHeldByAnotherThreadWhenTheProcessForks_CanBeClosedInTheChild) {
    const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const FSForkRefNum number = Add(descriptor);
    std::atomic<bool> isHeld = false, done = false;
    std::thread holder([&] {
        const HeldFork held(number);
        isHeld = true;
        isHeld.notify_one();
        done.wait(false);
    });
    isHeld.wait(false);
    const pid_t child = fork();
    if (child == 0) _exit(CloseFork(number) == noErr && !IsDescriptorOpen(descriptor) && Add() == 2 ? 0 : 1);
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    done = true;
    done.notify_one();
    holder.join();
    EXPECT_EQ(CloseFork(number), noErr);
}
