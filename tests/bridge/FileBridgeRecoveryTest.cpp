#include "BridgeFixture.h"

namespace vorna::bridge::testfixture {
namespace {

using contracts::Json;

class FileBridgeRecoveryTest : public BridgeTest {
 protected:
  // A conflict on `page` made through the bridge: the editor loaded "old",
  // another program wrote "foreign", the editor saved "mine".
  Json makeConflict() {
    tmp.write("w/index.html", "old");
    get("file", page);
    tmp.write("w/index.html", "foreign");
    BridgeResponse response = save(page, "mine", sha("old"));
    EXPECT_EQ(response.status, 409);
    return bodyJson(response)["conflict"];
  }

  static std::string candidateId(const Json& conflict, const std::string& role) {
    for (const Json& candidate : conflict["candidates"]) {
      if (candidate["role"] == role) {
        return candidate["id"];
      }
    }
    ADD_FAILURE() << "no " << role << " candidate";
    return {};
  }
};

// The records' own form: DraftRecordTest and ConflictRecordTest.
TEST_F(FileBridgeRecoveryTest, ListsAreBareArraysOfRecordsOrTheStoresFailure) {
  auto decorated = failingRecovery({});
  BridgeResponse stored = call("PUT", "draft", {{"path", page}}, {{"X-VN-Base", sha("old")}}, "d");
  Json record = bodyJson(stored);
  EXPECT_EQ(bodyJson(call("GET", "drafts")), Json::array({record}));
  EXPECT_EQ(record["pagePath"], page);
  EXPECT_EQ(record["fingerprint"], sha("d"));

  contracts::OperationRecord operation = service()->beginOperation(
      "move pages", {{.path = page,
                      .beforeFingerprint = std::nullopt,
                      .afterFingerprint = std::nullopt,
                      .state = contracts::OperationRecord::StepState::pending}});
  BridgeResponse operations = call("GET", "operations");
  EXPECT_EQ(operations.body, contracts::writeJson(Json::array({operation.toJson()})));
  // A store that fails is a 507 with its reason.
  makeConflict();
  const std::tuple<std::string, std::string, std::string> rows[] = {
      {"GET", "drafts", "drafts"},
      {"GET", "conflicts", "conflicts"},
      {"GET", "operations", "unfinishedOperations"},
      {"DELETE", "draft", "discardDraft"},
      // Dismissing stops at the first conflict it cannot close.
      {"POST", "dismiss", "markResolved"},
  };
  for (const auto& [method, op, failed] : rows) {
    decorated->failing = {failed};
    expectError(call(method, op, {{"path", page}}), 507,
                "recovery store unavailable: injected failure of " + failed);
  }
}

// A draft's base is absent without the header and empty when it is empty;
// its bytes are served with exactly their type and fingerprint.
TEST_F(FileBridgeRecoveryTest, DraftsKeepTheirBaseAreServedWholeAndAreDiscarded) {
  Json withoutBase = bodyJson(call("PUT", "draft", {{"path", page}}, {}, "<p>draft</p>"));
  EXPECT_FALSE(withoutBase.contains("baseFingerprint"));
  Json emptyBase =
      bodyJson(call("PUT", "draft", {{"path", root + "/b.html"}}, {{"x-vn-base", ""}}, "b"));
  EXPECT_EQ(emptyBase["baseFingerprint"], "");
  expectError(call("PUT", "draft", {{"path", "/elsewhere"}}, {}, "x"), 400,
              "path is outside the workspace");
  BridgeResponse bytes = call("GET", "draft", {{"id", withoutBase["id"]}});
  EXPECT_EQ(bytes, (BridgeResponse{200,
                                   {{"Content-Type", "application/octet-stream"},
                                    {"X-VN-Fingerprint", sha("<p>draft</p>")}},
                                   "<p>draft</p>"}));
  for (const char* op : {"draft", "candidate"}) {
    expectError(call("GET", op), 400, "missing id");
    expectError(call("GET", op, {{"id", ""}}), 400, "missing id");
    expectError(call("GET", op, {{"id", "nope"}}), 404, std::string("no ") + op + ": nope");
  }
  EXPECT_EQ(call("DELETE", "draft", {{"path", page}}).body, R"({"ok":true})");
  EXPECT_EQ(bodyJson(call("GET", "drafts")), Json::array({emptyBase}));
  expectError(call("DELETE", "draft", {}), 400, "missing path");
}

// Parameters are checked in order; a page that moved on since the conflict
// (or is gone, and cannot be fingerprinted) is never overwritten; a closed
// conflict is not found again.
TEST_F(FileBridgeRecoveryTest, ResolveWritesTheChosenCandidateOnlyOverTheDiskItNamed) {
  Json conflict = makeConflict();
  const std::string id = conflict["id"];
  const std::string editor = candidateId(conflict, "editor");
  auto resolve = [&](Query query) { return call("POST", "resolve", std::move(query)); };
  expectError(resolve({}), 400, "missing id");
  expectError(resolve({{"id", id}, {"disk", "x"}}), 400, "missing choose");
  expectError(resolve({{"id", id}, {"choose", editor}, {"disk", ""}}), 400, "missing disk");
  expectError(resolve({{"id", "NOPE"}, {"choose", editor}, {"disk", sha("foreign")}}), 404,
              "no conflict: NOPE");
  expectError(resolve({{"id", id}, {"choose", "nothing"}, {"disk", sha("foreign")}}), 404,
              "no candidate: nothing");
  expectError(resolve({{"id", id}, {"choose", editor}, {"disk", sha("old")}}), 409, "stale");
  EXPECT_EQ(tmp.read("w/index.html"), "foreign");

  call("PUT", "draft", {{"path", page}}, {}, "unsaved");
  EXPECT_EQ(resolve({{"id", id}, {"choose", editor}, {"disk", sha("foreign")}}).body,
            R"({"fingerprint":")" + sha("mine") + R"(","ok":true})");
  EXPECT_EQ(tmp.read("w/index.html"), "mine");
  EXPECT_EQ(call("GET", "drafts").body, "[]");
  expectError(resolve({{"id", id}, {"choose", editor}, {"disk", sha("mine")}}), 404,
              "no conflict: " + id);

  Json again = makeConflict();
  ::unlink(page.c_str());
  expectError(resolve({{"id", again["id"]},
                       {"choose", candidateId(again, "editor")},
                       {"disk", sha("foreign")}}),
              409, "stale");
  EXPECT_FALSE(tmp.exists("w/index.html"));

  // A conflict whose page is outside the workspace is refused.
  tmp.makeFolder("outside");
  tmp.write("outside/x.html", "x");
  contracts::ConflictRecord outside =
      service()->recordConflict(tmp / "outside/x.html", std::string_view("base"), {});
  expectError(
      resolve({{"id", outside.id}, {"choose", outside.candidates[0].id}, {"disk", sha("x")}}), 400,
      "conflict page is outside the workspace");
  EXPECT_EQ(tmp.read("outside/x.html"), "x");
}

TEST_F(FileBridgeRecoveryTest, BookkeepingFailuresAfterAResolveAreReportedInsideTheSuccess) {
  auto decorated = failingRecovery({});
  Json conflict = makeConflict();
  decorated->failing = {"markResolved", "discardDraft"};
  BridgeResponse response = call("POST", "resolve",
                                 {{"id", conflict["id"]},
                                  {"choose", candidateId(conflict, "base")},
                                  {"disk", sha("foreign")}});
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.body,
            R"({"draft_error":"recovery store unavailable: injected failure of discardDraft",)"
            R"("fingerprint":")" +
                sha("old") +
                R"(","ok":true,"resolve_error":"recovery store unavailable: injected failure of )"
                R"(markResolved"})");
  EXPECT_EQ(tmp.read("w/index.html"), "old");
}

