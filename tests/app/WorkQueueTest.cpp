#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <latch>
#include <mutex>
#include <stdexcept>

#include "app/WorkQueue.h"
#include "support/TimeLimit.h"

namespace vorna::app {
namespace {

// A latch waited for with a limit: a queue that never runs a job fails the
// test instead of hanging it.
bool reaches(std::latch& latch) {
  return vorna::testing::eventually([&] { return latch.try_wait(); });
}

// A failing job is reported and the queue goes on.
TEST(WorkQueueTest, ASerialQueueRunsOneJobAtATimeInOrder) {
  std::vector<int> order;
  std::atomic<int> running{0};
  std::atomic<int> mostAtOnce{0};
  std::latch done(50);
  ::testing::internal::CaptureStderr();
  {
    WorkQueue queue("app.vorna.Vorna.message", 1);
    queue.submit([] { throw std::runtime_error("boom"); });
    for (int i = 0; i < 50; ++i) {
      queue.submit([&, i] {
        int now = ++running;
        mostAtOnce = std::max(mostAtOnce.load(), now);
        order.push_back(i);
        --running;
        done.count_down();
      });
    }
    ASSERT_TRUE(reaches(done));
  }
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "Vorna: a job on app.vorna.Vorna.message failed: boom\n");
  EXPECT_EQ(mostAtOnce.load(), 1);
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(order[static_cast<size_t>(i)], i);
  }
}

TEST(WorkQueueTest, AConcurrentQueueRunsJobsSideBySideOnNamedThreads) {
  WorkQueue queue("app.vorna.Vorna.scheme", 4);
  std::latch allStarted(4);
  std::latch release(1);
  std::mutex lock;
  std::vector<std::string> names;
  for (int i = 0; i < 4; ++i) {
    queue.submit([&] {
      char name[16] = {};
      pthread_getname_np(pthread_self(), name, sizeof name);
      {
        std::lock_guard guard(lock);
        names.emplace_back(name);
      }
      allStarted.count_down();  // four jobs are only all here if they run at once
      EXPECT_TRUE(reaches(release));
    });
  }
  const bool sideBySide = reaches(allStarted);
  release.count_down();
  ASSERT_TRUE(sideBySide);
  EXPECT_EQ(names, std::vector<std::string>(4, "vorna-scheme"));
}

}  // namespace
}  // namespace vorna::app
