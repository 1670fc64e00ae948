#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "storage/PosixFileSystem.h"
#include "support/TempDir.h"

namespace vorna::storage {
namespace {

using testing::TempDir;

TEST(PosixFileSystem, ReadlinkReturnsTargetsOfAnyLength) {
  TempDir dir;
  FileSystem& fs = FileSystem::real();
  for (size_t length : {1u, 255u, 256u, 1023u, 1024u, 4000u}) {
    std::string target(length, 'x');
    std::string link = dir / ("link" + std::to_string(length));
    ASSERT_EQ(::symlink(target.c_str(), link.c_str()), 0);
    std::string read;
    EXPECT_EQ(fs.readlink(link, read), static_cast<ssize_t>(length));
    EXPECT_EQ(read, target) << length;
  }
  std::string unchanged = "kept";
  dir.write("plain", "x");
  EXPECT_EQ(fs.readlink(dir / "plain", unchanged), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(unchanged, "kept");
}

}  // namespace
}  // namespace vorna::storage
