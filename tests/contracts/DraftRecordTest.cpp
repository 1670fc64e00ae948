#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "contracts/DecodeError.h"
#include "contracts/DraftRecord.h"

namespace vorna::contracts {
namespace {

using namespace std::chrono;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

DraftRecord sampleDraft() {
  return DraftRecord{.id = "D1",
                     .pagePath = "/w/a.html",
                     .baseFingerprint = std::nullopt,
                     .fingerprint = "ab",
                     .byteCount = 5,
                     .capturedAt = sys_days{2026y / November / 16} + 20h + 25min + 15s};
}

TEST(DraftRecordTest, AbsentBaseFingerprintIsLeftOutNotNull) {
  EXPECT_EQ(writeJson(sampleDraft().toJson()),
            R"({"byteCount":5,"capturedAt":"2026-11-16T20:25:15Z","fingerprint":"ab",)"
            R"("id":"D1","pagePath":"\/w\/a.html"})");
}

TEST(DraftRecordTest, RoundTripsWithAndWithoutBaseFingerprint) {
  DraftRecord draft = sampleDraft();
  EXPECT_EQ(DraftRecord::fromJson(draft.toJson()), draft);
  draft.baseFingerprint = "cd";
  EXPECT_EQ(draft.toJson().at("baseFingerprint"), "cd");
  EXPECT_EQ(DraftRecord::fromJson(draft.toJson()), draft);
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
      {"capturedAt", "2026-11-16T20:25:15+01:00", "invalid value for key: capturedAt"},
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

}  // namespace
}  // namespace vorna::contracts
