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
    dir.write("site/Z.HTML", "<p>z</p>");
    dir.write("site/.hidden", "never listed");
    dir.write("site/notes", "no extension");
    dir.makeFolder("site/sub");
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
}

TEST_F(SmokeBridgeTest, PathsAreCheckedBeforeTheOp) {
  struct Case {
    std::optional<std::string> path;
    std::string error;
  };
  const Case cases[] = {
      {std::nullopt, "path is required"},
      {"", "path is required"},
      {"site/a.html", "path must be absolute"},
      {"/etc/hosts", "path is outside the workspace"},
      {root + "/../secret.txt", "path is outside the workspace"},
      {root + "/../../../../../etc/hosts", "path is outside the workspace"},
      {root + "-other/a.html", "path is outside the workspace"},
  };
  for (const Case& c : cases) {
    for (const char* op : {"file", "list", "stat"}) {
      BridgeResponse answer = call("GET", op, c.path);
      EXPECT_EQ(answer.status, 400) << c.path.value_or("(none)") << " " << op;
      EXPECT_EQ(errorOf(answer)["error"], c.error) << c.path.value_or("(none)") << " " << op;
    }
  }
}

TEST_F(SmokeBridgeTest, ListsWithoutDotFilesInPlainByteOrder) {
  BridgeResponse list = call("GET", "list", root);
  ASSERT_EQ(list.status, 200);
  EXPECT_EQ(Json::parse(list.body), (Json{{{"name", "Z.HTML"}, {"kind", "file"}},
                                          {{"name", "a.html"}, {"kind", "file"}},
                                          {{"name", "notes"}, {"kind", "file"}},
                                          {{"name", "sub"}, {"kind", "directory"}}}));
  EXPECT_EQ(Json::parse(call("GET", "list", root + "/sub/").body), Json::array());

  BridgeResponse missing = call("GET", "list", root + "/gone");
  EXPECT_EQ(missing.status, 404);
  EXPECT_EQ(errorOf(missing)["error"], "not found: " + root + "/gone");
  EXPECT_EQ(call("GET", "list", root + "/a.html").status, 404);
}

TEST_F(SmokeBridgeTest, ReadsFilesTypedByTheirExtensionInAnyCase) {
  BridgeResponse page = call("GET", "file", root + "/a.html");
  EXPECT_EQ(page.status, 200);
  EXPECT_EQ(page.body, "<p>a</p>");
  EXPECT_EQ(page.headers,
            (std::map<std::string, std::string>{{"Content-Type", "text/html; charset=utf-8"}}));
  EXPECT_EQ(call("GET", "file", root + "/Z.HTML").headers.at("Content-Type"),
            "text/html; charset=utf-8");
  EXPECT_EQ(call("HEAD", "file", root + "/notes").headers.at("Content-Type"),
            "application/octet-stream");

  for (const std::string& path : {root + "/sub", root + "/gone.html"}) {
    BridgeResponse missing = call("GET", "file", path);
    EXPECT_EQ(missing.status, 404) << path;
    EXPECT_EQ(errorOf(missing)["error"], "not found: " + path);
  }
  BridgeResponse unknown = call("GET", "stat", root + "/a.html");
  EXPECT_EQ(unknown.status, 404);
  EXPECT_EQ(errorOf(unknown)["error"], "smoke bridge has no op stat");
}

}  // namespace
}  // namespace vorna::selftest
