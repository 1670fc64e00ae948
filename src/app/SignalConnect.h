#pragma once

#include <glib-object.h>

namespace vorna::app {

// g_signal_connect without the macro, so a handler can be a lambda whose
// body holds commas: `connectSignal(object, "signal", +[](…) {…}, data)`.
template <typename Handler>
gulong connectSignal(gpointer instance, const char* signal, Handler handler, gpointer data) {
  return g_signal_connect_data(instance, signal, reinterpret_cast<GCallback>(handler), data,
                               nullptr, G_CONNECT_DEFAULT);
}

}  // namespace vorna::app
