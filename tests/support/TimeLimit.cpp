#include "support/TimeLimit.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <memory>
#include <thread>

namespace vorna::testing {

bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds within) {
  const auto deadline = std::chrono::steady_clock::now() + within;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

bool finishesWithin(std::chrono::milliseconds limit, const std::function<void()>& work,
                    const std::function<void()>& release) {
  auto done = std::make_shared<std::promise<void>>();
  std::future<void> finished = done->get_future();
  std::thread worker([work, done] {
    work();
    done->set_value();
  });
  bool inTime = finished.wait_for(limit) == std::future_status::ready;
  for (int round = 0; !inTime && round < 100; ++round) {
    release();
    if (finished.wait_for(std::chrono::milliseconds(100)) == std::future_status::ready) {
      break;
    }
  }
  if (finished.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
    // Nothing frees the work (an endless device is read, say): this program
    // can only end here, failing, rather than hang or exhaust memory.
    std::fputs("finishesWithin: the work never ended, even when released; giving up\n", stderr);
    std::fflush(nullptr);
    std::_Exit(1);
  }
  worker.join();
  return inTime;
}

void makePipe(const std::string& path) {
  ASSERT_EQ(::mkfifo(path.c_str(), 0644), 0) << path;
}

void releasePipe(const std::string& path) {
  // A writer freed this way may write into a pipe nobody reads any more.
  std::signal(SIGPIPE, SIG_IGN);
  int fd = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (fd >= 0) {
    char drain[4096];
    while (::read(fd, drain, sizeof drain) > 0) {
    }
    ::close(fd);
  }
}

void releasePipesIn(const std::string& folder) {
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
    if (entry.is_fifo(ignored)) {
      releasePipe(entry.path().string());
    }
  }
}

}  // namespace vorna::testing
