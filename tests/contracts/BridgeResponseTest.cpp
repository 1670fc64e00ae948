#include <gtest/gtest.h>

#include "contracts/BridgeResponse.h"

namespace vorna::contracts {
namespace {

using Headers = std::map<std::string, std::string>;

TEST(BridgeResponseTest, ErrorIsOneKeyWithEscapedSlashAndOneHeaderAndWinsOverExtra) {
  BridgeResponse response = BridgeResponse::error(404, "not found: /x");
  EXPECT_EQ(response.status, 404);
  EXPECT_EQ(response.body, R"({"error":"not found: \/x"})");
  EXPECT_EQ(response.headers, (Headers{{"Content-Type", "application/json"}}));
  EXPECT_EQ(
      BridgeResponse::error(409, "conflict", {{"zeta", 1}, {"error", "old"}, {"alpha", true}}).body,
      R"({"alpha":true,"error":"conflict","zeta":1})");
}

TEST(BridgeResponseTest, JsonSortsKeysAtEveryDepthWritesCompactlyAndSetsItsType) {
  Json object = Json::object();
  object["b"] = Json{{"y", 1}, {"x", "a/b"}};
  object["a"] = Json::array({2, 1});
  EXPECT_EQ(BridgeResponse::json(200, object).body, R"({"a":[2,1],"b":{"x":"a\/b","y":1}})");
  EXPECT_EQ(BridgeResponse::json(200, Json::array({"/a", 1})).body, R"(["\/a",1])");

  BridgeResponse response = BridgeResponse::json(
      201, Json::object(), {{"Content-Type", "text/plain"}, {"X-VN-Fingerprint", "ab"}});
  EXPECT_EQ(response.status, 201);
  EXPECT_EQ(response.headers,
            (Headers{{"Content-Type", "application/json"}, {"X-VN-Fingerprint", "ab"}}));
  EXPECT_EQ(response.body, "{}");
}

TEST(BridgeResponseTest, UnwritableValueGivesEmptyObjectUnderTheSameStatus) {
  // A string that is not UTF-8 cannot be written as JSON.
  for (const BridgeResponse& response : {BridgeResponse::json(404, Json{{"name", "\xFF"}}),
                                         BridgeResponse::error(404, "not found: \xFF")}) {
    EXPECT_EQ(response.status, 404);
    EXPECT_EQ(response.body, "{}");
    EXPECT_EQ(response.headers, (Headers{{"Content-Type", "application/json"}}));
  }
}

}  // namespace
}  // namespace vorna::contracts
