#pragma once

namespace vorna::app {

// What the window does with one navigation.
struct NavigationDecision {
  bool allow = false;
  bool blocksExternal = false;    // an http or https navigation was refused
  bool launchesExternal = false;  // a link activation towards http or https: counted, and
                                  // handed to the default browser outside the smoke test

  bool operator==(const NavigationDecision&) const = default;
};

}  // namespace vorna::app
