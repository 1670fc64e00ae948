#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "contracts/Bytes.h"

namespace vorna::contracts {

// One /api call, whichever transport carried it. A plain value.
struct BridgeRequest {
  std::string method;  // always upper case
  std::string op;      // the request path after "/api/", verbatim
  std::map<std::string, std::string> query;    // a valueless parameter maps to ""
  std::map<std::string, std::string> headers;  // names lower case
  Bytes body;

  // Stores op, query and body unchanged, the method upper-cased and every header
  // name lower-cased. When two names differ only in case, the later one in the
  // map's order wins.
  static BridgeRequest make(std::string_view method, std::string op,
                            std::map<std::string, std::string> query,
                            const std::map<std::string, std::string>& headers, Bytes body);

  // Builds a request from a URL such as vorna://app/api/list?path=%2Fw. The path
  // is percent-decoded and loses a trailing "/"; it must begin with "/api/".
  // Query items apply in order, a later one replacing an earlier one of the
  // same name. Nothing for a URL that cannot be parsed or is not under /api/.
  //
  // Exactly: items are separated by "&" and split at their first "="; names
  // and values are percent-decoded, "+" stays "+", and "%00" becomes a NUL
  // byte that the value keeps (path checks refuse it; it is never a place
  // where the value silently ends). Dot segments in the path are kept as
  // sent. Only one trailing "/" is dropped. Nothing either for a malformed
  // %-escape anywhere in the URL, or for a URL text holding a NUL byte.
  static std::optional<BridgeRequest> fromUrl(std::string_view url, std::string_view method,
                                              const std::map<std::string, std::string>& headers,
                                              Bytes body);

  // The value of a request header given in any case, or nothing.
  std::optional<std::string> header(std::string_view name) const;

  bool operator==(const BridgeRequest&) const = default;
};

}  // namespace vorna::contracts
