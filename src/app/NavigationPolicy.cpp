#include "app/NavigationPolicy.h"

#include <glib.h>

#include <optional>

#include "app/UrlParts.h"

namespace vorna::app {
namespace {

bool isEditor(const UrlParts& parts) {
  return parts.scheme == "vorna" && g_ascii_strcasecmp(parts.host.c_str(), "app") == 0;
}

bool isWeb(const UrlParts& parts) {
  return parts.scheme == "http" || parts.scheme == "https";
}

}  // namespace

NavigationDecision NavigationPolicy::decide(const std::string& url, bool linkActivation,
                                            Frame frame) {
  std::optional<UrlParts> parts = UrlParts::parse(url);
  if (!parts) {
    return {};
  }
  if (parts->scheme == "vorna") {
    return {.allow = isEditor(*parts)};
  }
  if (isWeb(*parts)) {
    return {.allow = false, .blocksExternal = true, .launchesExternal = linkActivation};
  }
  if (frame == Frame::main) {
    return {};
  }
  return {.allow = parts->scheme == "about" || parts->scheme == "blob" || parts->scheme == "data"};
}

NavigationDecision NavigationPolicy::decideNewWindow(const std::string& url, bool linkActivation) {
  std::optional<UrlParts> parts = UrlParts::parse(url);
  if (!parts || !linkActivation || !isWeb(*parts)) {
    return {};
  }
  return {.allow = false, .blocksExternal = true, .launchesExternal = true};
}

bool NavigationPolicy::allowsResponse(const std::string& url, bool mainFrameMainResource) {
  return !mainFrameMainResource || isEditorDocument(url);
}

bool NavigationPolicy::isEditorDocument(const std::string& url) {
  std::optional<UrlParts> parts = UrlParts::parse(url);
  if (!parts || !isEditor(*parts)) {
    return false;
  }
  std::string path = UrlParts::percentDecode(parts->path).value_or(parts->path);
  return !path.starts_with("/api/");
}

const char* NavigationPolicy::contentBlockRules() {
  return R"([{"trigger":{"url-filter":"^https?://"},"action":{"type":"block"}},)"
         R"({"trigger":{"url-filter":"^wss?://"},"action":{"type":"block"}}])";
}

}  // namespace vorna::app
