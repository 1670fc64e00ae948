#pragma once

#include <functional>

namespace vorna::app {

// Runs `work` on the main thread (the thread that runs GLib's global default
// main context) at default priority, after the current callback returns.
// Any thread. An exception thrown by `work` is reported on standard error and
// never reaches GLib. If the loop never runs again, `work` is destroyed unrun
// when the context is.
void postToMainThread(std::function<void()> work);

}  // namespace vorna::app
