// Any text as the URL of an /api request: decoding never crashes, and what it
// accepts keeps the promises BridgeRequest::fromUrl makes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "contracts/BridgeRequest.h"

using vorna::contracts::BridgeRequest;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view input(reinterpret_cast<const char*>(data), size);
  // The first line, when there is one, is the method; the rest is the URL.
  std::string_view method = "GET";
  if (auto newline = input.find('\n'); newline != std::string_view::npos && newline < 16) {
    method = input.substr(0, newline);
    input.remove_prefix(newline + 1);
  }
  auto request = BridgeRequest::fromUrl(input, method, {{"X-VN-Base", "abc"}}, "body");
  if (!request) {
    return 0;
  }
  if (input.find('\0') != std::string_view::npos) {
    std::abort();  // a URL text holding a NUL byte is refused
  }
  if (request->body != "body" || request->header("x-vn-base") != "abc") {
    std::abort();
  }
  for (char c : request->method) {
    if (c >= 'a' && c <= 'z') {
      std::abort();  // the method is always upper case
    }
  }
  return 0;
}
