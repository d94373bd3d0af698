#include "platform/process.h"

#include "platform/linux/current_task.h"
#include "support/processes.h"

#include <gtest/gtest.h>
#include <string>

namespace {

std::string order;
std::string held; // for each call whether termination is held back meanwhile

void Note(char what) {
    order += what;
    held += currentTask.holds != 0 ? '1' : '0';
}

} // namespace

TEST(AtFork, HandlersRunInReverseBeforeTheForkAndInOrderAfterItWithTerminationHeld) {
    ASSERT_EQ(PlatformAtFork([] { Note('a'); }, [] { Note('b'); }, [] { Note('c'); }), 0);
    ASSERT_EQ(PlatformAtFork([] { Note('A'); }, [] { Note('B'); }, [] { Note('C'); }), 0);
    ASSERT_EQ(PlatformAtFork(nullptr, nullptr, nullptr), 0);
    order = held = "";
    EXPECT_EQ(RunInChild([] { return order == "AacC" && held == "1111" && currentTask.holds == 0 ? 0 : 1; }),
              0);
    EXPECT_EQ(order, "AabB");
    EXPECT_EQ(held, "1111");
    EXPECT_EQ(currentTask.holds, 0u);
}

TEST(AtFork, RefusesMoreThanThereIsRoomFor) {
    EXPECT_EQ(RunInChild([] {
                  int room = 0;
                  while (room < 1000 && PlatformAtFork(nullptr, nullptr, nullptr) == 0) {
                      room++;
                  }
                  return room < 1000 ? 0 : 1;
              }),
              0);
}
