#include <gtest/gtest.h>

#include <map>
#include <string>
#include <tuple>

#include "selftest/SmokeBridge.h"
#include "support/TempDir.h"

namespace vorna::selftest {
namespace {

using contracts::BridgeRequest;
using contracts::BridgeResponse;
using contracts::Json;
using Query = std::map<std::string, std::string>;

class SmokeBridgeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir.makeFolder("site");
    dir.write("site/a.html", "<p>a</p>");
    dir.write("secret.txt", "outside the workspace");
  }

  BridgeResponse call(const std::string& method, const std::string& op, Query query,
                      std::string body = "") {
    return bridge.handle(BridgeRequest::make(method, op, std::move(query), {}, std::move(body)));
  }

  testing::TempDir dir;
  std::string root = dir / "site";
  SmokeBridge bridge{root};
};

TEST_F(SmokeBridgeTest, WritesAreEchoedAndNeverReachTheDisk) {
  // A large body's echo: the smoke check.
  BridgeResponse put = call("PUT", "file", {{"path", root + "/new.html"}}, "abc");
  EXPECT_EQ(put.headers.at("Content-Type"), "application/json");
  EXPECT_EQ(Json::parse(put.body), (Json{{"method", "PUT"}, {"op", "file"}, {"bytes", 3}}));
  EXPECT_FALSE(dir.exists("site/new.html"));
  // Other writes are refused, and paths are checked before the op.
  const std::tuple<std::string, Query, int, std::string> rows[] = {
      {"DELETE", {{"path", root + "/a.html"}}, 405, "smoke bridge is read-only: DELETE"},
      {"PATCH", {{"path", root + "/a.html"}}, 405, "smoke bridge is read-only: PATCH"},
      {"GET", {}, 400, "path is required"},
      {"GET", {{"path", ""}}, 400, "path is required"},
      {"GET", {{"path", "site/a.html"}}, 400, "path must be absolute"},
      // Which paths are inside: WorkspaceBoundaryTest and the smoke check.
      {"GET", {{"path", root + "/../secret.txt"}}, 400, "path is outside the workspace"},
  };
  for (const auto& [method, query, status, error] : rows) {
    for (const char* op : {"file", "list", "stat"}) {
      BridgeResponse answer = call(method, op, query);
      EXPECT_EQ(answer.status, status) << op << ": " << error;
      EXPECT_EQ(Json::parse(answer.body)["error"], error) << op;
    }
  }
  EXPECT_TRUE(dir.exists("site/a.html"));
}

}  // namespace
}  // namespace vorna::selftest
