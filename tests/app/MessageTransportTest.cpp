#include <gtest/gtest.h>

#include "app/Base64.h"
#include "app/BridgeMessage.h"
#include "app/MessageReply.h"

namespace vorna::app {
namespace {

using contracts::Json;

// Strict: anything that is not exactly base64 is refused.
TEST(Base64Test, EncodesTheStandardVectorsAndRefusesAnythingElse) {
  const std::pair<const char*, const char*> vectors[] = {
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foobar", "Zm9vYmFy"}};
  for (const auto& [plain, encoded] : vectors) {
    EXPECT_EQ(base64Encode(plain), encoded);
    EXPECT_EQ(base64Decode(encoded), plain);
  }
  std::string every;
  for (int i = 0; i < 256; ++i) {
    every += static_cast<char>(i);
  }
  EXPECT_EQ(base64Decode(base64Encode(every)), every);
  EXPECT_EQ(base64Encode("\xfb\xff"), "+/8=");
  for (const char* text : {"Zg", "Zg=", "Z===", "====", "Zm9v\n", "Zm 9v",
                           "Zg==Zg==", "Zm9v-_==", "Zm=v", "vorna!!!"}) {
    EXPECT_EQ(base64Decode(text), std::nullopt) << text;
  }
}

TEST(BridgeMessageTest, AbsentOrMistypedKeysTakeTheirDefaults) {
  EXPECT_EQ(BridgeMessage::decode(Json::object()), (BridgeMessage{"GET", "", {}, {}, ""}));
  Json message = {{"method", 5},
                  {"op", "file"},
                  {"query", {{"path", "/w/a.html"}, {"n", 1}, {"flag", true}}},
                  {"headers", "X-VN-Base: ab"},
                  {"bodyBase64", "YWJj"}};
  EXPECT_EQ(BridgeMessage::decode(message),
            (BridgeMessage{"GET", "file", {{"path", "/w/a.html"}}, {}, "abc"}));
  // Headers arrive as sent.
  EXPECT_EQ(BridgeMessage::decode({{"method", "PUT"}, {"headers", {{"x-vn-base", "ab"}}}})->headers,
            (std::map<std::string, std::string>{{"x-vn-base", "ab"}}));
  // Replies carry no-store and the body in base64.
  contracts::BridgeResponse response{
      409, {{"cache-control", "max-age=5"}, {"X-VN-Fingerprint", "ab"}}, "conflict"};
  EXPECT_EQ(MessageReply::from(response),
            (MessageReply{409,
                          {{"Cache-Control", "no-store"}, {"X-VN-Fingerprint", "ab"}},
                          base64Encode("conflict")}));
}

}  // namespace
}  // namespace vorna::app
