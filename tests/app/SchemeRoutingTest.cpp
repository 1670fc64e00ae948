#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <stdexcept>

#include "FakeBridge.h"
#include "app/AppSchemeHandler.h"
#include "app/SchemeRequestLedger.h"
#include "support/TempDir.h"

namespace vorna::app {
namespace {

namespace fs = std::filesystem;
using contracts::Json;

// A stream that hands out its bytes in the chunk sizes it is asked for and
// can fail after a number of reads.
class ScriptedStream : public RequestBodyStream {
 public:
  ScriptedStream(std::string bytes, int failAfterReads = -1)
      : bytes_(std::move(bytes)), failAfter_(failAfterReads) {}
  long read(char* buffer, size_t capacity) override {
    largestAsk = std::max(largestAsk, capacity);
    if (failAfter_ >= 0 && reads_++ >= failAfter_) {
      return -1;
    }
    size_t count = std::min(capacity, bytes_.size() - offset_);
    std::copy_n(bytes_.data() + offset_, count, buffer);
    offset_ += count;
    return static_cast<long>(count);
  }
  void close() override { ++closes; }
  size_t largestAsk = 0;
  int closes = 0;

 private:
  std::string bytes_;
  size_t offset_ = 0;
  int failAfter_;
  int reads_ = 0;
};

class SchemeRoutingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(root / "_app" / "sub");
    temp.write("_app/index.html", "<p>editor</p>");
    temp.write("secret.txt", "outside");
    fs::create_symlink(root / "secret.txt", root / "_app" / "leak.txt");
    fs::create_symlink(root / "_app" / "index.html", root / "_app" / "alias.html");
    host = std::make_shared<HostContext>((root / "_app").string());
    host->setBridge(bridge);
  }

  // As the page's guard sends it: a method that carries a body bears the mark.
  HTTPReply get(const std::string& url, const std::string& method = "GET") {
    return AppSchemeHandler::answer(
        SchemeRequest{url, method, {{"X-VN-Body", "bytes"}}, std::nullopt, nullptr}, *host);
  }

  vorna::testing::TempDir temp;
  fs::path root = temp.path();
  std::shared_ptr<HostContext> host;
  std::shared_ptr<app::testing::FakeBridge> bridge = std::make_shared<app::testing::FakeBridge>();
};

// Types by extension: FileBridgeReadTest, through the same table.
TEST_F(SchemeRoutingTest, TheRootServesIndexWithItsTypeAndDate) {
  struct timespec times[2] = {{1772546709, 0}, {1772546709, 0}};  // 2026-03-03 14:05:09 UTC
  ASSERT_EQ(::utimensat(AT_FDCWD, (root / "_app" / "index.html").c_str(), times, 0), 0);
  for (const char* url : {"vorna://app/", "vorna://app", "vorna://app/index.html"}) {
    HTTPReply reply = get(url);
    EXPECT_EQ(reply, (HTTPReply{200,
                                {{"Content-Type", "text/html; charset=utf-8"},
                                 {"Last-Modified", "Tue, 03 Mar 2026 14:05:09 GMT"}},
                                "<p>editor</p>"}))
        << url;
  }
  EXPECT_EQ(get("vorna://app/index.html", "head").body, "");
  EXPECT_EQ(get("vorna://app/index.html", "PUT").body, "<p>editor</p>");
}

TEST_F(SchemeRoutingTest, PathsThatLeaveTheEditorFolderAreRefused) {
  HTTPReply outside = HTTPReply::error(403, "outside the editor folder");
  EXPECT_EQ(get("vorna://app/..%2Fsecret.txt"), outside);
  EXPECT_EQ(get("vorna://app/sub/..%2F..%2F..%2Fsecret.txt"), outside);
  EXPECT_EQ(get("vorna://app/leak.txt"), outside);
  EXPECT_EQ(get("vorna://app/alias.html").body, "<p>editor</p>");
  EXPECT_EQ(get("vorna://app/sub"), HTTPReply::error(404, "not found: sub"));
  EXPECT_EQ(get("vorna://app/no%20such.css"), HTTPReply::error(404, "not found: no such.css"));
  EXPECT_EQ(get("vorna://app/100%25%zz.css"), HTTPReply::error(404, "not found: 100%25%zz.css"));
  EXPECT_EQ(get("vorna://app/index.html%00.png"),
            HTTPReply::error(404, std::string("not found: index.html\0.png", 26)));
  // Without an editor folder every file is a 500.
  HostContext bare(std::nullopt);
  EXPECT_EQ(AppSchemeHandler::file("vorna://app/index.html", bare, false),
            HTTPReply::error(500, "the editor (_app/) was not found next to this executable"));
}

