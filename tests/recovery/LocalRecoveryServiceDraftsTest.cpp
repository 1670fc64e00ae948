#include <gtest/gtest.h>

#include "ServiceFixture.h"

namespace vorna::recovery {
namespace {

using namespace testfixture;
using contracts::DraftRecord;

constexpr const char* kSha256OfNothing =
    "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

class DraftsTest : public testfixture::ServiceTest {};

TEST_F(DraftsTest, TheLastDraftOfEachPageIsCurrentAndListedByPath) {
  service().saveDraft(page("b.html"), "b1", std::nullopt);
  DraftRecord first = service().saveDraft(page("a.html"), "a1", "base-a").record;
  DraftRecord second = service().saveDraft(page("a.html"), "a2", "base-a2").record;
  DraftRecord other = service().saveDraft(page("b.html"), "b2", std::nullopt).record;

  EXPECT_EQ(service().drafts(), (std::vector<DraftRecord>{second, other}));
  EXPECT_EQ(open()->drafts(), service().drafts());
  EXPECT_EQ(service().draftBytes(first.id), "a1");
  EXPECT_EQ(service().draftBytes(second.id), "a2");
  EXPECT_EQ(second.byteCount, 2);
  EXPECT_EQ(second.capturedAt, now);
  EXPECT_EQ(service().draftPayloadURL(second.id), retainedDirectory() + "/" + second.id + ".bin");
}

// A first draft begins the journal, on no snapshot yet, with one appended record.
TEST_F(DraftsTest, TheJournalHoldsTheEntriesInSavedOrderWithSortedKeys) {
  DraftRecord record =
      service().saveDraft(workspace + "/./x/../index.html", "", std::nullopt).record;

  EXPECT_EQ(record.pagePath, page("index.html"));
  EXPECT_EQ(record.byteCount, 0);
  EXPECT_EQ(record.fingerprint, kSha256OfNothing);
  EXPECT_FALSE(record.baseFingerprint.has_value());
  std::string payload = retainedDirectory() + "/" + record.id + ".bin";
  EXPECT_FALSE(exists(indexFile("drafts.json")));
  EXPECT_EQ(readFileOrEmpty(indexFile("drafts.journal")),
            "{\"snapshot\":null}\n{\"append\":{\"discarded\":false,\"payloadPath\":\"" +
                escaped(payload) + "\",\"record\":{\"byteCount\":0,\"capturedAt\":\"" +
                contracts::formatIsoDate(now) + "\",\"fingerprint\":\"" + kSha256OfNothing +
                "\",\"id\":\"" + record.id + "\",\"pagePath\":\"" + escaped(page("index.html")) +
                "\"}}}\n");
}

TEST_F(DraftsTest, DiscardingHidesTheDraftButKeepsItsBytesAndWithoutADraftWritesNothing) {
  service().discardDraft(page("a.html"));
  EXPECT_FALSE(exists(indexFile("drafts.journal")));

  DraftRecord record = service().saveDraft(page("a.html"), "kept", std::nullopt).record;
  size_t flushes = fs.count(FsCall::fsync);
  service().discardDraft(page("none.html"));
  EXPECT_EQ(fs.count(FsCall::fsync), flushes);
  service().discardDraft(workspace + "/sub/../a.html");

  EXPECT_EQ(service().drafts(), std::vector<DraftRecord>{});
  EXPECT_EQ(service().draftBytes(record.id), "kept");
  EXPECT_NE(readFileOrEmpty(indexFile("drafts.journal")).find("\"discarded\":true"),
            std::string::npos);
  DraftRecord again = service().saveDraft(page("a.html"), "again", std::nullopt).record;
  EXPECT_EQ(service().drafts(), std::vector<DraftRecord>{again});
}

}  // namespace
}  // namespace vorna::recovery