TEST_F(FileBridgeRecoveryTest, DismissClosesEveryConflictOfThePageAndDiscardsItsDraft) {
  tmp.makeFolder("w/real");
  tmp.symlink("real", "w/alias");
  const std::string real = root + "/real/p.html";
  tmp.write("w/real/p.html", "disk");
  // Two open conflicts of one page: recorded under two spellings of its path.
  storage::RecoveryStore& store = service()->retentionStore();
  auto first = service()->recordConflict(
      real, std::string_view("base"),
      {store.retain("mine", storage::RecoveryKind::pendingEditorBytes, real),
       store.retain("disk", storage::RecoveryKind::displacedExternal, real)});
  auto second = service()->recordConflict(
      root + "/alias/p.html", std::nullopt,
      {store.retain("mine 2", storage::RecoveryKind::pendingEditorBytes, root + "/alias/p.html")});
  ASSERT_NE(first.id, second.id);
  auto decorated = failingRecovery({});
  call("PUT", "draft", {{"path", real}}, {}, "draft");

  EXPECT_EQ(call("POST", "dismiss", {{"path", real}}).body, R"({"closed":2,"ok":true})");
  EXPECT_EQ(decorated->resolved, (std::vector<std::pair<std::string, std::string>>{
                                     {first.id, candidateId(first.toJson(), "editor")},
                                     {second.id, candidateId(second.toJson(), "editor")}}));
  EXPECT_EQ(call("GET", "conflicts").body, "[]");
  EXPECT_EQ(call("GET", "drafts").body, "[]");
  EXPECT_EQ(tmp.read("w/real/p.html"), "disk");
  // Without conflicts the draft is still discarded.
  call("PUT", "draft", {{"path", page}}, {}, "draft");
  EXPECT_EQ(call("POST", "dismiss", {{"path", page}}).body, R"({"closed":0,"ok":true})");
  EXPECT_EQ(call("GET", "drafts").body, "[]");
}

}  // namespace
}  // namespace vorna::bridge::testfixture
