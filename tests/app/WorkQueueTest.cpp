#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>

#include "app/WorkQueue.h"

namespace vorna::app {
namespace {

// Counts down, and lets a thread wait for zero, for a while: a queue that
// never runs a job fails the test instead of hanging it.
class Latch {
 public:
  explicit Latch(int count) : count_(count) {}
  void arrive() {
    std::lock_guard guard(lock_);
    if (--count_ <= 0) {
      zero_.notify_all();
    }
  }
  [[nodiscard]] bool wait() {
    std::unique_lock guard(lock_);
    return zero_.wait_for(guard, std::chrono::seconds(10), [this] { return count_ <= 0; });
  }

 private:
  std::mutex lock_;
  std::condition_variable zero_;
  int count_;
};

// A failing job is reported and the queue goes on.
TEST(WorkQueueTest, ASerialQueueRunsOneJobAtATimeInOrder) {
  std::vector<int> order;
  std::atomic<int> running{0};
  std::atomic<int> mostAtOnce{0};
  Latch done(50);
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
        done.arrive();
      });
    }
    ASSERT_TRUE(done.wait());
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
  Latch allStarted(4);
  Latch release(1);
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
      allStarted.arrive();  // four jobs are only all here if they run at once
      EXPECT_TRUE(release.wait());
    });
  }
  const bool sideBySide = allStarted.wait();
  release.arrive();
  ASSERT_TRUE(sideBySide);
  EXPECT_EQ(names, std::vector<std::string>(4, "vorna-scheme"));
}

}  // namespace
}  // namespace vorna::app
