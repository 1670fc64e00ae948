#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vorna::app {

// A labelled queue of jobs run on its own threads: serial with one thread,
// concurrent with more. Threads start on demand and stay for the queue's life.
// A job that throws is reported on standard error and does not stop the queue.
class WorkQueue {
 public:
  WorkQueue(std::string label, size_t maxThreads);
  // Runs nothing more that was still waiting, lets running jobs end and joins.
  ~WorkQueue();
  WorkQueue(const WorkQueue&) = delete;
  WorkQueue& operator=(const WorkQueue&) = delete;

  const std::string& label() const { return label_; }
  size_t maxThreads() const { return maxThreads_; }

  // Any thread. Jobs start in submission order.
  void submit(std::function<void()> job);

 private:
  void work();

  const std::string label_;
  const size_t maxThreads_;
  std::mutex lock_;
  std::condition_variable wake_;
  std::deque<std::function<void()>> jobs_;
  std::vector<std::thread> threads_;
  size_t idle_ = 0;
  bool stopping_ = false;
};

}  // namespace vorna::app
