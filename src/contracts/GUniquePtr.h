#pragma once

#include <glib.h>

#include <memory>

namespace vorna::contracts {

// Deleters for the plain GLib allocations and boxed values a module owns.
struct GFreeDeleter {
  void operator()(void* memory) const { g_free(memory); }
};
struct GErrorDeleter {
  void operator()(GError* error) const { g_error_free(error); }
};
struct GBytesDeleter {
  void operator()(GBytes* bytes) const { g_bytes_unref(bytes); }
};
struct GKeyFileDeleter {
  void operator()(GKeyFile* file) const { g_key_file_unref(file); }
};
struct GStrvDeleter {
  void operator()(char** strings) const { g_strfreev(strings); }
};

using GText = std::unique_ptr<char, GFreeDeleter>;
using GErrorPtr = std::unique_ptr<GError, GErrorDeleter>;
using GBytesPtr = std::unique_ptr<GBytes, GBytesDeleter>;
using GKeyFilePtr = std::unique_ptr<GKeyFile, GKeyFileDeleter>;
using GStrv = std::unique_ptr<char*, GStrvDeleter>;

}  // namespace vorna::contracts
