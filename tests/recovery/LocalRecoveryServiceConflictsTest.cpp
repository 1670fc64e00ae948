#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <regex>

#include "ServiceFixture.h"
#include "storage/Fingerprint.h"

namespace vorna::recovery {
namespace {

using namespace testfixture;
using contracts::CandidateRecord;
using contracts::ConflictRecord;
using Role = contracts::CandidateRecord::Role;

std::string hexOf(const std::string& bytes) {
  return storage::Fingerprint::ofBytes(bytes).hex;
}

class ConflictsTest : public testfixture::ServiceTest {
 protected:
  RecoveryEntry retained(const std::string& bytes, RecoveryKind kind) {
    return service().retentionStore().retain(bytes, kind, page("a.html"));
  }

  std::vector<Role> rolesOf(const ConflictRecord& record) {
    std::vector<Role> roles;
    for (const CandidateRecord& candidate : record.candidates) {
      roles.push_back(candidate.role);
    }
    return roles;
  }
};

// A candidate is what was read, not what the entry claimed.
TEST_F(ConflictsTest, BaseEditorAndDiskBecomeThreeCandidatesInThatOrder) {
  RecoveryEntry editor = retained("editor", RecoveryKind::pendingEditorBytes);
  RecoveryEntry disk = retained("disk", RecoveryKind::displacedExternal);
  disk.fingerprint = storage::Fingerprint::ofBytes("claimed");
  disk.byteCount = 99;

  ConflictRecord record = service().recordConflict(page("a.html"), "base", {editor, disk});

  EXPECT_TRUE(std::regex_match(record.id, std::regex("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}")));
  EXPECT_EQ(record.pagePath, page("a.html"));
  EXPECT_EQ(record.openedAt, now);
  ASSERT_EQ(rolesOf(record), (std::vector<Role>{Role::base, Role::editor, Role::disk}));
  EXPECT_EQ(record.candidates[1], (CandidateRecord{.id = editor.id,
                                                   .role = Role::editor,
                                                   .fingerprint = hexOf("editor"),
                                                   .byteCount = 6,
                                                   .capturedAt = editor.capturedAt}));
  EXPECT_EQ(record.candidates[0].fingerprint, hexOf("base"));
  EXPECT_EQ(record.candidates[2].fingerprint, hexOf("disk"));
  EXPECT_EQ(record.candidates[2].byteCount, 4);
  EXPECT_EQ(service().candidateBytes(record.candidates[0].id), "base");
  EXPECT_EQ(service().candidateBytes(disk.id), "disk");
  EXPECT_EQ(open()->conflicts(), std::vector<ConflictRecord>{record});
}

TEST_F(ConflictsTest, EachVersionIsOfferedOnceAndRolesFollowTheKinds) {
  struct Case {
    std::string name;
    std::optional<std::string> base;
    std::vector<std::pair<std::string, RecoveryKind>> retained;
    std::vector<Role> roles;
  };
  const Case cases[] = {
      {"editor equals base",
       "same",
       {{"same", RecoveryKind::pendingEditorBytes}, {"disk", RecoveryKind::displacedExternal}},
       {Role::base, Role::disk}},
      {"expected versions without base",
       std::nullopt,
       {{"one", RecoveryKind::displacedExpected}, {"two", RecoveryKind::displacedExpected}},
       {Role::base, Role::disk}},
      {"withdrawn editor bytes",
       std::nullopt,
       {{"mine", RecoveryKind::editorBytesWithdrawn}, {"mine", RecoveryKind::pendingEditorBytes}},
       {Role::editor}},
      {"base given and an expected version",
       "b",
       {{"v", RecoveryKind::displacedExpected}},
       {Role::base, Role::disk}},
  };
  for (const Case& c : cases) {
    std::vector<RecoveryEntry> entries;
    for (const auto& [bytes, kind] : c.retained) {
      entries.push_back(retained(bytes, kind));
    }
    std::string pagePath = page(c.name + ".html");
    std::optional<std::string_view> base;
    if (c.base) {
      base = *c.base;
    }
    EXPECT_EQ(rolesOf(service().recordConflict(pagePath, base, entries)), c.roles) << c.name;
  }
}

TEST_F(ConflictsTest, AnOpenConflictGrowsOnlyByNewVersionsAndOnceResolvedTheNextIsNew) {
  ConflictRecord empty = service().recordConflict(page("a.html"), std::nullopt, {});
  EXPECT_TRUE(empty.candidates.empty());
  EXPECT_EQ(service().conflicts(), std::vector<ConflictRecord>{empty});

  RecoveryEntry disk = retained("disk", RecoveryKind::displacedExternal);
  ConflictRecord grown = service().recordConflict(page("a.html"), "base", {disk});
  size_t flushes = fs.count(FsCall::fsync);
  ConflictRecord again = service().recordConflict(page("./a.html/../a.html"), "base", {disk});

  EXPECT_EQ(grown.id, empty.id);
  EXPECT_EQ(rolesOf(grown), (std::vector<Role>{Role::base, Role::disk}));
  EXPECT_EQ(again, grown);
  EXPECT_EQ(fs.count(FsCall::fsync), flushes + 1);  // written even with nothing new

  // Resolved, it stays readable, and the next conflict of the page is new.
  now += std::chrono::seconds(3);
  service().markResolved(grown.id, grown.candidates[1].id);
  EXPECT_EQ(service().conflicts(), std::vector<ConflictRecord>{});
  EXPECT_EQ(service().candidateBytes(grown.candidates[0].id), "base");
  ConflictRecord next = service().recordConflict(page("a.html"), "base", {});
  EXPECT_NE(next.id, grown.id);
  EXPECT_EQ(service().conflicts(), std::vector<ConflictRecord>{next});
  std::string index = readFileOrEmpty(indexFile("conflicts.journal"));
  EXPECT_NE(index.find("\"chosenCandidateID\":\"" + grown.candidates[1].id + "\""),
            std::string::npos);
  EXPECT_NE(index.find("\"resolvedAt\":\"" + contracts::formatIsoDate(now) + "\""),
            std::string::npos);
}

TEST_F(ConflictsTest, AMissingRetainedPayloadFailsTheWholeRecord) {
  ConflictRecord open = service().recordConflict(page("a.html"), std::nullopt, {});
  std::string before = readFileOrEmpty(indexFile("conflicts.journal"));
  RecoveryEntry gone = retained("gone", RecoveryKind::displacedExternal);
  ::unlink(gone.payloadPath.c_str());

  EXPECT_EQ(recoveryErrorOf([&] { service().recordConflict(page("a.html"), "base", {gone}); }),
            "recovery store unavailable: retained payload missing at " + gone.payloadPath);
  EXPECT_EQ(readFileOrEmpty(indexFile("conflicts.journal")), before);
  // The payloads are read before the base is written: nothing was retained for it.
  EXPECT_EQ(service().retentionStore().entries().size(), 1u);

  fs.failWhere(FsCall::open, ".bin", EROFS);
  std::string message = recoveryErrorOf([&] { service().recordConflict(page("a.html"), "b", {}); });
  EXPECT_TRUE(message.starts_with("recovery store unavailable: cannot retain 1 bytes for " +
                                  page("a.html") + ": open failed on "))
      << message;
  EXPECT_EQ(readFileOrEmpty(indexFile("conflicts.journal")), before);
  EXPECT_EQ(service().conflicts(), std::vector<ConflictRecord>{open});
}

// Unknown ids are not found; a payload changed by hand no longer matches its
// fingerprint, and one removed by hand is missing.
TEST_F(ConflictsTest, UnknownIdsAndPayloadsChangedOrRemovedByHandAreReported) {
  ConflictRecord a = service().recordConflict(page("a.html"), "base",
                                              {retained("disk", RecoveryKind::displacedExternal)});
  ConflictRecord b = service().recordConflict(page("b.html"), "b", {});
  contracts::DraftRecord changed = service().saveDraft(page("c.html"), "draft", {}).record;
  contracts::DraftRecord removed = service().saveDraft(page("d.html"), "draft", {}).record;
  const std::string base = a.candidates[0].id;
  const std::string disk = a.candidates[1].id;
  auto payload = [&](const std::string& id) { return retainedDirectory() + "/" + id + ".bin"; };
  for (const std::string& id : {base, changed.id}) {
    ASSERT_EQ(::chmod(payload(id).c_str(), 0644), 0);
    writeRaw(payload(id), "edited by hand");
  }
  for (const std::string& id : {disk, removed.id}) {
    ASSERT_EQ(::unlink(payload(id).c_str()), 0);
  }
  const std::string other = b.candidates[0].id;
  const std::pair<std::function<void()>, std::string> cases[] = {
      {[&] { service().candidateBytes(base); }, "recovery store unavailable: candidate " + base +
                                                    ": payload at " + payload(base) +
                                                    " no longer matches its fingerprint"},
      {[&] { service().draftBytes(changed.id); },
       "recovery store unavailable: draft " + changed.id + ": payload at " + payload(changed.id) +
           " no longer matches its fingerprint"},
      {[&] { service().candidateBytes(disk); },
       "not found: candidate " + disk + ": payload missing at " + payload(disk)},
      {[&] { service().draftBytes(removed.id); },
       "not found: draft " + removed.id + ": payload missing at " + payload(removed.id)},
      {[&] { service().candidateBytes("nope"); }, "not found: candidate nope"},
      {[&] { service().draftBytes("1A2B"); }, "not found: draft 1A2B"},
      {[&] { service().draftPayloadURL("1A2B"); }, "not found: draft 1A2B"},
      {[&] { service().markResolved("C0", other); }, "not found: conflict C0"},
      {[&] { service().markResolved(a.id, other); },
       "not found: candidate " + other + " in conflict " + a.id},
  };
  for (const auto& [call, message] : cases) {
    EXPECT_EQ(recoveryErrorOf(call), message);
  }
  EXPECT_EQ(service().conflicts().size(), 2u);
}

}  // namespace
}  // namespace vorna::recovery
