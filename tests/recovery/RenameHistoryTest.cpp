#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "recovery/RenameHistory.h"

namespace vorna::recovery {
namespace {

using contracts::OperationRecord;
using contracts::Timestamp;
using State = OperationRecord::StepState;

const Timestamp t0 = contracts::wholeSecondsNow();

Timestamp at(int seconds) {
  return t0 + std::chrono::seconds(seconds);
}

OperationRecord rename(const std::string& from, const std::string& to, std::optional<int> finished,
                       State state = State::pending) {
  std::vector<OperationRecord::Step> steps = RenameHistory::journalSteps(from, to, "f");
  for (OperationRecord::Step& step : steps) {
    step.state = state;
  }
  return OperationRecord{.id = from,
                         .label = std::string(RenameHistory::kLabel),
                         .steps = steps,
                         .startedAt = at(finished.value_or(0)),
                         .finishedAt = finished ? std::optional(at(*finished)) : std::nullopt};
}

class RenameHistoryTest : public ::testing::Test {
 protected:
  // a.html became b.html, then docs/b.html, then the folder docs became
  // manual; an unfinished, a failed and a foreign operation count for nothing.
  RenameHistory history{std::vector<OperationRecord>{
      rename("/w/a.html", "/w/b.html", 10),
      rename("/w/x.html", "/w/y.html", std::nullopt),
      rename("/w/p.html", "/w/q.html", 12, State::failed),
      rename("/w/b.html", "/w/docs/b.html", 15),
      OperationRecord{.id = "o",
                      .label = "copy",
                      .steps = RenameHistory::journalSteps("/w/docs", "/w/z", std::nullopt),
                      .startedAt = at(16),
                      .finishedAt = at(16)},
      rename("/w/docs", "/w/manual", 20),
  }};
};

TEST_F(RenameHistoryTest, AVersionBelongsWhereLaterRenamesTookItsPageWhoseFormerPathsAreKnown) {
  struct Case {
    std::string path;
    int captured;
    std::string now;
  };
  for (const Case& c : std::vector<Case>{
           {"/w/a.html", 5, "/w/manual/b.html"},
           {"/w/a.html", 10, "/w/manual/b.html"},  // the same second counts as before
           {"/w/a.html", 11, "/w/a.html"},         // a new page under the old name
           {"/w/b.html", 12, "/w/manual/b.html"},
           {"/w/docs/i.html", 0, "/w/manual/i.html"},
           {"/w/docs/sub/i.html", 19, "/w/manual/sub/i.html"},
           {"/w/docs2/i.html", 0, "/w/docs2/i.html"},  // not under /w/docs
           {"/w/docs/i.html", 21, "/w/docs/i.html"},
           {"/w/x.html", 0, "/w/x.html"},
           {"/w/p.html", 0, "/w/p.html"},
       }) {
    EXPECT_EQ(history.currentPath(c.path, at(c.captured)), c.now) << c.path << " " << c.captured;
  }
  // Former paths hold every earlier name of a page.
  std::vector<std::string> names = history.formerPaths("/w/manual/b.html");
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"/w/a.html", "/w/b.html", "/w/docs/b.html",
                                             "/w/manual/b.html"}));
  EXPECT_EQ(history.formerPaths("/w/y.html"), std::vector<std::string>{"/w/y.html"});
  EXPECT_TRUE(history.movedAway("/w/docs/b.html"));
  EXPECT_FALSE(history.movedAway("/w/manual/b.html"));
}

}  // namespace
}  // namespace vorna::recovery
