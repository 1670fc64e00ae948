#pragma once

#include <atomic>
#include <thread>

namespace vorna::app::testing {

// A TCP listener on 127.0.0.1 that only counts the connections it accepts:
// the witness that nothing left the web view.
class LoopbackListener {
 public:
  LoopbackListener();
  ~LoopbackListener();
  LoopbackListener(const LoopbackListener&) = delete;
  LoopbackListener& operator=(const LoopbackListener&) = delete;

  int port() const { return port_; }
  int connections() const { return connections_.load(); }

 private:
  int socket_ = -1;
  int port_ = 0;
  std::atomic<int> connections_{0};
  std::atomic<bool> stopping_{false};
  std::thread thread_;
};

}  // namespace vorna::app::testing
