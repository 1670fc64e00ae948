#include "app/Base64.h"

#include <array>
#include <cstdint>

namespace vorna::app {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr int8_t kNotBase64 = -1;

constexpr std::array<int8_t, 256> makeDecodeTable() {
  std::array<int8_t, 256> table{};
  for (auto& entry : table) {
    entry = kNotBase64;
  }
  for (int i = 0; i < 64; ++i) {
    table[static_cast<unsigned char>(kAlphabet[i])] = static_cast<int8_t>(i);
  }
  return table;
}

constexpr std::array<int8_t, 256> kDecode = makeDecodeTable();

}  // namespace

std::string base64Encode(std::string_view bytes) {
  std::string out;
  out.resize((bytes.size() + 2) / 3 * 4);
  const auto* in = reinterpret_cast<const unsigned char*>(bytes.data());
  size_t whole = bytes.size() / 3 * 3;
  char* o = out.data();
  for (size_t i = 0; i < whole; i += 3) {
    uint32_t n = (uint32_t{in[i]} << 16) | (uint32_t{in[i + 1]} << 8) | in[i + 2];
    *o++ = kAlphabet[(n >> 18) & 63];
    *o++ = kAlphabet[(n >> 12) & 63];
    *o++ = kAlphabet[(n >> 6) & 63];
    *o++ = kAlphabet[n & 63];
  }
  size_t rest = bytes.size() - whole;
  if (rest > 0) {
    uint32_t n = uint32_t{in[whole]} << 16;
    if (rest == 2) {
      n |= uint32_t{in[whole + 1]} << 8;
    }
    *o++ = kAlphabet[(n >> 18) & 63];
    *o++ = kAlphabet[(n >> 12) & 63];
    *o++ = rest == 2 ? kAlphabet[(n >> 6) & 63] : '=';
    *o++ = '=';
  }
  return out;
}

std::optional<contracts::Bytes> base64Decode(std::string_view text) {
  if (text.size() % 4 != 0) {
    return std::nullopt;
  }
  size_t padding = 0;
  if (!text.empty() && text.back() == '=') {
    padding = text.size() >= 2 && text[text.size() - 2] == '=' ? 2 : 1;
  }
  contracts::Bytes out;
  out.resize(text.size() / 4 * 3 - padding);
  char* o = out.data();
  size_t end = text.size() - padding;
  uint32_t n = 0;
  int filled = 0;
  for (size_t i = 0; i < end; ++i) {
    int8_t value = kDecode[static_cast<unsigned char>(text[i])];
    if (value == kNotBase64) {
      return std::nullopt;  // includes a "=" before the final padding
    }
    n = (n << 6) | static_cast<uint32_t>(value);
    if (++filled == 4) {
      *o++ = static_cast<char>(n >> 16);
      *o++ = static_cast<char>(n >> 8);
      *o++ = static_cast<char>(n);
      n = 0;
      filled = 0;
    }
  }
  if (filled == 3) {  // one padding character: 18 bits, two bytes
    *o++ = static_cast<char>(n >> 10);
    *o++ = static_cast<char>(n >> 2);
  } else if (filled == 2) {  // two padding characters: 12 bits, one byte
    *o++ = static_cast<char>(n >> 4);
  }
  return out;
}

}  // namespace vorna::app
