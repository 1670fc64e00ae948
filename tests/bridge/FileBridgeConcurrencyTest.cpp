#include <chrono>
#include <future>
#include <latch>

#include "BridgeFixture.h"
#include "support/FaultInjectingFileSystem.h"
#include "support/TimeLimit.h"

// Which mutations run side by side and which wait, shown by where each one
// stands when another is stopped inside the file system: no test here depends
// on how long anything takes.
namespace vorna::bridge::testfixture {
namespace {

using namespace std::chrono_literals;

using FileBridgeConcurrencyTest = BridgeTest;

TEST_F(FileBridgeConcurrencyTest, SavesOfTwoPagesAreInsideTheirExchangesAtOnce) {
  tmp.write("w/a.html", "a0");
  tmp.write("w/b.html", "b0");
  testing::FaultInjectingFileSystem faulty;
  // Both saves meet inside their exchanges, within a generous limit, so a
  // serialised run fails rather than hangs.
  std::latch meeting(2);
  std::atomic<int> met{0};
  faulty.beforeCall(testing::FsCall::exchange, [&](const std::string&) {
    meeting.count_down();
    met += testing::eventually([&] { return meeting.try_wait(); }, 20s) ? 1 : 0;
  });
  fs = &faulty;
  bridge();
  // Each save waits inside its exchange for the other, so both are in their
  // settle pause together; one held lock would keep the second out until the
  // first gave up waiting.
  auto a = std::async(std::launch::async, [&] { return save(root + "/a.html", "a1", sha("a0")); });
  auto b = std::async(std::launch::async, [&] { return save(root + "/b.html", "b1", sha("b0")); });
  EXPECT_EQ(a.get().status, 200);
  EXPECT_EQ(b.get().status, 200);
  EXPECT_EQ(met, 2);
  EXPECT_EQ(tmp.read("w/a.html"), "a1");
  EXPECT_EQ(tmp.read("w/b.html"), "b1");
}

TEST_F(FileBridgeConcurrencyTest, AFolderRenameWaitsForASaveBelowItAndLaterSavesSeeTheMove) {
  tmp.makeFolder("w/d");
  tmp.write("w/d/p.html", "old");
  testing::FaultInjectingFileSystem faulty;
  std::promise<void> inside;
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  std::atomic<bool> first{true};
  faulty.beforeCall(testing::FsCall::exchange, [&](const std::string&) {
    if (first.exchange(false)) {
      inside.set_value();
      released.wait_for(20s);
    }
  });
  fs = &faulty;
  bridge();
  auto saving =
      std::async(std::launch::async, [&] { return save(root + "/d/p.html", "new", sha("old")); });
  ASSERT_EQ(inside.get_future().wait_for(20s), std::future_status::ready);
  // Reads are answered while the save holds its page.
  EXPECT_EQ(get("list", root).body, R"([{"kind":"directory","name":"d"}])");
  EXPECT_EQ(get("file", root + "/d/p.html").body, "old");
  auto renaming = std::async(std::launch::async, [&] { return rename("/d", "/e"); });
  ASSERT_TRUE(testing::eventually([&] { return bridge().waitingMutations() == 1; }));
  // A save that comes after the rename waits behind it, and a save of another
  // page outside the folder does not wait at all.
  auto late =
      std::async(std::launch::async, [&] { return save(root + "/d/p.html", "later", sha("new")); });
  ASSERT_TRUE(testing::eventually([&] { return bridge().waitingMutations() == 2; }));
  EXPECT_EQ(create(root + "/outside.html", "x").status, 200);
  EXPECT_TRUE(tmp.exists("w/d/p.html"));
  EXPECT_FALSE(tmp.exists("w/e"));

  release.set_value();
  EXPECT_EQ(saving.get().status, 200);
  EXPECT_EQ(renaming.get().status, 200);
  expectError(late.get(), 404, "not found: " + root + "/d/p.html");
  EXPECT_EQ(tmp.read("w/e/p.html"), "new");
  EXPECT_FALSE(tmp.exists("w/d"));
  EXPECT_EQ(save(root + "/e/p.html", "newer", sha("new")).status, 200);
}

}  // namespace
}  // namespace vorna::bridge::testfixture
