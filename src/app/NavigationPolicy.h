#pragma once

#include <string>

#include "app/NavigationDecision.h"

namespace vorna::app {

// Keeps the web view on the editor: vorna://app/ only, web links to the
// browser, and a few inert schemes inside sub-frames.
struct NavigationPolicy {
  NavigationPolicy() = delete;

  // Which frame a navigation is for, when the engine says.
  enum class Frame { main, sub, unknown };

  // A navigation action. vorna: is allowed with the host "app" only; http and
  // https are refused (a link activation among them is handed on); any other
  // scheme is refused in the main frame and allowed in a sub-frame only for
  // about, blob and data. With the frame unknown those three are allowed.
  static NavigationDecision decide(const std::string& url, bool linkActivation, Frame frame);

  // A request for a new window (a link with a target, window.open): never
  // allowed; a link activation towards http or https is handed on.
  static NavigationDecision decideNewWindow(const std::string& url, bool linkActivation);

  // A response about to be shown: the main frame's own document must be an
  // editor document; sub-frame documents were decided as navigations.
  static bool allowsResponse(const std::string& url, bool mainFrameMainResource);

  // A document of the editor: under vorna://app/, but not an /api/ answer.
  // The main frame shows nothing else. Navigations cannot be told apart by
  // frame, so a main-frame about: page passes the decision; when the main
  // frame commits to anything else, the window brings the editor back.
  static bool isEditorDocument(const std::string& url);

  // Content-blocker rules that stop every http(s) and ws(s) load. Images,
  // no-cors fetches, WebSockets and beacons never reach the navigation
  // decision, so without these a page could still reach the network.
  static const char* contentBlockRules();
};

}  // namespace vorna::app
