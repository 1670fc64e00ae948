#pragma once

#include <chrono>
#include <functional>

namespace vorna::app {

// One pending piece of work on the main loop, run once after a delay unless
// cancelled first. Destroying the timer cancels it, so the work never runs
// after its owner is gone. Main thread only.
class MainLoopTimer {
 public:
  MainLoopTimer() = default;
  ~MainLoopTimer() { cancel(); }
  MainLoopTimer(const MainLoopTimer&) = delete;
  MainLoopTimer& operator=(const MainLoopTimer&) = delete;

  // Schedules `work`, replacing whatever was pending. The work may destroy
  // the timer or start it again.
  void start(std::chrono::milliseconds delay, std::function<void()> work);
  void cancel();
  bool pending() const { return source_ != 0; }

 private:
  struct Job;
  unsigned source_ = 0;
};

}  // namespace vorna::app
