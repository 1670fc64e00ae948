#include <sys/stat.h>

#include "BridgeFixture.h"
#include "bridge/ItemFacts.h"
#include "support/FaultInjectingFileSystem.h"
#include "support/TimeLimit.h"

namespace vorna::bridge::testfixture {
namespace {

using contracts::Json;
using namespace std::chrono_literals;

std::string saveResultBody(const std::string& path, size_t bytes, const std::string& hex) {
  return R"({"bytes":)" + std::to_string(bytes) + R"(,"fingerprint":")" + hex + R"(","mtime_ms":)" +
         std::to_string(ModificationTime::of(testing::statOf(path).st_mtim).milliseconds) +
         R"(,"ok":true})";
}

using FileBridgeMutationTest = BridgeTest;

TEST_F(FileBridgeMutationTest, ASaveOnTheExpectedVersionReplacesThePage) {
  tmp.write("w/index.html", "<p>old</p>");
  EXPECT_EQ(get("file", page).status, 200);
  BridgeResponse response = save(page, "<p>new</p>", sha("<p>old</p>"));
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.headers, kJsonHeaders);
  EXPECT_EQ(response.body, saveResultBody(page, 10, sha("<p>new</p>")));
  EXPECT_EQ(tmp.read("w/index.html"), "<p>new</p>");

  // The draft recorded first is kept and its copy of the bytes becomes the
  // new version's load checkpoint: no second copy is written.
  std::vector<contracts::DraftRecord> drafts = service()->drafts();
  ASSERT_EQ(drafts.size(), 1u);
  EXPECT_EQ(drafts[0].baseFingerprint, sha("<p>old</p>"));
  EXPECT_EQ(bridge().checkpoints().payloadURL(page, sha("<p>new</p>")),
            service()->draftPayloadURL(drafts[0].id));
}

TEST_F(FileBridgeMutationTest, ASaveOnAStaleBaseIsAConflictWithAllThreeCandidates) {
  tmp.write("w/index.html", "<p>old</p>");
  get("file", page);  // the editor loads the old version
  tmp.write("w/index.html", "<p>foreign</p>");
  BridgeResponse response = save(page, "<p>mine</p>", sha("<p>old</p>"));

  EXPECT_EQ(response.status, 409);
  Json answer = bodyJson(response);
  EXPECT_EQ(answer["error"], "conflict");
  EXPECT_EQ(answer["kind"], "externalVersion");
  EXPECT_EQ(answer["fingerprint"], sha("<p>foreign</p>"));
  EXPECT_FALSE(answer.contains("conflict_error"));
  EXPECT_EQ(answer["conflict"]["pagePath"], page);
  std::vector<std::pair<std::string, std::string>> roles;
  for (const Json& candidate : answer["conflict"]["candidates"]) {
    BridgeResponse bytes = call("GET", "candidate", {{"id", candidate["id"]}});
    EXPECT_EQ(candidate["fingerprint"], sha(bytes.body));
    roles.emplace_back(candidate["role"], bytes.body);
  }
  EXPECT_EQ(roles,
            (std::vector<std::pair<std::string, std::string>>{
                {"base", "<p>old</p>"}, {"editor", "<p>mine</p>"}, {"disk", "<p>foreign</p>"}}));
  EXPECT_EQ(bodyJson(call("GET", "conflicts")), Json::array({answer["conflict"]}));

  // The other program's version stays, and is from now on what the editor is
  // taken to have loaded.
  EXPECT_EQ(tmp.read("w/index.html"), "<p>foreign</p>");
  EXPECT_TRUE(bridge().checkpoints().payloadURL(page, sha("<p>foreign</p>")).has_value());
}

// A draft that cannot be recorded stops the write; a conflict that cannot be
// recorded is still a conflict.
TEST_F(FileBridgeMutationTest, AStoreThatCannotRecordStopsTheWriteButNotTheConflict) {
  auto failing = failingRecovery({"saveDraft"});
  tmp.write("w/index.html", "<p>old</p>");
  const std::string message = "recovery store unavailable: injected failure of saveDraft";
  expectError(save(page, "<p>new</p>", sha("<p>old</p>")), 507, message);
  EXPECT_EQ(tmp.read("w/index.html"), "<p>old</p>");
  expectError(create(root + "/new.html", "x"), 507, message);
  EXPECT_FALSE(tmp.exists("w/new.html"));
  expectError(call("PUT", "draft", {{"path", page}}, {}, "x"), 507, message);

  failing->failing = {"recordConflict"};
  tmp.write("w/index.html", "<p>foreign</p>");
  BridgeResponse response = save(page, "<p>mine</p>", sha("<p>old</p>"));
  EXPECT_EQ(response.status, 409);
  EXPECT_EQ(response.body,
            R"({"conflict_error":"recovery store unavailable: injected failure of recordConflict",)"
            R"("error":"conflict","fingerprint":")" +
                sha("<p>foreign</p>") + R"(","kind":"externalVersion"})");
  // Without maintenance operations the editor's copy is found among the
  // store's entries; either way its bytes are kept.
  bool editorKept = false;
  for (const storage::RecoveryEntry& entry : service()->retentionStore().entries()) {
    editorKept |= entry.fingerprint && entry.fingerprint->hex == sha("<p>mine</p>");
  }
  EXPECT_TRUE(editorKept);
}

