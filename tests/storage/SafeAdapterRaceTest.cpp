// The safe adapter against real crashes and a real rival: a child process
// saving in a loop is killed at random moments, and another writer exchanges
// its own versions with the page while the adapter saves. Afterwards every
// version the page ever held must still be somewhere on disk.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "PageFixture.h"
#include "storage/RecoveryStore.h"
#include "storage/SafeAdapter.h"
#include "support/VersionCensus.h"

namespace vorna::storage {
namespace {

using testfixture::fp;
using testing::TempDir;
using testing::VersionCensus;
using testing::versionOf;

// No test macros here: this also runs in forked children.
std::string readWhole(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void pauseMicros(long micros) {
  timespec pause{0, micros * 1000};
  ::nanosleep(&pause, nullptr);
}

// Page versions large enough that writing and reading them takes a moment.
std::string savedVersion(int64_t i) {
  return "<p>save " + std::to_string(i) + "</p>" + std::string(16 * 1024, 'x');
}

// Written by the child before each save it starts, read by the parent.
struct Progress {
  std::atomic<int64_t> started;
};

[[noreturn]] void saveForever(const testfixture::PageFixture& f, int64_t first,
                              Progress* progress) {
  RecoveryStore store(f.storeDirectory);
  SafeAdapter adapter(store, 200'000, 3, false, true);
  for (int64_t i = first;; ++i) {
    // Even saves expect what is on the page, odd ones a version long gone.
    std::optional<Fingerprint> expected =
        i % 2 == 0 ? fp(readWhole(f.page)) : fp("a base nobody has " + std::to_string(i));
    progress->started.store(i);
    adapter.save(f.page, savedVersion(i), expected);
  }
}

TEST(SafeAdapterKills, SavesKilledAtRandomMomentsLoseNoVersion) {
  constexpr int kKills = 220;
  testfixture::PageFixture f(TempDir::Backing::memory);
  f.writePage(savedVersion(0));
  VersionCensus census(f.page, f.storeDirectory);
  void* shared =
      ::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  auto* progress = new (shared) Progress{};

  std::mt19937 random(20240611);
  std::uniform_int_distribution<long> delayMicros(0, 3000);
  std::set<std::string> mustRemain{versionOf(savedVersion(0))};
  int64_t next = 1;
  for (int kill = 0; kill < kKills; ++kill) {
    progress->started.store(next - 1);
    std::fflush(nullptr);
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      saveForever(f, next, progress);
    }
    // Kill only once the child is inside its first save.
    while (progress->started.load() < next) {
      ASSERT_EQ(::waitpid(child, nullptr, WNOHANG), 0) << "the saving child died by itself";
      std::this_thread::yield();
    }
    pauseMicros(delayMicros(random));
    ASSERT_EQ(::kill(child, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "status " << status;

    // Every save before the one that was cut went through the page.
    const int64_t cut = progress->started.load();
    for (int64_t i = next; i < cut; ++i) {
      mustRemain.insert(versionOf(savedVersion(i)));
    }
    census.take();
    // The cut save may or may not have reached the page; once seen, it stays.
    if (census.whereIs(versionOf(savedVersion(cut))) != "") {
      mustRemain.insert(versionOf(savedVersion(cut)));
    }
    ASSERT_TRUE(census.page()) << "kill " << kill << ": nothing at the page";
    std::string pageVersion = versionOf(*census.page());
    ASSERT_TRUE(mustRemain.contains(pageVersion))
        << "kill " << kill << ": the page holds a mixture";
    for (const std::string& version : mustRemain) {
      ASSERT_NE(census.whereIs(version), "") << "kill " << kill << ": a version was lost";
    }
    ASSERT_EQ(census.inconsistentSidecars(), std::vector<std::string>{}) << "kill " << kill;
    next = cut + 1;
  }
  std::printf(
      "[ kills ] %d children killed during %lld saves; %zu versions kept, %zu swap files left\n",
      kKills, static_cast<long long>(next - 1), mustRemain.size(), census.swapFileCount());
  ::munmap(shared, sizeof(Progress));
}

TEST(SafeAdapterRace, ARivalWriterAndTheAdapterBothKeepEveryVersion) {
  constexpr int kSaves = 500;
  testfixture::PageFixture f(TempDir::Backing::memory);
  const std::string archive = f.dir / "archive";
  f.dir.makeFolder("archive");
  f.writePage("<p>initial</p>");

  // The rival loses nothing either: it exchanges a new file of its own with
  // the page and moves what it displaced into its archive.
  std::atomic<bool> stop{false};
  std::vector<std::string> rivalVersions;
  std::jthread rival([&] {
    for (int k = 0; !stop.load(); ++k) {
      std::string bytes = "<p>rival " + std::to_string(k) + "</p>";
      std::string own = f.folder + "/.rival-" + std::to_string(k);
      int fd = ::open(own.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
      ASSERT_GE(fd, 0);
      ASSERT_EQ(::write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
      ::close(fd);
      ASSERT_EQ(::renameat2(AT_FDCWD, own.c_str(), AT_FDCWD, f.page.c_str(), RENAME_EXCHANGE), 0);
      ASSERT_EQ(::rename(own.c_str(), (archive + "/" + std::to_string(k)).c_str()), 0);
      rivalVersions.push_back(versionOf(bytes));
      pauseMicros(300);
    }
  });

  RecoveryStore store(f.storeDirectory);
  SafeAdapter adapter(store, 100'000, 3, false, true);
  std::vector<std::string> adapterVersions;
  std::map<std::string, int> outcomes;
  for (int i = 0; i < kSaves; ++i) {
    std::string bytes = "<p>adapter " + std::to_string(i) + "</p>";
    SaveOutcome outcome = adapter.save(f.page, bytes, fp(readWhole(f.page)));
    ASSERT_FALSE(outcome.isError()) << outcome.failure().description();
    adapterVersions.push_back(versionOf(bytes));
    ++outcomes[outcome.isSaved() ? "saved"
                                 : std::string(conflictKindName(outcome.conflictInfo().kind))];
  }
  stop.store(true);
  rival.join();

  VersionCensus census(f.page, f.storeDirectory, {archive});
  census.take();
  size_t lost = 0;
  for (const auto* versions : {&adapterVersions, &rivalVersions}) {
    for (const std::string& version : *versions) {
      lost += census.whereIs(version).empty() ? 1 : 0;
    }
  }
  EXPECT_NE(census.whereIs(versionOf("<p>initial</p>")), "");
  EXPECT_EQ(lost, 0u);
  EXPECT_EQ(census.inconsistentSidecars(), std::vector<std::string>{});
  EXPECT_EQ(census.swapFileCount(), 0u);
  std::printf(
      "[ race ] %d saves (%d saved, %d external, %d overwritten) against %zu rival versions\n",
      kSaves, outcomes["saved"], outcomes["externalVersion"], outcomes["overwrittenAfterWrite"],
      rivalVersions.size());
}

}  // namespace
}  // namespace vorna::storage
