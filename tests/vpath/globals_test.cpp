#include "vpath/globals.h"

#include "support/virtual_paths.h"

#include <atomic>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

TEST(Globals, AreEmptyAtLoad) {
    EXPECT_TRUE(g_map_KeyPath.empty());
    EXPECT_EQ(s_FSRefs.size(), 0u);
    EXPECT_TRUE(g_map_KeyPathSeg.empty());
    EXPECT_EQ(g_FSRefValModAccount, 0u);
}

// Children are born while other threads are in the cache; each must find the lock free and the cache whole.
TEST(Fork, LeavesAUsableCacheInTheChild) {
    const Ref held = MakeRef(u"/held");
    std::atomic<bool> stop = false;
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([&stop, t] {
            for (unsigned i = 0; !stop; ++i) MakeRef(u"/busy/" + std::u16string(1 + (i + t) % 50, u'x'));
        });
    }
    for (int i = 0; i < 100; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(60);
            const Ref same = MakeRef(u"/held");
            const Ref fresh = MakeRef(u"/fresh");
            _exit(same == held && fresh && PathOf(fresh) == u"/fresh" ? 0 : 1);
        }
        ASSERT_GT(child, 0);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
    }
    stop = true;
    for (std::thread& thread : threads) thread.join();
}
