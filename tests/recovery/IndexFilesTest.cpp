#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <regex>
#include <thread>

#include "ServiceFixture.h"
#include "recovery/IndexFiles.h"
#include "storage/Fingerprint.h"

namespace vorna::recovery {
namespace {

using namespace testfixture;

class IndexFilesTest : public testfixture::ServiceTest {};

// Each step of beginning a journal (a temporary file renamed into place) or
// of appending to it can fail; every failure must leave the index as it was
// and no temporary file behind.
TEST_F(IndexFilesTest, AnInterruptedWriteLeavesTheIndexAsItWasAndNoTemporaryFile) {
  struct Case {
    bool journalBegun;
    FsCall call;
    std::string where;
    int error;
    std::string failure;  // the FileOpError text, as a pattern
  };
  const std::string journal = indexFile("operations.journal");
  const Case cases[] = {
      {false, FsCall::open, ".tmp-", EACCES, "open failed on {tmp}: Permission denied \\(13\\)"},
      {false, FsCall::write, ".tmp-", ENOSPC,
       "write failed on {tmp}: No space left on device \\(28\\)"},
      {false, FsCall::fsync, ".tmp-", EIO, "fsync failed on {tmp}: Input/output error \\(5\\)"},
      {false, FsCall::rename, ".tmp-", EXDEV,
       "rename failed on {tmp}: Invalid cross-device link \\(18\\)"},
      {true, FsCall::open, "operations.journal", EACCES,
       "open failed on {journal}: Permission denied \\(13\\)"},
      {true, FsCall::write, "operations.journal", ENOSPC,
       "write failed on {journal}: No space left on device \\(28\\)"},
  };
  for (const Case& c : cases) {
    if (c.journalBegun && !exists(journal)) {
      fs.clearFaults();
      service().beginOperation("first", {});
    }
    const std::string before = readFileOrEmpty(journal);
    fs.clearFaults();
    fs.failWhere(c.call, c.where, c.error);
    std::string message = recoveryErrorOf([&] { service().beginOperation("second", {}); });

    std::string failure = std::regex_replace(c.failure, std::regex("\\{tmp\\}"),
                                             storeDirectory() + "/\\.tmp-[0-9A-F-]{36}");
    failure = std::regex_replace(failure, std::regex("\\{journal\\}"),
                                 storeDirectory() + "/operations\\.journal");
    EXPECT_TRUE(std::regex_match(
        message,
        std::regex("recovery store unavailable: cannot write operations\\.json: " + failure)))
        << message;
    EXPECT_EQ(readFileOrEmpty(journal), before) << fsCallName(c.call);
    EXPECT_FALSE(exists(indexFile("operations.json")));
    EXPECT_EQ(namesIn(storeDirectory(), ".tmp-"), std::vector<std::string>{}) << fsCallName(c.call);
  }
}

// Neither a stale temporary file from a crash nor text JSON cannot hold gets
// in the way; the latter fails its write instead of emptying the index.
TEST_F(IndexFilesTest, AStaleTemporaryFileStaysAndTextJsonCannotHoldFailsTheWrite) {
  writeRaw(storeDirectory() + "/.tmp-6F1C0B4E-2D1A-4C1B-9E0F-3A5B7C9D1E2F", "[{\"half");
  service().beginOperation("after the crash", {});
  EXPECT_EQ(service().unfinishedOperations().size(), 1u);
  EXPECT_EQ(namesIn(storeDirectory(), ".tmp-"),
            std::vector<std::string>{".tmp-6F1C0B4E-2D1A-4C1B-9E0F-3A5B7C9D1E2F"});

  std::string before = readFileOrEmpty(indexFile("operations.journal"));
  EXPECT_EQ(recoveryErrorOf([&] { service().beginOperation("bad \xff label", {}); }),
            "recovery store unavailable: cannot write operations.json: it holds text that is "
            "not valid UTF-8");
  EXPECT_EQ(readFileOrEmpty(indexFile("operations.journal")), before);
}

// Every operation that needs an index fails on a damaged one, names it, and
// neither repairs nor replaces it.
TEST_F(IndexFilesTest, ADamagedIndexIsReportedAndLeftUntouched) {
  const std::string draft =
      "{\"discarded\":false,\"payloadPath\":\"/p\",\"record\":{\"byteCount\":1,\"capturedAt\":"
      "\"2026-01-02T03:04:05Z\",\"fingerprint\":\"f\",\"id\":\"i\",\"pagePath\":\"/a\"}}";
  struct Case {
    std::string file;
    std::string content;
    std::string why;
  };
  const Case cases[] = {
      {"drafts.json", "", "not valid JSON"},
      {"drafts.json", "{}", "expected an array"},
      {"drafts.json", "[" + draft + ",{\"discarded\":\"no\"}]",
       "element 1: wrong type for key: discarded"},
      {"conflicts.json", "[{\"payloads\":[],\"record\":{}}]",
       "element 0: wrong type for key: payloads"},
      {"operations.json", "[{\"id\":\"x\"}]", "element 0: missing key: label"},
      {"operations.json", "[] []", "not valid JSON"},
      {"drafts.journal", "{\"snapshot\":null}\nnot json\n{\"append\":" + draft + "}\n",
       "line 2: not valid JSON"},
      {"drafts.journal", "{\"snapshot\":null}\n{\"at\":0,\"change\":" + draft + "}\n",
       "line 2: no record 0 to change"},
      {"conflicts.journal", "{\"snapshot\":null}\n{\"remove\":0}\n",
       "line 2: expected an append or a change"},
      {"operations.journal", "{\"snapshot\":null}\n{\"append\":{\"id\":\"x\"}}\n",
       "line 2: missing key: label"},
      {"operations.journal", "[]\n", "line 1: expected the snapshot's hash"},
  };
  const std::map<std::string, std::vector<std::function<void()>>> readersOf = {
      {"drafts.json",
       {[&] { service().saveDraft(page("a.html"), "x", std::nullopt); },
        [&] { service().drafts(); }, [&] { service().draftBytes("i"); },
        [&] { service().discardDraft(page("a.html")); }, [&] { service().draftPayloadURL("i"); },
        [&] { service().enforceRetentionBudget(); }}},
      {"conflicts.json",
       {[&] { service().recordConflict(page("a.html"), "base", {}); },
        [&] { service().conflicts(); }, [&] { service().candidateBytes("c"); },
        [&] { service().markResolved("c", "d"); }}},
      {"operations.json",
       {[&] { service().beginOperation("x", {}); }, [&] { service().unfinishedOperations(); },
        [&] { service().updateStep("x", 0, contracts::OperationRecord::StepState::landed); },
        [&] { service().finishOperation("x"); }}},
  };
  for (const Case& c : cases) {
    writeRaw(indexFile(c.file), c.content);
    const std::string index = c.file.substr(0, c.file.find('.')) + ".json";
    for (const auto& reader : readersOf.at(index)) {
      EXPECT_EQ(recoveryErrorOf(reader), "recovery store unavailable: recovery index " + c.file +
                                             " is unreadable and was left untouched: " + c.why)
          << c.content;
      EXPECT_EQ(readFileOrEmpty(indexFile(c.file)), c.content);
    }
    ::unlink(indexFile(c.file).c_str());
  }
  // Nothing was retained on the way to the failures.
  EXPECT_EQ(namesIn(retainedDirectory()), std::vector<std::string>{});
}

TEST_F(IndexFilesTest, AnIndexThatCannotBeOpenedIsNotTakenForAnEmptyOne) {
  service().saveDraft(page("a.html"), "x", std::nullopt);
  std::string before = readFileOrEmpty(indexFile("drafts.json"));
  fs.failWhere(FsCall::stat, "drafts.json", EACCES);
  fs.failWhere(FsCall::open, "drafts.json", EACCES);

  EXPECT_EQ(recoveryErrorOf([&] { service().saveDraft(page("a.html"), "y", std::nullopt); }),
            "recovery store unavailable: cannot read drafts.json: open failed on " +
                indexFile("drafts.json") + ": Permission denied (13)");
  EXPECT_EQ(readFileOrEmpty(indexFile("drafts.json")), before);
}

// Each list's snapshot is assembled from its records' kept texts; it must stay
// byte for byte what writing the whole list would give, whatever changes the
// journal carried before it was compacted.
template <typename T>
void expectWholeRewriteBytes(const std::string& path,
                             const std::function<T(const contracts::Json&)>& decode) {
  const std::string text = testfixture::readFileOrEmpty(path);
  std::optional<contracts::Json> json = contracts::parseJson(text);
  ASSERT_TRUE(json && json->is_array() && !json->empty()) << path;
  contracts::Json rewritten = contracts::Json::array();
  for (const contracts::Json& element : *json) {
    rewritten.push_back(decode(element).toJson());
  }
  EXPECT_EQ(text, contracts::writeJson(rewritten)) << path;
}

TEST_F(IndexFilesTest, ACompactedSnapshotHoldsTheBytesOfAWholeRewrite) {
  RecoveryEnvironment compacting = environment();
  compacting.indexJournalLimit = 0;
  LocalRecoveryService writer(workspace, storeRoot, 20, 86400, fs, compacting);
  std::vector<std::string> operations;
  for (int i = 0; i < 5; ++i) {
    writer.saveDraft(page("p" + std::to_string(i % 3) + ".html"), "v" + std::to_string(i), "base");
    operations.push_back(
        writer
            .beginOperation(
                "op/" + std::to_string(i),
                {{.path = "/w/a", .beforeFingerprint = {}, .afterFingerprint = "after"}})
            .id);
  }
  writer.discardDraft(page("p1.html"));
  writer.updateStep(operations[1], 0, contracts::OperationRecord::StepState::failed);
  writer.finishOperation(operations[3]);
  storage::RecoveryEntry disk = writer.retentionStore().retain(
      "disk", storage::RecoveryKind::displacedExternal, page("p0.html"));
  contracts::ConflictRecord conflict =
      writer.recordConflict(page("p0.html"), std::string_view("base"), {disk});
  writer.recordConflict(page("p2.html"), std::string_view("b2"), {});
  writer.markResolved(conflict.id, conflict.candidates.back().id);

  expectWholeRewriteBytes<DraftEntry>(indexFile("drafts.json"), DraftEntry::fromJson);
  expectWholeRewriteBytes<ConflictEntry>(indexFile("conflicts.json"), ConflictEntry::fromJson);
  expectWholeRewriteBytes<contracts::OperationRecord>(indexFile("operations.json"),
                                                      contracts::OperationRecord::fromJson);
  // And every change is in the files, as an instance that reads them finds.
  EXPECT_EQ(service().drafts().size(), 2u);
  EXPECT_EQ(service().conflicts().size(), 1u);
  EXPECT_EQ(service().unfinishedOperations().size(), 4u);
}

// A power cut can leave the journal's last line cut short, or, during a
// compaction, the old journal beside the new snapshot that holds it already.
// Neither is replayed, and the next write leaves neither behind.
TEST_F(IndexFilesTest, ATornLineOrALeftoverJournalIsNotReplayedAndTheNextWriteRetiresIt) {
  const std::string journal = indexFile("drafts.journal");
  for (const std::string tail : {"{\"append\":{\"discar", "{\"append\":{\"discar\n"}) {
    SCOPED_TRACE(tail);
    service().saveDraft(page("a.html"), "a", std::nullopt);
    const std::string whole = readFileOrEmpty(journal);
    writeRaw(journal, whole + tail);
    ASSERT_EQ(open()->drafts().size(), 1u);

    service().saveDraft(page("b.html"), "b", std::nullopt);
    EXPECT_FALSE(exists(journal));
    EXPECT_EQ(open()->drafts().size(), 2u);

    writeRaw(journal, whole);
    EXPECT_EQ(open()->drafts().size(), 2u);
    service().saveDraft(page("c.html"), "c", std::nullopt);
    EXPECT_EQ(open()->drafts().size(), 3u);
    EXPECT_TRUE(readFileOrEmpty(journal).starts_with(
        "{\"snapshot\":\"" +
        storage::Fingerprint::ofBytes(readFileOrEmpty(indexFile("drafts.json"))).hex + "\"}\n"));
    ::unlink(journal.c_str());
    ::unlink(indexFile("drafts.json").c_str());
  }
}

// Writers that come while an index file is being written wait for one write
// that carries all their records; none returns before its record is in the
// file, and when that write fails, each of them fails.
TEST_F(IndexFilesTest, WritersThatComeDuringAWriteShareTheNextOneAndItsOutcome) {
  constexpr int kWriters = 4;
  // A write of the drafts' index: a new journal's temporary file, or an append.
  auto ontoDrafts = [this](const std::string& path) {
    return path.starts_with(storeDirectory() + "/.tmp-") || path.ends_with("/drafts.journal");
  };
  for (const bool nextWriteFails : {false, true}) {
    SCOPED_TRACE(nextWriteFails ? "the shared write fails" : "the shared write succeeds");
    fs.clearFaults();
    writeRaw(indexFile("drafts.json"), "[]");
    ::unlink(indexFile("drafts.journal").c_str());
    service().drafts();
    auto draftCalls = [&](FsCall kind) {
      std::vector<testing::FaultInjectingFileSystem::Call> calls = fs.calls();
      return std::count_if(calls.begin(), calls.end(), [&](const auto& call) {
        return call.call == kind && ontoDrafts(call.path);
      });
    };
    const auto writesBefore = draftCalls(FsCall::write);
    if (nextWriteFails) {
      fs.failNthMatching(FsCall::write, ontoDrafts, static_cast<int>(writesBefore) + 2, EIO);
    }
    // The first write is held until every other writer has put its record in
    // memory and waits; the lock is free meanwhile, or drafts() could not answer.
    std::atomic<int> flushes{0};
    fs.beforeCall(FsCall::fsync, [&](const std::string& path) {
      if (!ontoDrafts(path) || flushes.fetch_add(1) != 0) {
        return;
      }
      const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
      while (service().drafts().size() < kWriters && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    });
    std::vector<std::string> outcomes(kWriters);
    std::vector<std::thread> writers;
    for (int i = 0; i < kWriters; ++i) {
      writers.emplace_back([&, i] {
        if (i > 0) {
          while (flushes.load() == 0) {
            std::this_thread::yield();
          }
        }
        const std::string name = "/p" + std::to_string(i) + ".html";
        try {
          service().saveDraft(workspace + name, "draft", std::nullopt);
          // Its record is on disk now, whoever wrote it.
          const std::string onDisk = readFileOrEmpty(indexFile("drafts.json")) +
                                     readFileOrEmpty(indexFile("drafts.journal"));
          outcomes[i] = onDisk.contains(name) ? "on disk" : "answered before its write";
        } catch (const contracts::RecoveryError& error) {
          outcomes[i] = error.description();
        }
      });
    }
    for (std::thread& writer : writers) {
      writer.join();
    }
    fs.clearFaults();
    EXPECT_EQ(draftCalls(FsCall::write) - writesBefore, 2);
    for (int i = 0; i < kWriters; ++i) {
      EXPECT_TRUE(nextWriteFails && i > 0
                      ? outcomes[i].starts_with("recovery store unavailable: cannot write "
                                                "drafts.json: write failed on ")
                      : outcomes[i] == "on disk")
          << i << ": " << outcomes[i];
    }
    EXPECT_EQ(service().drafts().size(), nextWriteFails ? 1u : size_t{kWriters});
  }
}

TEST_F(IndexFilesTest, AChangeAnotherInstanceMakesIsSeenOnTheNextCall) {
  service().saveDraft(page("a.html"), "mine", std::nullopt);
  ASSERT_EQ(service().drafts().size(), 1u);
  std::unique_ptr<LocalRecoveryService> other = open();
  other->saveDraft(page("b.html"), "theirs", std::nullopt);
  EXPECT_EQ(service().drafts().size(), 2u);
  writeRaw(indexFile("drafts.json"), "[]");
  EXPECT_TRUE(service().drafts().empty());
  // What this instance writes next builds on what it found, not on its memory.
  service().saveDraft(page("c.html"), "after", std::nullopt);
  ASSERT_EQ(other->drafts().size(), 1u);
  EXPECT_EQ(other->drafts()[0].pagePath, page("c.html"));
}

}  // namespace
}  // namespace vorna::recovery
