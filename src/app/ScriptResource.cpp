#include "app/ScriptResource.h"

#include <gio/gio.h>

#include <cstdio>
#include <cstdlib>

#include "contracts/GUniquePtr.h"

extern "C" void vorna_scripts_register_resource(void);

namespace vorna::app {

std::string ScriptResource::text(std::string_view name) {
  const std::string path = "/app/vorna/Vorna/scripts/" + std::string(name);
  // Registered once, on first use, by whichever thread comes first. The
  // lookup is process-wide, so scripts other modules register under the same
  // prefix are found here too.
  static const bool registered = [] {
    vorna_scripts_register_resource();
    return true;
  }();
  (void)registered;
  GError* error = nullptr;
  contracts::GBytesPtr bytes(
      g_resources_lookup_data(path.c_str(), G_RESOURCE_LOOKUP_FLAGS_NONE, &error));
  contracts::GErrorPtr owned(error);
  if (!bytes) {
    std::fprintf(stderr, "Vorna: the script %s is not in the program: %s\n", path.c_str(),
                 owned ? owned->message : "unknown error");
    std::abort();
  }
  gsize size = 0;
  const auto* data = static_cast<const char*>(g_bytes_get_data(bytes.get(), &size));
  return std::string(data, size);
}

}  // namespace vorna::app
