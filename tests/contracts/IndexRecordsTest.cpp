// Decoding the records the recovery indexes hold. Their round trips through
// the index files are asserted by the recovery tests (DraftsTest, ConflictsTest,
// JournalTest and IndexFilesTest's snapshot rewrite).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "contracts/ConflictRecord.h"
#include "contracts/DecodeError.h"
#include "contracts/DraftRecord.h"
#include "contracts/OperationRecord.h"

namespace vorna::contracts {
namespace {

using namespace std::chrono;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

const Timestamp kAt = sys_days{2026y / November / 16} + 20h + 25min + 15s;

DraftRecord sampleDraft() {
  return DraftRecord{.id = "D1",
                     .pagePath = "/w/a.html",
                     .baseFingerprint = std::nullopt,
                     .fingerprint = "ab",
                     .byteCount = 5,
                     .capturedAt = kAt};
}

ConflictRecord openConflict() {
  using Role = CandidateRecord::Role;
  return ConflictRecord{.id = "6F9619FF-8B86-D011-B42D-00C04FC964FF",
                        .pagePath = "/w/a.html",
                        .candidates = {{"C-base", Role::base, "aa", 1, kAt},
                                       {"C-editor", Role::editor, "bb", 2, kAt + 1s}},
                        .openedAt = kAt,
                        .resolvedAt = std::nullopt,
                        .chosenCandidateID = std::nullopt};
}

OperationRecord unfinished() {
  using State = OperationRecord::StepState;
  return OperationRecord{.id = "0A1B2C3D-0000-4000-8000-000000000001",
                         .label = "rename",
                         .steps = {{"/w/a.html", "aa", std::nullopt, State::landed}},
                         .startedAt = kAt,
                         .finishedAt = std::nullopt};
}

TEST(DraftRecordTest, NullOptionalReadsAsAbsentAndUnknownKeysAreIgnored) {
  Json json = sampleDraft().toJson();
  json["baseFingerprint"] = nullptr;
  json["later"] = 1;
  EXPECT_EQ(DraftRecord::fromJson(json), sampleDraft());
}

TEST(DraftRecordTest, DecodingNamesTheFaultyKey) {
  struct Case {
    const char* key;
    Json value;  // null removes the key
    const char* message;
  };
  const Case cases[] = {
      {"id", nullptr, "missing key: id"},
      {"capturedAt", nullptr, "missing key: capturedAt"},
      {"pagePath", 7, "wrong type for key: pagePath"},
      {"byteCount", "5", "wrong type for key: byteCount"},
      {"byteCount", 5.0, "wrong type for key: byteCount"},
      {"byteCount", 9223372036854775808ull, "invalid value for key: byteCount"},
      {"baseFingerprint", false, "wrong type for key: baseFingerprint"},
      {"capturedAt", 1700000000, "wrong type for key: capturedAt"},
      {"capturedAt", "2026-11-16T20:25:15.5Z", "invalid value for key: capturedAt"},
  };
  for (const Case& c : cases) {
    Json json = sampleDraft().toJson();
    if (c.value.is_null()) {
      json.erase(c.key);
    } else {
      json[c.key] = c.value;
    }
    EXPECT_THAT([&] { DraftRecord::fromJson(json); }, ThrowsMessage<DecodeError>(StrEq(c.message)));
  }
}

TEST(IndexRecordsTest, AbsentOptionalsAreLeftOutNotNull) {
  const std::string conflict = writeJson(openConflict().toJson());
  EXPECT_EQ(conflict.find("resolvedAt"), std::string::npos);
  EXPECT_EQ(conflict.find("chosenCandidateID"), std::string::npos);
  const std::string operation = writeJson(unfinished().toJson());
  EXPECT_EQ(operation.find("finishedAt"), std::string::npos);
  EXPECT_EQ(operation.find("afterFingerprint"), std::string::npos);
}

// Roles and step states decode only from their exact names.
TEST(IndexRecordsTest, MalformedConflictsAndOperationsAreRefusedWithTheFault) {
  struct Case {
    bool conflict;  // else an operation
    std::function<void(Json&)> damage;
    const char* message;
  };
  std::vector<Case> cases;
  for (const char* role : {"Editor", "EDITOR", "theirs", ""}) {
    cases.push_back({true, [role](Json& json) { json["candidates"][1]["role"] = role; },
                     "invalid value for key: role"});
  }
  for (const char* state : {"done", "Pending", "LANDED"}) {
    cases.push_back({false, [state](Json& json) { json["steps"][0]["state"] = state; },
                     "invalid value for key: state"});
  }
  cases.push_back({true, [](Json& json) { json["candidates"] = Json::object(); },
                   "wrong type for key: candidates"});
  cases.push_back(
      {true, [](Json& json) { json["candidates"][0] = "C-base"; }, "expected an object"});
  for (const Case& c : cases) {
    Json json = c.conflict ? openConflict().toJson() : unfinished().toJson();
    c.damage(json);
    EXPECT_THAT(
        [&] {
          c.conflict ? (void)ConflictRecord::fromJson(json) : (void)OperationRecord::fromJson(json);
        },
        ThrowsMessage<DecodeError>(StrEq(c.message)))
        << json;
  }
}

}  // namespace
}  // namespace vorna::contracts
