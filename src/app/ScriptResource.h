#pragma once

#include <string>
#include <string_view>

namespace vorna::app {

// The scripts the host runs in the page, kept as real .js files in a module's
// scripts folder and compiled into the program as GResources under one prefix.
struct ScriptResource {
  ScriptResource() = delete;

  // The text of `name` ("body-guard.js"). A name that is not compiled in is a
  // fault of the build, so it aborts with the name rather than run without it.
  static std::string text(std::string_view name);
};

}  // namespace vorna::app
