#include <gtest/gtest.h>

#include <string>

#include "selftest/SmokeBridge.h"
#include "support/TempDir.h"

namespace vorna::selftest {
namespace {

using contracts::BridgeRequest;
using contracts::BridgeResponse;
using contracts::Json;

class SmokeBridgeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir.makeFolder("site");
    dir.write("site/a.html", "<p>a</p>");
    dir.write("secret.txt", "outside the workspace");
  }

  BridgeResponse call(const std::string& method, const std::string& op,
                      std::optional<std::string> path, std::string body = "") {
    std::map<std::string, std::string> query;
    if (path) {
      query["path"] = *path;
    }
    return bridge.handle(BridgeRequest::make(method, op, query, {}, std::move(body)));
  }
  static Json errorOf(const BridgeResponse& response) { return Json::parse(response.body); }

  testing::TempDir dir;
  std::string root = dir / "site";
  SmokeBridge bridge{root};
};

TEST_F(SmokeBridgeTest, WritesAreEchoedAndNeverReachTheDisk) {
  BridgeResponse put = call("PUT", "file", root + "/big.html", std::string(100000, 'x'));
  EXPECT_EQ(put.status, 200);
  EXPECT_EQ(Json::parse(put.body), (Json{{"method", "PUT"}, {"op", "file"}, {"bytes", 100000}}));
  EXPECT_EQ(put.headers.at("Content-Type"), "application/json");
  BridgeResponse post = call("POST", "rename", std::nullopt);
  EXPECT_EQ(Json::parse(post.body), (Json{{"method", "POST"}, {"op", "rename"}, {"bytes", 0}}));
  EXPECT_FALSE(dir.exists("site/big.html"));

  for (const char* method : {"DELETE", "PATCH"}) {
    BridgeResponse refused = call(method, "file", root + "/a.html");
    EXPECT_EQ(refused.status, 405);
    EXPECT_EQ(errorOf(refused)["error"], std::string("smoke bridge is read-only: ") + method);
  }
  EXPECT_TRUE(dir.exists("site/a.html"));
  // Paths are checked before the op.
  struct Case {
    std::optional<std::string> path;
    std::string error;
  };
  const Case cases[] = {
      {std::nullopt, "path is required"},
      {"", "path is required"},
      {"site/a.html", "path must be absolute"},
      // Which paths are inside: WorkspaceBoundaryTest and the smoke check.
      {root + "/../secret.txt", "path is outside the workspace"},
  };
  for (const Case& c : cases) {
    for (const char* op : {"file", "list", "stat"}) {
      BridgeResponse answer = call("GET", op, c.path);
      EXPECT_EQ(answer.status, 400) << c.path.value_or("(none)") << " " << op;
      EXPECT_EQ(errorOf(answer)["error"], c.error) << c.path.value_or("(none)") << " " << op;
    }
  }
}

}  // namespace
}  // namespace vorna::selftest
