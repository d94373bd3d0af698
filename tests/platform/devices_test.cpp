#include "platform/linux/reference_state.h"

#include <gtest/gtest.h>

// The kernel gives the numbers of a device and a mount again once they are unmounted.
TEST(Devices, WhatWasLearntBeforeIsNotFound) {
    Devices devices;
    DeviceTraits traits = {};
    EXPECT_FALSE(devices.Find(5, 7, 0, traits));
    devices.Remember(5, 7, 1000, {false, true, false});
    EXPECT_TRUE(devices.Find(5, 7, 1000, traits));
    EXPECT_FALSE(traits.stableInodes);
    EXPECT_FALSE(devices.Find(5, 7, 1001, traits));
    devices.Remember(5, 7, 2000, {true, true, true});
    EXPECT_TRUE(devices.Find(5, 7, 1001, traits));
    EXPECT_TRUE(traits.stableInodes);
    EXPECT_FALSE(devices.Find(5, 8, 0, traits));
    EXPECT_FALSE(devices.Find(6, 7, 0, traits));
}
