#include "app/MainThread.h"

#include <glib.h>

#include <cstdio>
#include <exception>

namespace vorna::app {

void postToMainThread(std::function<void()> work) {
  auto* held = new std::function<void()>(std::move(work));
  GSource* source = g_idle_source_new();
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  g_source_set_callback(
      source,
      [](gpointer data) -> gboolean {
        auto* job = static_cast<std::function<void()>*>(data);
        try {
          (*job)();
        } catch (const std::exception& error) {
          std::fprintf(stderr, "Vorna: main-thread work failed: %s\n", error.what());
        } catch (...) {
          std::fprintf(stderr, "Vorna: main-thread work failed\n");
        }
        return G_SOURCE_REMOVE;
      },
      held, [](gpointer data) { delete static_cast<std::function<void()>*>(data); });
  g_source_attach(source, nullptr);
  g_source_unref(source);
}

}  // namespace vorna::app
