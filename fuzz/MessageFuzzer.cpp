// Any text as a message of the page's message transport: JSON parsing, the
// message's defaults and strict base64 never crash, and base64 round-trips.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "app/Base64.h"
#include "app/BridgeMessage.h"
#include "contracts/Json.h"

using namespace vorna;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view input(reinterpret_cast<const char*>(data), size);

  // The input as base64 text: what decodes has three bytes for every four
  // characters, less one per padding character.
  if (auto bytes = app::base64Decode(input)) {
    std::size_t padding = 0;
    while (padding < input.size() && input[input.size() - 1 - padding] == '=') {
      ++padding;
    }
    if (input.size() % 4 != 0 || bytes->size() != input.size() / 4 * 3 - padding) {
      std::abort();
    }
  }
  // The input as bytes: their encoding always decodes back to them.
  auto decoded = app::base64Decode(app::base64Encode(input));
  if (!decoded || *decoded != input) {
    std::abort();
  }

  // The input as a whole message.
  if (auto json = contracts::parseJson(input)) {
    auto message = app::BridgeMessage::decode(*json);
    if (message.has_value() != json->is_object()) {
      std::abort();
    }
  }
  return 0;
}