// A request is answered once, whatever happens between its start and its
// answer: a start that fails once the request is recorded is answered at
// once, and a request without a URL gets its refusal like any other.
TEST(SchemeRequestLedgerTest, EveryRequestIsAnsweredExactlyOnce) {
  std::vector<std::pair<void*, HTTPReply>> answers;
  SchemeRequestLedger ledger(
      [&](void* request, HTTPReply reply) { answers.emplace_back(request, std::move(reply)); });
  const HTTPReply late{200, {}, "late"};
  int failedStart = 0, noUrl = 0;
  ledger.start(&failedStart, [] { throw std::runtime_error("queue stopped"); });
  ledger.finish(&failedStart, late);
  ledger.start(&noUrl, [] {});
  ledger.finish(&noUrl, AppSchemeHandler::answer(SchemeRequest{}, HostContext(std::nullopt)));
  ledger.finish(&noUrl, late);
  EXPECT_EQ(answers, (std::vector<std::pair<void*, HTTPReply>>{
                         {&failedStart, HTTPReply::error(500, "queue stopped")},
                         {&noUrl, HTTPReply::error(400, "no url")}}));
}

// A body stream that breaks is a 400.
TEST_F(SchemeRoutingTest, ApiCallsReachTheBridgeAndComeBackUnchanged) {
  auto stream = std::make_shared<ScriptedStream>(std::string(150000, 'x'));
  SchemeRequest put{"vorna://app/api/echo?path=%2Fw%2Fa.html",
                    "put",
                    {{"X-VN-Base", "ab"}, {"X-VN-Body", "bytes"}},
                    std::nullopt,
                    stream};
  HTTPReply reply = AppSchemeHandler::answer(put, *host);
  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(contracts::parseJson(reply.body).value()["bytes"], 150000);
  EXPECT_EQ(stream->largestAsk, 65536u);
  EXPECT_EQ(stream->closes, 1);
  ASSERT_EQ(bridge->requests().size(), 1u);
  contracts::BridgeRequest seen = bridge->requests()[0];
  EXPECT_EQ(seen.method, "PUT");
  EXPECT_EQ(seen.query, (std::map<std::string, std::string>{{"path", "/w/a.html"}}));
  EXPECT_EQ(seen.header("x-vn-base"), "ab");

  EXPECT_EQ(get("vorna://app/api/nothing", "DELETE"),
            HTTPReply::error(404, "unknown op: DELETE nothing"));
  EXPECT_EQ(get("vorna://app/api/list?path=%zz"), HTTPReply::error(400, "bad request"));

  auto broken = std::make_shared<ScriptedStream>(std::string(200000, 'x'), 2);
  put.bodyStream = broken;
  EXPECT_EQ(AppSchemeHandler::answer(put, *host),
            HTTPReply::error(400, "could not read the request body"));
  EXPECT_EQ(broken->closes, 1);
}

// A body the page's guard did not mark may be a Blob, on which the engine
// crashes the host as soon as it is asked for: it is refused unread.
TEST_F(SchemeRoutingTest, ABodyWithoutTheGuardsMarkIsRefusedUnread) {
  using Headers = std::map<std::string, std::string>;
  for (const auto& [method, headers] : std::vector<std::pair<std::string, Headers>>{
           {"PUT", {}}, {"post", {{"X-VN-Body", "yes"}}}, {"DELETE", {}}}) {
    auto stream = std::make_shared<ScriptedStream>("abc");
    SchemeRequest request{"vorna://app/api/echo", method, headers, std::nullopt, stream};
    EXPECT_FALSE(AppSchemeHandler::bodyMayBeRead(request)) << method;
    EXPECT_EQ(AppSchemeHandler::answer(request, *host),
              HTTPReply::error(400, AppSchemeHandler::kUnguardedBody))
        << method;
    EXPECT_EQ(stream->largestAsk, 0u) << method;
  }
  EXPECT_TRUE(bridge->requests().empty());
  EXPECT_TRUE(AppSchemeHandler::bodyMayBeRead(
      SchemeRequest{"vorna://app/api/list", "head", {}, std::nullopt, nullptr}));
}

TEST(DeliveryHeadersTest, NoStoreAndTheBodyLengthReplaceWhatTheReplyCarried) {
  HTTPReply reply{
      200,
      {{"cache-control", "max-age=60"}, {"CONTENT-LENGTH", "99"}, {"X-VN-Fingerprint", "ab"}},
      "12345"};
  EXPECT_EQ(AppSchemeHandler::deliveryHeaders(reply),
            (std::map<std::string, std::string>{
                {"Cache-Control", "no-store"},
                {"Content-Length", "5"},
                {"Content-Security-Policy", AppSchemeHandler::kContentSecurityPolicy},
                {"X-VN-Fingerprint", "ab"}}));
  EXPECT_EQ(AppSchemeHandler::deliveryHeaders(HTTPReply{204, {}, ""}).at("Content-Length"), "0");
}

}  // namespace
}  // namespace vorna::app