// Create and mkdir make the folders that are missing; create never replaces
// an existing item, and an empty base header means "new file" like none.
TEST_F(FileBridgeMutationTest, CreateAndMkdirMakeWhatIsMissingAndCreateNeverReplaces) {
  ::umask(022);
  const std::string nested = root + "/a/b/c.html";
  BridgeResponse response = create(nested, "<p>c</p>");
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.body, saveResultBody(nested, 8, sha("<p>c</p>")));
  EXPECT_EQ(tmp.read("w/a/b/c.html"), "<p>c</p>");
  EXPECT_EQ(testing::modeOf(nested), 0644u);
  EXPECT_TRUE(bridge().checkpoints().payloadURL(nested, sha("<p>c</p>")).has_value());
  for (int twice = 0; twice < 2; ++twice) {
    EXPECT_EQ(call("POST", "mkdir", {{"path", root + "/x/y"}}).body, R"({"ok":true})");
  }
  EXPECT_TRUE(S_ISDIR(testing::statOf(root + "/x/y").st_mode));

  expectError(call("PUT", "file", {{"path", nested}}, {{"X-VN-Base", ""}}, "x"), 409, "exists");
  expectError(create(root + "/x", "x"), 409, "exists");
  EXPECT_EQ(tmp.read("w/a/b/c.html"), "<p>c</p>");
  EXPECT_EQ(create(root + "/fresh.html", "").status, 200);
  EXPECT_EQ(tmp.read("w/fresh.html"), "");
}

// Each answers its reason to the byte. That a failed write leaves nothing
// half-written behind is DurableChangesTest's and PowerCutTest's to prove.
TEST_F(FileBridgeMutationTest, RefusalsAndFailuresAnswerTheirReason) {
  tmp.write("w/file", "x");
  tmp.write("w/index.html", "x");
  tmp.makeFolder("w/img");
  tmp.write("data/Trash", "a file where the trash folder should be");
  testing::FaultInjectingFileSystem faulty;
  faulty.failWhere(testing::FsCall::write, "/w/big.html", ENOSPC);
  fs = &faulty;
  const std::string gone = root + "/gone.html", big = root + "/big.html", file = root + "/file";
  const std::string notTarget = "the workspace folder is not a rename target";
  const std::string exists = ": File exists (17)";
  const std::string noSpace = "write failed on " + big + ": No space left on device (28)";
  struct Row {
    std::string method, op;
    Query query;
    Headers headers;
    int status;
    std::string error;
  } rows[] = {
      {"PUT", "file", {{"path", gone}}, {{"X-VN-Base", sha("old")}}, 404, "not found: " + gone},
      {"PUT", "file", {{"path", big}}, {}, 500, noSpace},
      {"POST", "mkdir", {{"path", file}}, {}, 400, "mkdir failed on " + file + exists},
      {"POST", "mkdir", {{"path", "x"}}, {}, 400, "path must be absolute"},
      {"DELETE", "file", {{"path", root + "/img"}}, {}, 404, "not found: " + root + "/img"},
      {"DELETE", "file", {{"path", gone}}, {}, 404, "not found: " + gone},
      {"DELETE", "file", {{"path", page}}, {}, 404, "mkdir failed on " + homeTrash + exists},
      // Renaming onto a file: e2e file-operations.
      {"POST", "rename", {{"path", root}, {"to", root + "/x"}}, {}, 400, notTarget},
      {"POST", "rename", {{"path", page}, {"to", root + "/"}}, {}, 400, notTarget},
      {"POST", "rename", {{"path", gone}, {"to", root + "/x.html"}}, {}, 404, "not found: " + gone},
      {"POST", "rename", {{"path", page}, {"to", root + "/img"}}, {}, 409, "destination exists"},
      {"POST", "rename", {{"path", page}}, {}, 400, "missing to"},
      {"POST", "rename", {{"path", page}, {"to", "./x.html"}}, {}, 400, "to must be absolute"},
      {"POST",
       "rename",
       {{"path", page}, {"to", tmp / "x.html"}},
       {},
       400,
       "to is outside the workspace"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.method + " " + row.op);
    expectError(call(row.method, row.op, row.query, row.headers, std::string(1000, 'x')),
                row.status, row.error);
  }
  EXPECT_EQ(tmp.read("w/index.html"), "x");
}

