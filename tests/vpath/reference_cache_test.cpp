#include "vpath/reference_cache.h"

#include "support/files.h"
#include "support/forced_end.h"
#include "support/virtual_paths.h"
#include "vpath/globals.h"
#include "vpath/segments.h"

#include <algorithm>
#include <atomic>
#include <barrier>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using References = Key1ToKey2<const TavChar*, OpacTavFSRef*>;

bool Exists(const References& references, const std::u16string& path, OpacTavFSRef** at = nullptr) {
    References::iterator place;
    const bool exists = references.IsExistKey1(path.c_str(), place);
    if (at) *at = *place;
    return exists;
}

// Puts a new reference with one holder into references that do not have it.
OpacTavFSRef* Add(References& references, const std::u16string& path) {
    References::iterator place;
    EXPECT_FALSE(references.IsExistKey1(path.c_str(), place));
    OpacTavFSRef* const r = NewReference(path.c_str());
    references.InsertKey2(r, place);
    return r;
}

// Paths of the kinds that make keys alike or not: long common beginnings, short and long names, names that
// are beginnings of others, units beyond a byte.
std::u16string RandomPath(std::mt19937& random) {
    static const std::u16string pieces[] = {u"/",     u"/a",          u"/b",          u"/Users/ann/Documents",
                                            u"/\xFE", u"/\xFF",       u"/\x100",      u"/\xFFFF\x4E2D",
                                            u"a",     u"/Users/anna", u"/Users/Ann/", u" copy 12345678"};
    std::u16string path;
    for (unsigned i = random() % 5; i > 0; --i) path += pieces[random() % std::size(pieces)];
    return path + Wide(std::to_string(random() % 60));
}

const std::u16string kContended = u"/contended";

// Sets the flag behind the parameter, and does not end by itself.
uint32_t CreateAndReleaseForEver(void* begun) {
    *static_cast<std::atomic<bool>*>(begun) = true;
    for (;;) Tav0FSRRelease(Tav0FSRCreateWithPath(kContended.c_str()));
}

} // namespace

TEST(Pr, OrdersAnElementBeforeAPath) {
    OpacTavFSRef* const r = NewReference(u"/b");
    EXPECT_TRUE(References::Pr()(r, u"/c"));
    EXPECT_FALSE(References::Pr()(r, u"/b"));
    EXPECT_FALSE(References::Pr()(r, u"/a"));
    EXPECT_TRUE(References::Pr{1}(r, u"xc"));
    Free(r);
}

TEST(LessThan, OrdersAPathBeforeAnElement) {
    OpacTavFSRef* const r = NewReference(u"/b");
    EXPECT_TRUE(References::LessThan()(u"/a", r));
    EXPECT_FALSE(References::LessThan()(u"/b", r));
    EXPECT_FALSE(References::LessThan()(u"/c", r));
    Free(r);
}

TEST(IsExistKey1, GivesTheLowerBoundEitherWay) {
    References references;
    OpacTavFSRef* at = nullptr;
    EXPECT_FALSE(Exists(references, u"/a", &at));
    EXPECT_EQ(at, nullptr);
    OpacTavFSRef* const b = Add(references, u"/b");
    OpacTavFSRef* const d = Add(references, u"/d");
    EXPECT_TRUE(Exists(references, u"/b", &at));
    EXPECT_EQ(at, b);
    EXPECT_FALSE(Exists(references, u"/a", &at));
    EXPECT_EQ(at, b);
    EXPECT_FALSE(Exists(references, u"/c", &at));
    EXPECT_EQ(at, d);
    EXPECT_FALSE(Exists(references, u"/e", &at));
    EXPECT_EQ(at, nullptr);
    references.Release(b);
    references.Release(d);
}

TEST(References, AreFreedWithTheirLastHolder) {
    References references;
    OpacTavFSRef* const r = Add(references, u"/a");
    AddReference(r);
    references.Release(r);
    EXPECT_TRUE(Exists(references, u"/a"));
    references.Release(r);
    EXPECT_FALSE(Exists(references, u"/a"));
    EXPECT_EQ(references.size(), 0u);
}

// Against an ordered map, through every size at which the two arrays are merged and tidied up.
TEST(References, AgreeWithAnOrderedMap) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    References references;
    std::map<std::u16string, OpacTavFSRef*> model;
    for (int step = 0; step < 60000; ++step) {
        const std::u16string path = RandomPath(random);
        const auto lower = model.lower_bound(path);
        OpacTavFSRef* at = nullptr;
        const bool exists = Exists(references, path, &at);
        ASSERT_EQ(exists, lower != model.end() && lower->first == path) << Narrow(path);
        ASSERT_EQ(at, lower == model.end() ? nullptr : lower->second);
        // Grows at first, then shrinks, then goes up and down.
        const unsigned grow = step < 20000 ? 9 : step < 40000 ? 3 : 5;
        if (!exists && random() % 10 < grow) {
            model[path] = Add(references, path);
        } else if (!model.empty() && random() % 10 >= grow) {
            const auto victim =
                exists ? lower : std::next(model.begin(), random() % std::min<size_t>(model.size(), 50));
            references.Release(victim->second);
            model.erase(victim);
        }
        ASSERT_EQ(references.size(), model.size());
    }
    for (const auto& entry : model) references.Release(entry.second);
    EXPECT_EQ(references.size(), 0u);
}

struct Order {
    const char* name;
    std::function<void(std::vector<std::u16string>&)> arrange;
};

class ReferencesInOrder : public testing::TestWithParam<Order> {};

