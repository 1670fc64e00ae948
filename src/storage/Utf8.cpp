#include "storage/Utf8.h"

namespace vorna::storage {

bool isValidUtf8(std::string_view bytes) {
  size_t i = 0;
  while (i < bytes.size()) {
    auto lead = static_cast<unsigned char>(bytes[i]);
    if (lead < 0x80) {
      ++i;
      continue;
    }
    size_t length;
    unsigned char low = 0x80;  // the range the second byte must lie in
    unsigned char high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3;
      low = lead == 0xE0 ? 0xA0 : 0x80;   // overlong
      high = lead == 0xED ? 0x9F : 0xBF;  // surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4;
      low = lead == 0xF0 ? 0x90 : 0x80;   // overlong
      high = lead == 0xF4 ? 0x8F : 0xBF;  // above U+10FFFF
    } else {
      return false;
    }
    if (bytes.size() - i < length) {
      return false;
    }
    auto second = static_cast<unsigned char>(bytes[i + 1]);
    if (second < low || second > high) {
      return false;
    }
    for (size_t k = 2; k < length; ++k) {
      auto next = static_cast<unsigned char>(bytes[i + k]);
      if (next < 0x80 || next > 0xBF) {
        return false;
      }
    }
    i += length;
  }
  return true;
}

}  // namespace vorna::storage
