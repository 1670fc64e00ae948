#include <gtest/gtest.h>

#include <ostream>

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
}

struct UrlCase {
  const char* name;
  std::string url;
  std::string op;
  Query query;
};

// Names the case in ctest's listing instead of dumping its bytes.
void PrintTo(const UrlCase& c, std::ostream* out) {
  *out << c.name;
}

const std::string kEnormous(1 << 20, 'a');

class BridgeRequestUrlTest : public ::testing::TestWithParam<UrlCase> {};

TEST_P(BridgeRequestUrlTest, BuildsOpAndQuery) {
  const UrlCase& c = GetParam();
  std::optional<BridgeRequest> request = BridgeRequest::fromUrl(c.url, "get", {}, "");
  ASSERT_TRUE(request.has_value()) << c.url;
  EXPECT_EQ(request->op, c.op);
  EXPECT_EQ(request->query, c.query);
}

INSTANTIATE_TEST_SUITE_P(
    Urls, BridgeRequestUrlTest,
    ::testing::Values(
        UrlCase{"plain", "vorna://app/api/list", "list", {}},
        UrlCase{"trailingSlashDropped", "vorna://app/api/list/", "list", {}},
        UrlCase{"emptyQuery", "vorna://app/api/list?", "list", {}},
        UrlCase{"nestedOpKeptVerbatim", "vorna://app/api/a/b", "a/b", {}},
        UrlCase{"dotSegmentsKept", "vorna://app/api/../x", "../x", {}},
        UrlCase{"pathDecoded", "vorna://app/api/li%73t", "list", {}},
        UrlCase{"noSchemeOrHost", "/api/list?a=1", "list", {{"a", "1"}}},
        UrlCase{
            "laterItemWins", "vorna://app/api/read?path=%2Fa&path=%2Fb", "read", {{"path", "/b"}}},
        UrlCase{"valuelessItemIsEmpty",
                "vorna://app/api/read?path=/a&flag",
                "read",
                {{"path", "/a"}, {"flag", ""}}},
        UrlCase{"emptyValue", "vorna://app/api/read?path=", "read", {{"path", ""}}},
        UrlCase{
            "plusStaysPlus", "vorna://app/api/read?path=/a+b%2Bc", "read", {{"path", "/a+b+c"}}},
        UrlCase{"escapedSeparatorsStayInValue",
                "vorna://app/api/read?path=%2Fa%26b%3Dc&x=1",
                "read",
                {{"path", "/a&b=c"}, {"x", "1"}}},
        UrlCase{"secondEqualsBelongsToValue", "vorna://app/api/read?k=a=b", "read", {{"k", "a=b"}}},
        UrlCase{
            "utf8Decoded", "vorna://app/api/read?path=%2F%C3%A9", "read", {{"path", "/\xC3\xA9"}}},
        UrlCase{"fragmentIgnored", "vorna://app/api/read?a=1#b=2", "read", {{"a", "1"}}},
        UrlCase{"emptyItemsHaveEmptyName",
                "vorna://app/api/read?a=1&&b=2",
                "read",
                {{"", ""}, {"a", "1"}, {"b", "2"}}},
        UrlCase{"escapedNulKeptAsAByteNotACut",
                "vorna://app/api/read?path=%2Fw%00%2F..%2Fx",
                "read",
                {{"path", std::string("/w\0/../x", 8)}}},
        UrlCase{"enormousUrlParsedWhole",
                "vorna://app/api/read?path=%2F" + kEnormous,
                "read",
                {{"path", "/" + kEnormous}}}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

TEST(BridgeRequestTest, UrlCarriesMethodHeadersAndBody) {
  std::optional<BridgeRequest> request = BridgeRequest::fromUrl(
      "vorna://app/api/file?path=%2Fw%2Fa.html", "put", {{"X-VN-Base", "ab"}}, "<p>hi</p>");
  ASSERT_TRUE(request.has_value());
  EXPECT_EQ(*request, BridgeRequest::make("PUT", "file", {{"path", "/w/a.html"}},
                                          {{"x-vn-base", "ab"}}, "<p>hi</p>"));
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
