#pragma once

#include <glib.h>

#include <chrono>
#include <functional>

namespace vorna::testing {

// Runs the default main context, as the application's main thread does,
// until `done` holds or `limit` passes; says whether it held.
inline bool runUntil(const std::function<bool()>& done,
                     std::chrono::milliseconds limit = std::chrono::seconds(15)) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!done() && std::chrono::steady_clock::now() < deadline) {
    if (!g_main_context_iteration(nullptr, FALSE)) {
      g_usleep(500);
    }
  }
  return done();
}

}  // namespace vorna::testing
