#include <gtest/gtest.h>

#include "ServiceFixture.h"

namespace vorna::recovery {
namespace {

using namespace testfixture;
using contracts::OperationRecord;
using State = contracts::OperationRecord::StepState;

class JournalTest : public testfixture::ServiceTest {
 protected:
  static OperationRecord::Step step(const std::string& path) {
    return OperationRecord::Step{.path = path,
                                 .beforeFingerprint = "b",
                                 .afterFingerprint = std::nullopt,
                                 .state = State::pending};
  }
};

// Operations begun in one second keep their order.
TEST_F(JournalTest, StepsAreUpdatedFinishedOperationsStayAndUnknownOnesAreNotFound) {
  now += std::chrono::seconds(10);
  OperationRecord later = service().beginOperation("later", {});
  now -= std::chrono::seconds(10);
  OperationRecord rename = service().beginOperation("rename", {step("/a"), step("/b")});
  OperationRecord trash = service().beginOperation("trash", {step("/c")});
  OperationRecord second = service().beginOperation("second", {});
  service().updateStep(rename.id, 1, State::landed);
  service().updateStep(rename.id, 0, State::failed);
  service().finishOperation(trash.id);

  rename.steps[0].state = State::failed;
  rename.steps[1].state = State::landed;
  EXPECT_EQ(open()->unfinishedOperations(), (std::vector<OperationRecord>{rename, second, later}));
  std::string journal = readFileOrEmpty(indexFile("operations.journal"));
  EXPECT_NE(journal.find("\"finishedAt\":\"" + contracts::formatIsoDate(now) + "\",\"id\":\"" +
                         trash.id + "\""),
            std::string::npos);
  // A finished operation's steps can still be reported.
  EXPECT_NO_THROW(service().updateStep(trash.id, 0, State::failed));

  OperationRecord empty = service().beginOperation("empty", {});
  OperationRecord one = service().beginOperation("one", {step("/a")});

  EXPECT_EQ(recoveryErrorOf([&] { service().updateStep(empty.id, 0, State::landed); }),
            "not found: step 0 of operation " + empty.id);
  EXPECT_EQ(recoveryErrorOf([&] { service().updateStep(one.id, -1, State::landed); }),
            "not found: step -1 of operation " + one.id);
  EXPECT_EQ(recoveryErrorOf([&] { service().updateStep(one.id, 1, State::landed); }),
            "not found: step 1 of operation " + one.id);
  EXPECT_EQ(recoveryErrorOf([&] { service().updateStep("X", 0, State::landed); }),
            "not found: operation X");
  EXPECT_EQ(recoveryErrorOf([&] { service().finishOperation("X"); }), "not found: operation X");
}

}  // namespace
}  // namespace vorna::recovery