// Something another program makes at the destination after the bridge
// looked is never replaced.
TEST_F(FileBridgeMutationTest, RenameNeverReplacesWhatAppearedAfterTheLook) {
  tmp.write("w/a.html", "a");
  tmp.makeFolder("w/docs");
  testing::FaultInjectingFileSystem faulty;
  faulty.beforeCall(testing::FsCall::rename, [&](const std::string& from) {
    tmp.write(from == root + "/a.html" ? "w/b.html" : "w/pages", "someone else's");
  });
  fs = &faulty;
  for (const auto& [from, to] : {std::pair{"/a.html", "/b.html"}, std::pair{"/docs", "/pages"}}) {
    expectError(rename(from, to), 409, "exists");
  }
  EXPECT_EQ(tmp.read("w/a.html"), "a");
  EXPECT_EQ(tmp.read("w/b.html"), "someone else's");
  EXPECT_EQ(tmp.read("w/pages"), "someone else's");
}

// A pipe is listed and stated but never opened: a reader or writer on its
// other end could be handed a page, or hold the operation (and every later
// one on that page, behind its lock) for good.
TEST_F(FileBridgeMutationTest, APipeIsListedButNeverReadSavedOverMovedOrCreatedOver) {
  const std::string pipe = root + "/pipe.html";
  testing::makePipe(pipe);
  EXPECT_TRUE(testing::finishesWithin(
      std::chrono::seconds(5),
      [&] {
        EXPECT_EQ(get("list", root).body, R"([{"kind":"file","name":"pipe.html"}])");
        Json facts = bodyJson(get("stat", pipe));
        EXPECT_EQ(facts["size"], 0);
        EXPECT_FALSE(facts.contains("fingerprint"));
        expectError(save(pipe, "new", sha("")), 400, "not a regular file: " + pipe);
        expectError(rename("/pipe.html", "/moved.html"), 400, "not a regular file: " + pipe);
        expectError(create(pipe, "new"), 409, "exists");
        expectError(get("file", pipe), 404, "not found: " + pipe);
      },
      [&] { testing::releasePipesIn(root); }));
  EXPECT_TRUE(S_ISFIFO(testing::statOf(pipe).st_mode));
  EXPECT_EQ(create(root + "/after.html", "later saves still run").status, 200);
}

TEST_F(FileBridgeMutationTest, ASaveWhoseExchangeFailsIsAServerErrorAndThePageKeepsItsVersion) {
  tmp.write("w/index.html", "old");
  testing::FaultInjectingFileSystem faulty;
  faulty.failNth(testing::FsCall::exchange, 1, EIO);
  fs = &faulty;
  BridgeResponse response = save(page, "new", sha("old"));
  EXPECT_EQ(response.status, 500);
  EXPECT_TRUE(bodyJson(response)["error"].get<std::string>().starts_with(
      "renameat2(RENAME_EXCHANGE) failed on "))
      << response.body;
  EXPECT_EQ(tmp.read("w/index.html"), "old");
}

// Trashing moves into the home trash and says where.
TEST_F(FileBridgeMutationTest, TheBridgesOwnWritesAreNotReportedAsOutsideChanges) {
  tmp.write("w/index.html", "old");
  tmp.makeFolder("w/sub");
  tmp.write("w/sub/inner.html", "inner");
  tmp.write("w/old.html", "to the trash");
  Recording changes;
  bridge().startWatching(
      [&](const contracts::WorkspaceChange& change) { changes.add(change.path); });
  EXPECT_EQ(save(page, "new", sha("old")).status, 200);
  EXPECT_EQ(create(root + "/made.html", "made").status, 200);
  EXPECT_EQ(create(root + "/deep/er/made.html", "made in new folders").status, 200);
  EXPECT_EQ(call("POST", "mkdir", {{"path", root + "/folder/in/folder"}}).status, 200);
  EXPECT_EQ(rename("/made.html", "/moved.html").status, 200);
  // A folder moves with everything in it, into a folder made for it.
  EXPECT_EQ(rename("/sub", "/new/sub-moved").status, 200);
  EXPECT_EQ(tmp.read("w/new/sub-moved/inner.html"), "inner");
  EXPECT_EQ(tmp.read("w/moved.html"), "made");
  EXPECT_FALSE(tmp.exists("w/made.html"));
  EXPECT_EQ(bodyJson(call("DELETE", "file", {{"path", root + "/old.html"}})),
            (Json{{"ok", true}, {"trashed", homeTrash + "/files/old.html"}}));
  EXPECT_FALSE(tmp.exists("w/old.html"));
  // Changes are handled in order, so once the marker written by another
  // program is reported, every echo of the bridge's writes has been handled.
  tmp.write("w/marker.html", "outside");
  ASSERT_TRUE(testing::eventually([&] { return !changes.lines().empty(); }, 10s));
  EXPECT_EQ(changes.lines(), std::vector<std::string>{root + "/marker.html"});
  bridge().stopWatching();
}

}  // namespace
}  // namespace vorna::bridge::testfixture
