// A fixture for tests in which threads end by force.
#pragma once

#include "support/sanitizers.h"

#include <gtest/gtest.h>

class ForcedEnd : public testing::Test {
protected:
    void SetUp() override {
        if (kThreadSanitizer) {
            GTEST_SKIP()
                << "the thread sanitizer waits for ever for threads that end by the kernel's exit call";
        }
    }
};
