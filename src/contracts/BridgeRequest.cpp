#include "contracts/BridgeRequest.h"

#include <glib.h>

#include <memory>

#include "contracts/GUniquePtr.h"

namespace vorna::contracts {
namespace {

void toUpperAscii(std::string& text) {
  for (char& c : text) {
    c = g_ascii_toupper(c);
  }
}

std::string lowerAscii(std::string_view text) {
  std::string lowered(text);
  for (char& c : lowered) {
    c = g_ascii_tolower(c);
  }
  return lowered;
}

// Decodes %XX escapes into raw bytes: "+" stays "+" and "%00" becomes a NUL
// byte, which the string keeps (path checks refuse such values later rather
// than letting a C string silently end at it). Nothing on a malformed escape.
std::optional<std::string> percentDecoded(std::string_view text) {
  if (text.find('%') == std::string_view::npos) {
    return std::string(text);
  }
  GError* error = nullptr;
  GBytesPtr bytes(
      g_uri_unescape_bytes(text.data(), static_cast<gssize>(text.size()), nullptr, &error));
  if (bytes == nullptr) {
    g_clear_error(&error);
    return std::nullopt;
  }
  gsize size = 0;
  const auto* data = static_cast<const char*>(g_bytes_get_data(bytes.get(), &size));
  return std::string(data == nullptr ? "" : data, size);
}

// Items separated by "&", each split at its first "=": an item without "="
// has no value and maps to "". A later item replaces an earlier one.
bool parseQuery(std::string_view encoded, std::map<std::string, std::string>& query) {
  if (encoded.empty()) {
    return true;
  }
  for (;;) {
    size_t end = encoded.find('&');
    std::string_view item = encoded.substr(0, end);
    size_t equals = item.find('=');
    std::optional<std::string> name = percentDecoded(item.substr(0, equals));
    std::optional<std::string> value =
        equals == std::string_view::npos ? std::string() : percentDecoded(item.substr(equals + 1));
    if (!name || !value) {
      return false;
    }
    query.insert_or_assign(std::move(*name), std::move(*value));
    if (end == std::string_view::npos) {
      return true;
    }
    encoded.remove_prefix(end + 1);
  }
}

}  // namespace

BridgeRequest BridgeRequest::make(std::string_view method, std::string op,
                                  std::map<std::string, std::string> query,
                                  const std::map<std::string, std::string>& headers, Bytes body) {
  BridgeRequest request;
  request.method = std::string(method);
  toUpperAscii(request.method);
  request.op = std::move(op);
  request.query = std::move(query);
  for (const auto& [name, value] : headers) {
    request.headers.insert_or_assign(lowerAscii(name), value);
  }
  request.body = std::move(body);
  return request;
}

std::optional<BridgeRequest> BridgeRequest::fromUrl(
    std::string_view url, std::string_view method,
    const std::map<std::string, std::string>& headers, Bytes body) {
  static constexpr std::string_view kApiPrefix = "/api/";
  // GLib wants a NUL-terminated text; one inside the URL would silently cut it.
  if (url.find('\0') != std::string_view::npos) {
    return std::nullopt;
  }
  const std::string text(url);
  char* rawPath = nullptr;
  char* rawQuery = nullptr;
  GError* error = nullptr;
  // Splitting (unlike full parsing) keeps dot segments in the path, as the path
  // was sent. The encoded forms are decoded below, item by item, so that an
  // escaped "&" or "=" inside a query value stays part of the value. A strict
  // split already refuses malformed %-escapes anywhere in the URL.
  if (!g_uri_split(text.c_str(), static_cast<GUriFlags>(G_URI_FLAGS_ENCODED | G_URI_FLAGS_NON_DNS),
                   nullptr, nullptr, nullptr, nullptr, &rawPath, &rawQuery, nullptr, &error)) {
    g_clear_error(&error);
    return std::nullopt;
  }
  GText encodedPath(rawPath);
  GText encodedQuery(rawQuery);

  std::optional<std::string> path = percentDecoded(encodedPath ? encodedPath.get() : "");
  if (!path) {
    return std::nullopt;
  }
  if (path->size() > 1 && path->back() == '/') {
    path->pop_back();
  }
  if (!path->starts_with(kApiPrefix)) {
    return std::nullopt;
  }
  std::map<std::string, std::string> query;
  if (encodedQuery && !parseQuery(encodedQuery.get(), query)) {
    return std::nullopt;
  }
  return make(method, path->substr(kApiPrefix.size()), std::move(query), headers, std::move(body));
}

std::optional<std::string> BridgeRequest::header(std::string_view name) const {
  auto found = headers.find(lowerAscii(name));
  if (found == headers.end()) {
    return std::nullopt;
  }
  return found->second;
}

}  // namespace vorna::contracts
