#include <gtest/gtest.h>

#include "contracts/WorkspaceChange.h"

namespace vorna::contracts {
namespace {

using Kind = WorkspaceChange::Kind;

TEST(WorkspaceChangeTest, JsonLeavesOutAnAbsentFingerprint) {
  WorkspaceChange change{Kind::created, "/w/a.html", std::nullopt};
  EXPECT_EQ(writeJson(change.jsonObject()),
            R"({"kind":"created","path":"\/w\/a.html","type":"changed"})");
}

TEST(WorkspaceChangeTest, JsonCarriesAPresentFingerprint) {
  WorkspaceChange change{Kind::modified, "/w/a.html", "ab12"};
  EXPECT_EQ(writeJson(change.jsonObject()),
            R"({"fingerprint":"ab12","kind":"modified","path":"\/w\/a.html","type":"changed"})");
}

TEST(WorkspaceChangeTest, KindsComeOnlyFromTheirExactNames) {
  for (Kind kind : {Kind::modified, Kind::created, Kind::removed, Kind::renamed}) {
    EXPECT_EQ(WorkspaceChange::kindFromName(WorkspaceChange::kindName(kind)), kind);
  }
  EXPECT_EQ(WorkspaceChange::kindName(Kind::renamed), "renamed");
  for (const char* name : {"Modified", "deleted", "", "created "}) {
    EXPECT_EQ(WorkspaceChange::kindFromName(name), std::nullopt) << name;
  }
}

}  // namespace
}  // namespace vorna::contracts
