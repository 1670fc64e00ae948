#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "contracts/ConflictRecord.h"
#include "contracts/DecodeError.h"

namespace vorna::contracts {
namespace {

using namespace std::chrono;
using Role = CandidateRecord::Role;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

const Timestamp kOpened = sys_days{2024y / May / 1} + 12h;

ConflictRecord openConflict() {
  return ConflictRecord{.id = "6F9619FF-8B86-D011-B42D-00C04FC964FF",
                        .pagePath = "/w/a.html",
                        .candidates = {{"C-base", Role::base, "aa", 1, kOpened},
                                       {"C-editor", Role::editor, "bb", 2, kOpened + 1s},
                                       {"C-disk", Role::disk, "cc", 3, kOpened + 2s}},
                        .openedAt = kOpened,
                        .resolvedAt = std::nullopt,
                        .chosenCandidateID = std::nullopt};
}

TEST(ConflictRecordTest, OpenConflictLeavesOutResolution) {
  Json json = openConflict().toJson();
  EXPECT_FALSE(json.contains("resolvedAt"));
  EXPECT_FALSE(json.contains("chosenCandidateID"));
  EXPECT_EQ(writeJson(json["candidates"][1]),
            R"({"byteCount":2,"capturedAt":"2024-05-01T12:00:01Z","fingerprint":"bb",)"
            R"("id":"C-editor","role":"editor"})");
  EXPECT_EQ(ConflictRecord::fromJson(json), openConflict());
}

TEST(ConflictRecordTest, ResolvedConflictRoundTripsInCandidateOrder) {
  ConflictRecord conflict = openConflict();
  conflict.resolvedAt = kOpened + 1h;
  conflict.chosenCandidateID = "C-disk";
  Json json = conflict.toJson();
  EXPECT_EQ(json["resolvedAt"], "2024-05-01T13:00:00Z");
  EXPECT_EQ(json["chosenCandidateID"], "C-disk");
  EXPECT_EQ(ConflictRecord::fromJson(json), conflict);
}

TEST(ConflictRecordTest, RolesDecodeOnlyFromExactNames) {
  for (const char* role : {"Editor", "EDITOR", "theirs", ""}) {
    Json json = openConflict().toJson();
    json["candidates"][1]["role"] = role;
    EXPECT_THAT([&] { ConflictRecord::fromJson(json); },
                ThrowsMessage<DecodeError>(StrEq("invalid value for key: role")))
        << role;
  }
}

TEST(ConflictRecordTest, CandidatesMustBeAnArrayOfCandidates) {
  Json notArray = openConflict().toJson();
  notArray["candidates"] = Json::object();
  EXPECT_THAT([&] { ConflictRecord::fromJson(notArray); },
              ThrowsMessage<DecodeError>(StrEq("wrong type for key: candidates")));
  Json badElement = openConflict().toJson();
  badElement["candidates"][0] = "C-base";
  EXPECT_THAT([&] { ConflictRecord::fromJson(badElement); },
              ThrowsMessage<DecodeError>(StrEq("expected an object")));
}

}  // namespace
}  // namespace vorna::contracts
