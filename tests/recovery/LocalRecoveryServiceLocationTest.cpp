#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <regex>

#include "ServiceFixture.h"
#include "recovery/StoreLocation.h"
#include "storage/ForwardingFileSystem.h"

namespace vorna::recovery {
namespace {

using namespace testfixture;

// Location tests keep workspace, store and data folder on one real disk, so
// that "the same volume" means what it says.
class LocationTest : public testfixture::ServiceTest {
 protected:
  LocationTest() : ServiceTest(testing::TempDir::Backing::disk) {}
};

// Reports every path under `prefix` as lying on another device.
class OtherVolumeFileSystem final : public storage::ForwardingFileSystem {
 public:
  explicit OtherVolumeFileSystem(std::string prefix)
      : ForwardingFileSystem(storage::FileSystem::real()), prefix_(std::move(prefix)) {}
  int stat(const std::string& path, struct stat* out) override {
    int result = ForwardingFileSystem::stat(path, out);
    if (result == 0 && path.starts_with(prefix_)) {
      out->st_dev += 1000;
    }
    return result;
  }

 private:
  std::string prefix_;
};

TEST_F(LocationTest, TheSameFolderKeepsItsStoreAndIdentityAndAnotherGetsAFreshOne) {
  auto first = open();
  std::string identity = readFileOrEmpty(first->storeDirectory() + "/identity.json");
  now += hours(5);
  auto second = open();

  EXPECT_TRUE(std::regex_match(first->workspaceID(), std::regex("[0-9a-f]{32}")));
  EXPECT_EQ(second->workspaceID(), first->workspaceID());
  EXPECT_EQ(first->storeDirectory(), storeRoot + "/" + first->workspaceID());
  EXPECT_EQ(first->retentionStore().directory(), first->storeDirectory() + "/retained");
  EXPECT_EQ(identity, "{\"createdAt\":\"" + contracts::formatIsoDate(now - hours(5)) +
                          "\",\"workspaceID\":\"" + first->workspaceID() +
                          "\",\"workspacePath\":\"" + escaped(workspace) + "\"}");
  EXPECT_EQ(readFileOrEmpty(first->storeDirectory() + "/identity.json"), identity);

  // Reached through links and dots, it is the same folder.
  dir.symlink(workspace, "link");
  LocalRecoveryService viaLink(dir / "link/./../site/", storeRoot, 20, 86400, fs, environment());
  EXPECT_EQ(viaLink.workspaceRoot(), workspace);
  EXPECT_EQ(viaLink.workspaceID(), first->workspaceID());

  // Made anew or moved, it is another folder with a fresh store.
  ASSERT_EQ(::rename(workspace.c_str(), (dir / "moved").c_str()), 0);
  dir.makeFolder("site");  // while the old one exists, so not on its inode
  EXPECT_NE(open()->workspaceID(), first->workspaceID());
  EXPECT_NE(
      LocalRecoveryService(dir / "moved", storeRoot, 20, 86400, fs, environment()).workspaceID(),
      first->workspaceID());
  EXPECT_EQ(namesIn(storeRoot).size(), 3u);
}

TEST_F(LocationTest, AnUnreadableOrForeignIdentityIsReportedAndLeftUntouched) {
  std::string identityPath = open()->storeDirectory() + "/identity.json";
  struct Case {
    std::string content;
    std::string why;
  };
  const Case cases[] = {
      {"", "not valid JSON"},
      {"{\"createdAt\":\"2026-01-02T03:04:05Z\",\"worksp", "not valid JSON"},
      {"[]", "expected an object"},
      {"{\"createdAt\":\"2026-01-02T03:04:05Z\",\"workspaceID\":\"x\",\"workspacePath\":7}",
       "wrong type for key: workspacePath"},
      {"{\"createdAt\":\"2026-01-02T03:04:05.5Z\",\"workspaceID\":\"x\",\"workspacePath\":\"/a\"}",
       "invalid value for key: createdAt"},
  };
  for (const Case& c : cases) {
    writeRaw(identityPath, c.content);
    EXPECT_EQ(recoveryErrorOf([&] { open(); }),
              "recovery store unavailable: recovery index identity.json is unreadable and was "
              "left untouched: " +
                  c.why)
        << c.content;
    EXPECT_EQ(readFileOrEmpty(identityPath), c.content);
  }

  // One recorded for another path is refused; another identifier is not.
  const std::string storeDirectory = identityPath.substr(0, identityPath.rfind('/'));
  writeRaw(identityPath,
           "{\"createdAt\":\"2026-01-02T03:04:05Z\",\"workspaceID\":\"other\","
           "\"workspacePath\":\"" +
               workspace + "\"}");
  EXPECT_NO_THROW(open());
  std::string foreign =
      "{\"createdAt\":\"2026-01-02T03:04:05Z\",\"workspaceID\":\"x\","
      "\"workspacePath\":\"/elsewhere/site\"}";
  writeRaw(identityPath, foreign);
  EXPECT_EQ(recoveryErrorOf([&] { open(); }), "workspace identity mismatch: recovery at " +
                                                  storeDirectory +
                                                  " belongs to /elsewhere/site, not " + workspace);
  EXPECT_EQ(readFileOrEmpty(identityPath), foreign);
}

TEST_F(LocationTest, AStoreInsideTheWorkspaceIsRefused) {
  dir.makeFolder("site/sub");
  dir.symlink(workspace + "/sub", "into-site");
  dir.makeFolder("site-store");
  const std::string id = open()->workspaceID();
  // The store's folder where the root leads, or nothing when it is allowed.
  const std::pair<std::string, std::string> cases[] = {
      {workspace + "/.rec", workspace + "/.rec/" + id},
      {workspace, workspace + "/" + id},
      {dir / "into-site", workspace + "/sub/" + id},  // a link counts where it leads
      {dir.path(), ""},                               // the workspace's parent
      {dir / "site-store", ""},                       // shares the prefix, not the folder
  };
  for (const auto& [root, inside] : cases) {
    std::string message;
    try {
      LocalRecoveryService service(workspace, root, 20, 86400, fs, environment());
    } catch (const RecoveryError& error) {
      message = error.description();
    }
    EXPECT_EQ(message, inside.empty() ? ""
                                      : "recovery store unavailable: recovery store would "
                                        "live inside the workspace: " +
                                            inside)
        << root;
  }
  EXPECT_FALSE(exists(workspace + "/.rec"));
}

TEST_F(LocationTest, AStoreRootOrRetainedFolderThatIsAFileOrNoWritableFallbackIsReported) {
  writeRaw(dir / "plain", "x");
  std::string id = open()->workspaceID();
  EXPECT_EQ(recoveryErrorOf([&] {
              LocalRecoveryService(workspace, dir / "plain", 20, 86400, fs, environment());
            }),
            "recovery store unavailable: cannot create " + dir / "plain/" + id +
                ": mkdir failed on " + dir / "plain" + ": File exists (17)");

  std::string other = dir / "other";
  dir.makeFolder("other/" + id);
  writeRaw(other + "/" + id + "/retained", "x");
  EXPECT_EQ(recoveryErrorOf(
                [&] { LocalRecoveryService(workspace, other, 20, 86400, fs, environment()); }),
            "recovery store unavailable: cannot open retention store: mkdir failed on " + other +
                "/" + id + "/retained: File exists (17)");

  writeRaw(dir / "mountinfo", "90 22 0:50 / " + dir.path() + " rw - tmpfs tmpfs rw\n");
  RecoveryEnvironment environment = this->environment();
  environment.mountTable = dir / "mountinfo";
  environment.userDataDirectory = [] { return std::optional<std::string>(); };
  fs.failWhere(FsCall::mkdir, ".VornaRecovery", EACCES);

  EXPECT_EQ(recoveryErrorOf(
                [&] { LocalRecoveryService(workspace, std::nullopt, 20, 86400, fs, environment); }),
            "recovery store unavailable: no writable recovery location for " + workspace +
                ": mkdir failed on " + dir.path() + "/.VornaRecovery: Permission denied (13)");
}

TEST_F(LocationTest, WithoutAStoreRootTheDataFolderServesUnlessOnAnotherVolume) {
  LocalRecoveryService sameVolume(workspace, std::nullopt, 20, 86400, fs, environment());
  EXPECT_EQ(sameVolume.storeDirectory(), dir / "data/Vorna/Recovery/" + sameVolume.workspaceID());

  dir.makeFolder("vol/site");
  std::string table = dir / "mountinfo";
  writeRaw(table,
           "22 1 254:0 / / rw,relatime shared:1 - ext4 /dev/vda rw\n"
           "90 22 0:50 / " +
               dir.path() +
               "/vol rw shared:9 - tmpfs tmpfs rw\n"
               "91 22 0:51 / " +
               dir.path() + "/vo rw shared:9 - tmpfs tmpfs rw\n");
  OtherVolumeFileSystem otherVolume(dir / "data");
  RecoveryEnvironment environment = this->environment();
  environment.mountTable = table;

  LocalRecoveryService service(dir / "vol/site", std::nullopt, 20, 86400, otherVolume, environment);

  std::string shared = dir / "vol/.VornaRecovery";
  EXPECT_EQ(service.storeDirectory(),
            shared + "/" + std::to_string(::getuid()) + "/" + service.workspaceID());
  struct stat st {};
  ASSERT_EQ(::stat(shared.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 01777u);

  environment.userDataDirectory = [] { return std::optional<std::string>(); };
  LocalRecoveryService noDataFolder(dir / "vol/site", std::nullopt, 20, 86400, fs, environment);
  EXPECT_EQ(noDataFolder.storeDirectory(), service.storeDirectory());
}

TEST(VolumeRootTest, TheLongestMountPointHoldingThePathWins) {
  testing::TempDir dir;
  std::string table = dir / "mountinfo";
  testfixture::writeRaw(table,
                        "22 1 254:0 / / rw - ext4 /dev/vda rw\n"
                        "30 22 0:40 / /media/usb\\040stick rw - vfat /dev/sdb1 rw\n"
                        "31 22 0:41 / /media/usb rw - vfat /dev/sdc1 rw\n"
                        "garbage\n");
  auto& fs = storage::FileSystem::real();

  EXPECT_EQ(volumeRoot("/media/usb stick/site", table, fs), "/media/usb stick");
  EXPECT_EQ(volumeRoot("/media/usb/site", table, fs), "/media/usb");
  EXPECT_EQ(volumeRoot("/media/usbx", table, fs), "/");
  // Without a table the walk stops where the device changes.
  struct stat shm {};
  if (::stat("/dev/shm", &shm) == 0) {
    testing::TempDir memory(testing::TempDir::Backing::memory);
    if (memory.path().starts_with("/dev/shm/")) {
      EXPECT_EQ(volumeRoot(memory.path(), dir / "no-table", fs), "/dev/shm");
    }
  }
}

}  // namespace
}  // namespace vorna::recovery
