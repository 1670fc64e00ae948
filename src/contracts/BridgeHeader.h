#pragma once

namespace vorna::contracts {

// The header names of the /api protocol. Requests store header names lower
// case, so a bridge looks these up lower-cased; responses keep this spelling.
struct BridgeHeader {
  BridgeHeader() = delete;
  // On a page save: the fingerprint of the version the editor started from.
  static constexpr const char* base = "X-VN-Base";
  // On a file read: the fingerprint of the bytes returned.
  static constexpr const char* fingerprint = "X-VN-Fingerprint";
  // On a file read: modification time in whole milliseconds since 1970, decimal.
  static constexpr const char* mtime = "X-QX-Mtime";
};

}  // namespace vorna::contracts
