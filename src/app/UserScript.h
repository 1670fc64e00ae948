#pragma once

#include <string>

namespace vorna::app {

// A script the host injects at document start, before any script of the page.
struct UserScript {
  std::string source;
  bool mainFrameOnly = true;  // false: every frame, sub-frames included
};

}  // namespace vorna::app
