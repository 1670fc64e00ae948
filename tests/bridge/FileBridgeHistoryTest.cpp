#include <unistd.h>

#include <algorithm>
#include <set>

#include "BridgeFixture.h"
#include "storage/PathNames.h"
#include "storage/RecoveryKind.h"

namespace vorna::bridge::testfixture {
namespace {

using contracts::Json;

class FileBridgeHistoryTest : public BridgeTest {
 protected:
  Json history(const std::string& path) {
    BridgeResponse response = get("history", path);
    EXPECT_EQ(response.status, 200) << response.body;
    return bodyJson(response);
  }
  std::vector<std::string> historyIds(const std::string& path) {
    std::vector<std::string> ids;
    for (const Json& version : history(path)) {
      ids.push_back(version["id"]);
    }
    return ids;
  }
  // The ids of the store's entries recorded under `path`, newest first.
  std::vector<std::string> storeIds(const std::string& path) {
    std::vector<std::string> ids;
    for (const storage::RecoveryEntry& entry : service()->retentionStore().entries()) {
      if (entry.pagePath == path) {
        ids.insert(ids.begin(), entry.id);
      }
    }
    return ids;
  }
  BridgeResponse version(const std::string& id) { return call("GET", "version", {{"id", id}}); }
};

TEST_F(FileBridgeHistoryTest, EveryVersionOfEveryKindIsListedNewestFirstAndServedWhole) {
  tmp.write("w/index.html", "one");
  get("file", page);                                      // checkpoint of "one"
  EXPECT_EQ(save(page, "two", sha("one")).status, 200);   // draft, "one" displaced
  tmp.write("w/index.html", "foreign");                   // another program writes
  EXPECT_EQ(save(page, "mine", sha("two")).status, 409);  // withdrawn, disk version kept
  Json versions = history(page);

  std::set<std::string> kinds;
  for (const Json& v : versions) {
    kinds.insert(v.at("kind").get<std::string>());
    BridgeResponse bytes = version(v.at("id"));
    ASSERT_EQ(bytes.status, 200) << bytes.body;
    EXPECT_EQ(v, (Json{{"byteCount", bytes.body.size()},
                       {"capturedAt", v.at("capturedAt")},
                       {"fingerprint", sha(bytes.body)},
                       {"id", v["id"]},
                       {"kind", v["kind"]}}));
    EXPECT_EQ(bytes.headers, (Headers{{"Content-Type", "text/html; charset=utf-8"},
                                      {"X-VN-Fingerprint", sha(bytes.body)},
                                      {"X-QX-Mtime", bytes.headers.at("X-QX-Mtime")}}));
  }
  EXPECT_EQ(kinds, (std::set<std::string>{"displacedExpected", "displacedExternal",
                                          "editorBytesWithdrawn", "pendingEditorBytes"}));
  // Newest first: every version of the store, by capture time and then id.
  EXPECT_EQ(historyIds(page), storeIds(page));
  auto order = [](const Json& v) {
    return std::pair<std::string, std::string>(v["capturedAt"], v["id"]);
  };
  EXPECT_TRUE(std::is_sorted(versions.begin(), versions.end(),
                             [&](const Json& a, const Json& b) { return order(a) > order(b); }));
  EXPECT_EQ(get("history", root + "/never.html").body, "[]");
}

TEST_F(FileBridgeHistoryTest, APageRenamedByTheHostKeepsItsHistoryAndDeletedPagesAreOffered) {
  ASSERT_EQ(create(root + "/a.html", "a1").status, 200);
  ASSERT_EQ(save(root + "/a.html", "a2", sha("a1")).status, 200);
  const std::vector<std::string> before = storeIds(root + "/a.html");
  ASSERT_EQ(historyIds(root + "/a.html"), before);
  EXPECT_EQ(rename("/a.html", "/docs/b.html").body, R"({"ok":true})");
  EXPECT_EQ(historyIds(root + "/docs/b.html"), before);
  EXPECT_EQ(rename("/docs", "/manual").body, R"({"ok":true})");
  EXPECT_EQ(historyIds(root + "/manual/b.html"), before);
  EXPECT_EQ(call("GET", "operations").body, "[]");  // each rename was finished

  // A renamed page is not a deleted one; a trashed page and the pages of a
  // removed folder are, at any depth.
  EXPECT_EQ(get("deleted", root).body, "[]");
  ASSERT_EQ(create(root + "/old/deep/c.html", "c").status, 200);
  ASSERT_EQ(call("DELETE", "file", {{"path", root + "/old/deep/c.html"}}).status, 200);
  ASSERT_EQ(::rmdir((root + "/old/deep").c_str()), 0);
  ASSERT_EQ(::rmdir((root + "/old").c_str()), 0);
  ASSERT_EQ(call("DELETE", "file", {{"path", root + "/manual/b.html"}}).status, 200);
  Json deleted = bodyJson(get("deleted", root));
  ASSERT_EQ(deleted.size(), 2u) << deleted;
  std::map<std::string, Json> byPath;
  for (const Json& item : deleted) {
    byPath[item["path"]] = item;
    EXPECT_EQ(item.size(), 3u) << item;
  }
  EXPECT_EQ(byPath.at(root + "/manual/b.html")["count"], before.size());
  EXPECT_EQ(byPath.at(root + "/old/deep/c.html")["count"], 1);
  EXPECT_EQ(byPath.at(root + "/old/deep/c.html")["newestCapturedAt"],
            history(root + "/old/deep/c.html")[0]["capturedAt"]);
  EXPECT_EQ(get("deleted", root + "/old").body,
            contracts::writeJson(Json::array({byPath.at(root + "/old/deep/c.html")})));
  EXPECT_EQ(get("deleted", root + "/old/deep/c.html").body, "[]");
  // A deleted page is not offered through a folder that became a link.
  tmp.makeFolder("outside");
  ASSERT_EQ(create(root + "/gone/x.html", "x").status, 200);
  ASSERT_EQ(::unlink((root + "/gone/x.html").c_str()), 0);
  EXPECT_EQ(bodyJson(get("deleted", root)).size(), deleted.size() + 1);
  ASSERT_EQ(::rmdir((root + "/gone").c_str()), 0);
  tmp.symlink("../outside", "w/gone");
  EXPECT_EQ(bodyJson(get("deleted", root)), deleted);
  expectError(call("GET", "version"), 400, "missing id");
  expectError(call("GET", "version", {{"id", ""}}), 400, "missing id");
}

TEST_F(FileBridgeHistoryTest, ARenameTheJournalCannotHoldIsNotMade) {
  tmp.write("w/a.html", "a");
  auto decorated = failingRecovery({"beginOperation"});
  expectError(rename("/a.html", "/b.html"), 507,
              "recovery store unavailable: injected failure of beginOperation");
  EXPECT_EQ(tmp.read("w/a.html"), "a");
  EXPECT_FALSE(tmp.exists("w/b.html"));

  decorated->failing = {"finishOperation"};
  BridgeResponse moved = rename("/a.html", "/b.html");
  EXPECT_EQ(moved.status, 200);
  EXPECT_EQ(bodyJson(moved)["journal_error"],
            "recovery store unavailable: injected failure of finishOperation");
  EXPECT_EQ(tmp.read("w/b.html"), "a");
}

TEST_F(FileBridgeHistoryTest, OnlyIdsOfThisWorkspacesStoreWithTheirRecordAreServed) {
  tmp.makeFolder("w2");
  recovery::LocalRecoveryService other(tmp / "w2", tmp / "store", 20, 86400.0);
  storage::RecoveryEntry foreign = other.retentionStore().retain(
      "theirs", storage::RecoveryKind::displacedExpected, tmp / "w2/index.html");
  storage::RecoveryEntry gone =
      service()->retentionStore().retain("gone", storage::RecoveryKind::displacedExpected, page);
  ::unlink(gone.payloadPath.c_str());
  const std::string storeFolder = service()->retentionStore().directory();
  for (const std::string& id :
       {foreign.id, std::string("nope"), gone.id,
        "../../" + std::string(storage::lastComponent(other.storeDirectory())) + "/retained/" +
            foreign.id,
        storeFolder + "/" + gone.id}) {
    expectError(version(id), 404, "not found: " + id);
  }

  // A payload whose sidecar was never written (the write failed after the
  // payload was in place) says nothing of the page it belongs to: it is in no
  // history and its id is not served, while the page's other versions are.
  storage::RecoveryStore& store = service()->retentionStore();
  const std::string b = root + "/b.html";
  storage::RecoveryEntry kept = store.retain("kept", storage::RecoveryKind::displacedExpected, b);
  storage::RecoveryEntry orphan =
      store.retain("orphan", storage::RecoveryKind::displacedExpected, b);
  ASSERT_EQ(::unlink(store.sidecarPathFor(orphan.id).c_str()), 0);
  EXPECT_EQ(historyIds(b), std::vector<std::string>{kept.id});
  expectError(version(orphan.id), 404, "not found: " + orphan.id);
  EXPECT_EQ(version(kept.id).body, "kept");
  EXPECT_EQ(tmp.read("store/" + service()->workspaceID() + "/retained/" + orphan.id + ".bin"),
            "orphan");
}

}  // namespace
}  // namespace vorna::bridge::testfixture
