// The safe adapter against a real rival: another writer exchanges its own
// versions with the page while the adapter saves. Afterwards every version the
// page ever held must still be somewhere on disk. (Crashes and power cuts at
// every step are explored in tests/durability.)
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <map>
#include <set>
#include <thread>

#include "PageFixture.h"
#include "storage/RecoveryStore.h"
#include "storage/SafeAdapter.h"

namespace vorna::storage {
namespace {

using namespace testfixture;

std::string versionOf(const std::string& bytes) {
  return Fingerprint::ofBytes(bytes).hex;
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
      std::this_thread::sleep_for(std::chrono::microseconds(300));
    }
  });

  RecoveryStore store(f.storeDirectory);
  SafeAdapter adapter(store, 100'000, 3, false, true);
  std::vector<std::string> adapterVersions;
  std::map<std::string, int> outcomes;
  for (int i = 0; i < kSaves; ++i) {
    std::string bytes = "<p>adapter " + std::to_string(i) + "</p>";
    SaveOutcome outcome = adapter.save(f.page, bytes, fp(testing::readFile(f.page)));
    ASSERT_FALSE(outcome.isError()) << outcome.failure().description();
    adapterVersions.push_back(versionOf(bytes));
    ++outcomes[outcome.isSaved() ? "saved"
                                 : std::string(conflictKindName(outcome.conflictInfo().kind))];
  }
  stop.store(true);
  rival.join();

  // Every version is at the page, beside it, in the store or in the archive,
  // as plain calls find them.
  std::set<std::string> kept;
  size_t swapFiles = 0;
  for (const std::string& folder : {f.folder, f.storeDirectory, archive}) {
    for (const auto& item : std::filesystem::directory_iterator(folder)) {
      if (item.symlink_status().type() == std::filesystem::file_type::regular) {
        kept.insert(versionOf(testing::readFile(item.path().string())));
        swapFiles += item.path().string().contains("/.vn-swap-") ? 1 : 0;
      }
    }
  }
  size_t lost = 0;
  for (const auto* versions : {&adapterVersions, &rivalVersions}) {
    for (const std::string& version : *versions) {
      lost += kept.contains(version) ? 0 : 1;
    }
  }
  // A race in which the rival never met a save would prove nothing.
  EXPECT_GT(outcomes["externalVersion"] + outcomes["overwrittenAfterWrite"], 0)
      << "no save met a rival version";
  EXPECT_TRUE(kept.contains(versionOf("<p>initial</p>")));
  EXPECT_EQ(lost, 0u);
  // Every entry's payload is there and, where recorded, matches its fingerprint.
  for (const RecoveryEntry& entry : store.staleFingerprints()) {
    EXPECT_TRUE(!entry.fingerprint && std::filesystem::exists(entry.payloadPath)) << entry.id;
  }
  EXPECT_EQ(swapFiles, 0u);
  std::printf(
      "[ race ] %d saves (%d saved, %d external, %d overwritten) against %zu rival versions\n",
      kSaves, outcomes["saved"], outcomes["externalVersion"], outcomes["overwrittenAfterWrite"],
      rivalVersions.size());
}

}  // namespace
}  // namespace vorna::storage
