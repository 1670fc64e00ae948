#include "app/MainLoopTimer.h"

#include <glib.h>

#include <cstdio>
#include <exception>

namespace vorna::app {

struct MainLoopTimer::Job {
  MainLoopTimer* owner;
  std::function<void()> work;
};

void MainLoopTimer::start(std::chrono::milliseconds delay, std::function<void()> work) {
  cancel();
  source_ = g_timeout_add_full(
      G_PRIORITY_DEFAULT, static_cast<guint>(delay.count()),
      [](gpointer data) -> gboolean {
        auto* job = static_cast<Job*>(data);
        // The owner forgets the source before the work runs, so that the work
        // may restart or destroy it.
        job->owner->source_ = 0;
        std::function<void()> due = std::move(job->work);
        try {
          due();
        } catch (const std::exception& error) {
          std::fprintf(stderr, "Vorna: timed work failed: %s\n", error.what());
        } catch (...) {
          std::fprintf(stderr, "Vorna: timed work failed\n");
        }
        return G_SOURCE_REMOVE;
      },
      new Job{this, std::move(work)}, [](gpointer data) { delete static_cast<Job*>(data); });
}

void MainLoopTimer::cancel() {
  if (source_ != 0) {
    g_source_remove(source_);
    source_ = 0;
  }
}

}  // namespace vorna::app
