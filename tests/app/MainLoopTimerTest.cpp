#include <glib.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <vector>

#include "../bridge/MainContext.h"
#include "app/MainLoopTimer.h"

namespace vorna::app {
namespace {

using namespace std::chrono_literals;

// Work runs once after its delay; a new start cancels its predecessor, and
// cancelled or destroyed work never runs.
TEST(MainLoopTimerTest, RunsOnceAfterItsDelayAndCancelledWorkNeverRuns) {
  std::vector<std::string> ran;
  MainLoopTimer timer;
  timer.start(1ms, [&] { ran.push_back("first"); });
  timer.start(5ms, [&] { ran.push_back("second"); });
  EXPECT_TRUE(timer.pending());
  ASSERT_TRUE(vorna::testing::runUntil([&] { return !ran.empty(); }));
  EXPECT_FALSE(timer.pending());
  bool cancelledRan = false;
  bool destroyedRan = false;
  MainLoopTimer cancelled;
  cancelled.start(1ms, [&] { cancelledRan = true; });
  cancelled.cancel();
  EXPECT_FALSE(cancelled.pending());
  cancelled.cancel();  // twice is harmless
  {
    MainLoopTimer destroyed;
    destroyed.start(1ms, [&] { destroyedRan = true; });
  }
  bool markerRan = false;
  MainLoopTimer marker;
  marker.start(20ms, [&] { markerRan = true; });
  ASSERT_TRUE(vorna::testing::runUntil([&] { return markerRan; }));
  EXPECT_EQ(ran, (std::vector<std::string>{"second"}));
  EXPECT_FALSE(cancelledRan);
  EXPECT_FALSE(destroyedRan);
}

TEST(MainLoopTimerTest, WorkMayRestartOrDestroyItsOwnTimer) {
  int rounds = 0;
  MainLoopTimer repeating;
  std::function<void()> again = [&] {
    if (++rounds < 3) {
      repeating.start(1ms, again);
    }
  };
  repeating.start(1ms, again);
  ASSERT_TRUE(vorna::testing::runUntil([&] { return rounds == 3; }));
  EXPECT_FALSE(repeating.pending());

  auto owned = std::make_unique<MainLoopTimer>();
  bool ran = false;
  owned->start(1ms, [&] {
    owned.reset();
    ran = true;
  });
  ASSERT_TRUE(vorna::testing::runUntil([&] { return ran; }));
  EXPECT_EQ(owned, nullptr);
}

}  // namespace
}  // namespace vorna::app
