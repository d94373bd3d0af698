// How often the reference cache is tidied up, which costs as much as it has elements. The linker puts a counter in
// front of the two ways in which the cache does it.
#include "support/virtual_paths.h"
#include "vpath/reference_run.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

static size_t tidyings = 0;

// The mangled names of ReferenceRun::Absorb and ReferenceRun::Compact.
extern "C" {

void __real__ZN12ReferenceRun6AbsorbERS_(ReferenceRun*, ReferenceRun*);
void __real__ZN12ReferenceRun7CompactEv(ReferenceRun*);

void __wrap__ZN12ReferenceRun6AbsorbERS_(ReferenceRun* run, ReferenceRun* other) {
    ++tidyings;
    __real__ZN12ReferenceRun6AbsorbERS_(run, other);
}

void __wrap__ZN12ReferenceRun7CompactEv(ReferenceRun* run) {
    ++tidyings;
    __real__ZN12ReferenceRun7CompactEv(run);
}

} // extern "C"

static std::u16string NumberedPath(int number) {
    const std::string digits = std::to_string(1'000'000 + number);
    return u"/folder/" + std::u16string(digits.begin(), digits.end());
}

// However full the run of recent references is when the releases begin.
TEST(ReferenceCacheCalls, TidyingIsDueAfterAboutTheSquareRootOfTheElementsInChanges) {
    for (int count = 10'000; count <= 10'200; count += 10) {
        tidyings = 0;
        std::vector<Ref> live;
        for (int i = 0; i < count; ++i) live.push_back(MakeRef(NumberedPath(i)));
        const size_t byMaking = tidyings;
        live.clear();
        EXPECT_GT(byMaking, 0u);
        EXPECT_LT(byMaking, 3 * std::sqrt(count)) << count;
        EXPECT_LT(tidyings - byMaking, 3 * std::sqrt(count)) << count;
    }
}
