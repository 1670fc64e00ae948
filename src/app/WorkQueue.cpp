#include "app/WorkQueue.h"

#include <pthread.h>

#include <cstdio>
#include <exception>

namespace vorna::app {
namespace {

// Thread names are limited to 15 bytes, so threads carry the label's last
// component ("app.vorna.Vorna.scheme" runs on "vorna-scheme").
std::string threadName(const std::string& label) {
  size_t dot = label.rfind('.');
  std::string name = "vorna-" + (dot == std::string::npos ? label : label.substr(dot + 1));
  return name.substr(0, 15);
}

}  // namespace

WorkQueue::WorkQueue(std::string label, size_t maxThreads)
    : label_(std::move(label)), maxThreads_(maxThreads == 0 ? 1 : maxThreads) {}

WorkQueue::~WorkQueue() {
  std::deque<std::function<void()>> dropped;
  {
    std::lock_guard guard(lock_);
    stopping_ = true;
    dropped.swap(jobs_);
  }
  wake_.notify_all();
  for (std::thread& thread : threads_) {
    thread.join();
  }
  // `dropped` goes here, on the destroying thread, after every worker ended.
}

void WorkQueue::submit(std::function<void()> job) {
  {
    std::lock_guard guard(lock_);
    if (stopping_) {
      return;
    }
    jobs_.push_back(std::move(job));
    if (idle_ < jobs_.size() && threads_.size() < maxThreads_) {
      threads_.emplace_back([this] { work(); });
      pthread_setname_np(threads_.back().native_handle(), threadName(label_).c_str());
    }
  }
  wake_.notify_one();
}

void WorkQueue::work() {
  std::unique_lock guard(lock_);
  for (;;) {
    ++idle_;
    wake_.wait(guard, [this] { return stopping_ || !jobs_.empty(); });
    --idle_;
    if (stopping_) {
      return;
    }
    std::function<void()> job = std::move(jobs_.front());
    jobs_.pop_front();
    guard.unlock();
    try {
      job();
    } catch (const std::exception& error) {
      std::fprintf(stderr, "Vorna: a job on %s failed: %s\n", label_.c_str(), error.what());
    } catch (...) {
      std::fprintf(stderr, "Vorna: a job on %s failed\n", label_.c_str());
    }
    job = nullptr;  // captures are released before the lock is taken again
    guard.lock();
  }
}

}  // namespace vorna::app
