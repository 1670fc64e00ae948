#include <gtest/gtest.h>

#include "bridge/TargetResolution.h"
#include "support/TempDir.h"

namespace vorna::bridge {
namespace {

using contracts::BridgeRequest;
using contracts::BridgeResponse;
using testing::TempDir;

class TargetResolutionTest : public ::testing::Test {
 protected:
  void SetUp() override { tmp.makeFolder("w/site/real"); }

  TargetResult resolve(std::map<std::string, std::string> query, const std::string& key = "path") {
    WorkspaceBoundary boundary(site);
    return resolveTarget(boundary, BridgeRequest::make("GET", "read", std::move(query), {}, ""),
                         key);
  }

  // The body of the refusal, or a note that the value was accepted.
  static std::string refusalBody(const TargetResult& result) {
    const auto* refusal = std::get_if<PathRefusal>(&result);
    if (refusal == nullptr) {
      return "accepted " + std::get<std::string>(result);
    }
    EXPECT_EQ(refusal->response.status, 400);
    EXPECT_EQ(refusal->response.headers,
              (std::map<std::string, std::string>{{"Content-Type", "application/json"}}));
    return refusal->response.body;
  }

  TempDir tmp;
  const std::string site = tmp / "w/site";
};

TEST_F(TargetResolutionTest, AcceptsAnInsidePathRebasedUnderTheRoot) {
  tmp.symlink("real", "w/site/alias");
  EXPECT_EQ(resolve({{"path", site + "/alias/a.html"}}), TargetResult(site + "/real/a.html"));
  EXPECT_EQ(resolve({{"path", site}}), TargetResult(site));
  EXPECT_EQ(resolve({{"to", site + "/new.html"}}, "to"), TargetResult(site + "/new.html"));
  // An encoded NUL byte inside a value is outside, not cut.
  std::optional<BridgeRequest> request =
      BridgeRequest::fromUrl("vorna://app/api/read?path=" + site + "/a.html%00", "GET", {}, "");
  ASSERT_TRUE(request.has_value());
  EXPECT_EQ(refusalBody(resolveTarget(WorkspaceBoundary(site), *request, "path")),
            R"({"error":"path is outside the workspace"})");
}

// Which paths are inside: WorkspaceBoundaryTest.
TEST_F(TargetResolutionTest, RefusalsNameTheParameterNeverThePath) {
  tmp.symlink("loop", "w/site/loop");
  tmp.symlink(tmp / "elsewhere", "w/site/docs");
  struct Case {
    std::map<std::string, std::string> query;
    std::string key;
    std::string body;
  };
  const Case cases[] = {
      {{}, "path", R"({"error":"missing path"})"},
      {{{"path", ""}}, "path", R"({"error":"missing path"})"},
      {{{"path", "/a"}}, "to", R"({"error":"missing to"})"},
      {{{"path", "a.html"}}, "path", R"({"error":"path must be absolute"})"},
      {{{"to", "./a.html"}}, "to", R"({"error":"to must be absolute"})"},
      {{{"path", site + "/docs/x"}}, "path", R"({"error":"path is outside the workspace"})"},
      {{{"to", site + "/loop/x"}}, "to", R"({"error":"to is outside the workspace"})"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(refusalBody(resolve(c.query, c.key)), c.body) << c.body;
  }
}

}  // namespace
}  // namespace vorna::bridge