TEST_P(ReferencesInOrder, StayFindable) {
    std::vector<std::u16string> paths;
    for (int i = 0; i < 20000; ++i) paths.push_back(u"/Users/ann/Documents/file " + Wide(std::to_string(i)));
    GetParam().arrange(paths);
    References references;
    std::vector<OpacTavFSRef*> made;
    for (const auto& path : paths) made.push_back(Add(references, path));
    for (size_t i = 0; i < paths.size(); ++i) {
        OpacTavFSRef* at = nullptr;
        ASSERT_TRUE(Exists(references, paths[i], &at));
        ASSERT_EQ(at, made[i]);
    }
    for (size_t i = 0; i < paths.size(); ++i) {
        references.Release(made[i]);
        ASSERT_FALSE(Exists(references, paths[i]));
        ASSERT_EQ(Exists(references, paths.back()), i + 1 < paths.size());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Orders, ReferencesInOrder,
    testing::Values(Order{"Sorted", [](auto& paths) { std::sort(paths.begin(), paths.end()); }},
                    Order{"Reverse", [](auto& paths) { std::sort(paths.rbegin(), paths.rend()); }},
                    Order{"Shuffled",
                          [](auto& paths) { std::shuffle(paths.begin(), paths.end(), std::mt19937(1)); }}),
    [](const auto& order) { return order.param.name; });

TEST(CreateWithPath, GivesTheSameReferenceForTheSamePath) {
    OpacTavFSRef* const r = Tav0FSRCreateWithPath(u"/a/b");
    EXPECT_EQ(Tav0FSRCreateWithPath(u"/a/b"), r);
    EXPECT_EQ(r->count, 2);
    EXPECT_EQ(s_FSRefs.size(), 1u);
    Tav0FSRRelease(r);
    EXPECT_EQ(s_FSRefs.size(), 1u);
    Tav0FSRRelease(r);
    EXPECT_EQ(s_FSRefs.size(), 0u);
    const Ref fresh = MakeRef(u"/a/b");
    EXPECT_EQ(fresh->count, 1);
}

TEST(CreateWithPath, TellsLetterCaseApart) {
    const Ref a = MakeRef(u"/a/B");
    const Ref b = MakeRef(u"/a/b");
    EXPECT_NE(a, b);
    EXPECT_EQ(s_FSRefs.size(), 2u);
}

TEST(CreateWithPath, KeepsWhatItIsGiven) {
    for (const TavChar* path : {u"", u"relative", u"/a/../b/", u"//", u".hidden", u"a:b:c"}) {
        EXPECT_EQ(PathOf(MakeRef(path)), path);
    }
}

TEST(CreateWithPath, GivesNullForNull) {
    EXPECT_EQ(Tav0FSRCreateWithPath(nullptr), nullptr);
}

TEST(Release, IgnoresNullReference) {
    Tav0FSRRelease(nullptr);
}

TEST(Lock, MayBeTakenAgainByItsHolder) {
    ASSERT_TRUE(s_FSRefs.Lock());
    ASSERT_TRUE(s_FSRefs.Lock());
    const Ref ref = MakeRef(u"/a");
    s_FSRefs.Unlock();
    s_FSRefs.Unlock();
    std::thread([] { EXPECT_EQ(PathOf(MakeRef(u"/b")), u"/b"); }).join();
}

// Threads are terminated wherever they are; most of their time they are in the cache.
TEST_F(ForcedEnd, OfThreadsInTheCacheLeavesItUnlocked) {
    alarm(60);
    for (int round = 0; round < 50; ++round) {
        std::atomic<bool> begun = false;
        OpacTavThread* const thread = TavCreateThread(CreateAndReleaseForEver, &begun, 0, 0);
        while (!begun) std::this_thread::yield();
        ASSERT_EQ(TavTerminateThread(thread, 0), 1);
        ASSERT_EQ(TavWaitThread(thread, TAV_INFINITE), TAV_WAIT_OBJECT_0);
        TavCloseThreadRef(thread);
        ASSERT_EQ(PathOf(MakeRef(u"/after")), u"/after");
    }
    // What the threads held.
    const Ref last = MakeRef(kContended);
    while (last->count > 1) Tav0FSRRelease(last.get());
    alarm(0);
}

TEST(Cache, ServesManyThreads) {
    constexpr int kThreads = 64;
    constexpr int kPaths = 100;
    std::vector<std::thread> threads;
    std::vector<std::vector<OpacTavFSRef*>> made(kThreads);
    std::barrier allMade(kThreads);
    const auto pathOf = [](unsigned number) { return u"/shared/path/" + Wide(std::to_string(number)); };
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            std::mt19937 random(t);
            std::vector<OpacTavFSRef*> held;
            for (int step = 0; step < 500; ++step) {
                const std::u16string path = pathOf(random() % kPaths);
                OpacTavFSRef* const r = Tav0FSRCreateWithPath(path.c_str());
                EXPECT_EQ(PathOf(r), path);
                held.push_back(r);
                if (random() % 2) {
                    EXPECT_GE(Tav0FSRRetain(r), 1u);
                    held.push_back(r);
                }
                while (held.size() > 10) {
                    std::swap(held[random() % held.size()], held.back());
                    Tav0FSRRelease(held.back());
                    held.pop_back();
                }
            }
            for (OpacTavFSRef* r : held) Tav0FSRRelease(r);

            // While all hold theirs, each path has one reference.
            for (unsigned i = 0; i < kPaths; ++i) made[t].push_back(Tav0FSRCreateWithPath(pathOf(i).c_str()));
            allMade.arrive_and_wait();
            EXPECT_EQ(made[t], made[0]);
            allMade.arrive_and_wait();
            for (OpacTavFSRef* r : made[t]) Tav0FSRRelease(r);
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(s_FSRefs.size(), 0u);
}
