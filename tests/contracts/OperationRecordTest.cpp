#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "contracts/DecodeError.h"
#include "contracts/OperationRecord.h"

namespace vorna::contracts {
namespace {

using namespace std::chrono;
using State = OperationRecord::StepState;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

OperationRecord unfinished() {
  return OperationRecord{.id = "0A1B2C3D-0000-4000-8000-000000000001",
                         .label = "rename",
                         .steps = {{"/w/a.html", "aa", std::nullopt, State::landed},
                                   {"/w/b.html", std::nullopt, std::nullopt, State::pending}},
                         .startedAt = sys_days{2024y / May / 1} + 12h,
                         .finishedAt = std::nullopt};
}

TEST(OperationRecordTest, UnfinishedOperationLeavesOutAbsentFields) {
  EXPECT_EQ(writeJson(unfinished().toJson()),
            R"({"id":"0A1B2C3D-0000-4000-8000-000000000001","label":"rename",)"
            R"("startedAt":"2024-05-01T12:00:00Z","steps":[)"
            R"({"beforeFingerprint":"aa","path":"\/w\/a.html","state":"landed"},)"
            R"({"path":"\/w\/b.html","state":"pending"}]})");
}

TEST(OperationRecordTest, RoundTripsFinishedAndUnfinished) {
  OperationRecord operation = unfinished();
  EXPECT_EQ(OperationRecord::fromJson(operation.toJson()), operation);
  operation.finishedAt = operation.startedAt + 3s;
  operation.steps[1].afterFingerprint = "bb";
  operation.steps[1].state = State::failed;
  EXPECT_EQ(OperationRecord::fromJson(operation.toJson()), operation);
}

TEST(OperationRecordTest, StepStatesDecodeOnlyFromExactNames) {
  for (const char* state : {"done", "Pending", "LANDED"}) {
    Json json = unfinished().toJson();
    json["steps"][0]["state"] = state;
    EXPECT_THAT([&] { OperationRecord::fromJson(json); },
                ThrowsMessage<DecodeError>(StrEq("invalid value for key: state")))
        << state;
  }
}

}  // namespace
}  // namespace vorna::contracts
