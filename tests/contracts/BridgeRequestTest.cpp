#include <gtest/gtest.h>

#include "contracts/BridgeRequest.h"

namespace vorna::contracts {
namespace {

using Query = std::map<std::string, std::string>;

TEST(BridgeRequestTest, MakeUpperCasesMethodAndLowerCasesHeaderNamesOnly) {
  BridgeRequest request =
      BridgeRequest::make("get", "read", {{"Path", "/A"}},
                          {{"Content-Type", "Text/HTML"}, {"X-VN-Base", "ab"}}, "body");
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.op, "read");
  EXPECT_EQ(request.query, (Query{{"Path", "/A"}}));
  EXPECT_EQ(request.headers, (Query{{"content-type", "Text/HTML"}, {"x-vn-base", "ab"}}));
  EXPECT_EQ(request.body, "body");
  EXPECT_EQ(request.header("X-VN-Base"), "ab");
  EXPECT_EQ(request.header("CONTENT-TYPE"), "Text/HTML");
  EXPECT_EQ(request.header("X-QX-Mtime"), std::nullopt);
  // Names differing only in case keep the later in map order: "X-A" sorts
  // before "x-a", so the lower-case spelling's value survives.
  EXPECT_EQ(BridgeRequest::make("PUT", "file", {}, {{"X-A", "1"}, {"x-a", "2"}}, "").headers,
            (Query{{"x-a", "2"}}));
  // A request from a URL is made the same way.
  EXPECT_EQ(BridgeRequest::fromUrl("vorna://app/api/file?path=%2Fw%2Fa.html", "put",
                                   {{"X-VN-Base", "ab"}}, "<p>hi</p>"),
            BridgeRequest::make("PUT", "file", {{"path", "/w/a.html"}}, {{"x-vn-base", "ab"}},
                                "<p>hi</p>"));
}

TEST(BridgeRequestTest, UrlGivesOpAndQuery) {
  const std::string enormous(1 << 20, 'a');
  const struct {
    const char* name;
    std::string url;
    std::string op;
    Query query;
  } cases[] = {
      {"plain", "vorna://app/api/list", "list", {}},
      {"trailing slash dropped", "vorna://app/api/list/", "list", {}},
      {"empty query", "vorna://app/api/list?", "list", {}},
      {"nested op kept verbatim", "vorna://app/api/a/b", "a/b", {}},
      {"dot segments kept", "vorna://app/api/../x", "../x", {}},
      {"path decoded", "vorna://app/api/li%73t", "list", {}},
      {"no scheme or host", "/api/list?a=1", "list", {{"a", "1"}}},
      {"later item wins", "vorna://app/api/read?path=%2Fa&path=%2Fb", "read", {{"path", "/b"}}},
      {"valueless item", "vorna://app/api/read?path=/a&f", "read", {{"path", "/a"}, {"f", ""}}},
      {"empty value", "vorna://app/api/read?path=", "read", {{"path", ""}}},
      {"plus stays plus", "vorna://app/api/read?path=/a+b%2Bc", "read", {{"path", "/a+b+c"}}},
      {"escaped separators stay in the value",
       "vorna://app/api/read?path=%2Fa%26b%3Dc&x=1",
       "read",
       {{"path", "/a&b=c"}, {"x", "1"}}},
      {"second equals belongs to the value", "vorna://app/api/read?k=a=b", "read", {{"k", "a=b"}}},
      {"utf-8 decoded", "vorna://app/api/read?path=%2F%C3%A9", "read", {{"path", "/\xC3\xA9"}}},
      {"fragment ignored", "vorna://app/api/read?a=1#b=2", "read", {{"a", "1"}}},
      {"empty items", "vorna://app/api/read?a=1&&b=2", "read", {{"", ""}, {"a", "1"}, {"b", "2"}}},
      {"NUL kept",
       "vorna://app/api/read?path=%2Fw%00%2F..%2Fx",
       "read",
       {{"path", std::string("/w\0/../x", 8)}}},
      {"enormous", "vorna://app/api/read?path=%2F" + enormous, "read", {{"path", "/" + enormous}}},
  };
  for (const auto& c : cases) {
    std::optional<BridgeRequest> request = BridgeRequest::fromUrl(c.url, "get", {}, "");
    ASSERT_TRUE(request.has_value()) << c.name;
    EXPECT_EQ(request->op, c.op) << c.name;
    EXPECT_EQ(request->query, c.query) << c.name;
  }
}

TEST(BridgeRequestTest, GivesNothingOutsideApiOrForMalformedUrls) {
  const std::string withNul("vorna://app/api/list\0/x", 23);
  for (const std::string& url :
       {std::string("vorna://app/app/index.html"), std::string("vorna://app/api"),
        std::string("vorna://app/api/"), std::string("vorna://app/apiary/x"), std::string(""),
        std::string("vorna://app/api/list?path=%zz"), std::string("vorna://app/api/list?path=%"),
        std::string("vorna://app/api/list?path=%4"), std::string("vorna://app/api/%ZZ"),
        std::string("vorna://[::1/api/list"), std::string("vorna://app:99999/api/list"), withNul}) {
    EXPECT_EQ(BridgeRequest::fromUrl(url, "GET", {}, ""), std::nullopt) << url;
  }
}

}  // namespace
}  // namespace vorna::contracts
