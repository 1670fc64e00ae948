#include <sys/stat.h>

#include "BridgeFixture.h"
#include "ScopedVariable.h"
#include "bridge/ExecutableRefusal.h"

namespace vorna::bridge::testfixture {
namespace {

using FileBridgeShellTest = BridgeTest;

// Reveal queues the item whether or not it exists; outside paths queue
// nothing; a refused item is refused even in a dry run.
TEST_F(FileBridgeShellTest, InsideItemsGoToTheDesktopUnlessOpenIsADryRun) {
  for (const char* op : {"reveal", "open"}) {
    expectError(call("POST", op, {{"path", tmp / "elsewhere"}}), 400,
                "path is outside the workspace");
    expectError(call("POST", op), 400, "missing path");
  }
  EXPECT_EQ(call("POST", "reveal", {{"path", root + "/a.html"}}).body, R"({"ok":true})");
  EXPECT_EQ(call("POST", "reveal", {{"path", root}}).body, R"({"ok":true})");
  tmp.write("w/a.html", "<p>a</p>");
  tmp.write("w/run.sh", "#!/bin/sh\necho hi\n", 0755);
  const std::string path = root + "/a.html";
  {
    ScopedVariable dry("VORNA_DRY_OPEN", "1");
    EXPECT_EQ(call("POST", "open", {{"path", path}}).body, R"({"dryRun":true,"ok":true})");
    expectError(call("POST", "open", {{"path", root + "/run.sh"}}), 400,
                "refusing to open application/x-executable: run.sh");
  }
  for (const char* value : {"true", "0", static_cast<const char*>(nullptr)}) {
    ScopedVariable notDry("VORNA_DRY_OPEN", value);
    EXPECT_EQ(call("POST", "open", {{"path", path}}).body, R"({"ok":true})");
  }
  EXPECT_EQ(desktop->lines(),
            (std::vector<std::string>{"reveal " + path, "reveal " + root, "open " + path,
                                      "open " + path, "open " + path}));
}

// Programs, scripts, launchers and bundles are refused; content, folders and
// plain files may be opened.
TEST(ExecutableRefusalTest, RefusesWhatWouldRunAndNothingElse) {
  testing::TempDir tmp;
  const std::string elf = testing::readFile("/bin/true");
  const std::string refused = "refusing to open application/x-executable: ";
  const std::string executableBit = "refusing to open a file with an executable bit: ";
  struct Case {
    std::string name;
    std::string bytes;
    unsigned mode;
    std::optional<std::string> refusal;
  };
  const Case cases[] = {
      {"tool", elf, 0755, refused + "tool"},
      {"tool-without-x", elf, 0644, refused + "tool-without-x"},
      {"run.sh", "echo hi\n", 0644, refused + "run.sh"},
      {"script", "#!/bin/sh\necho hi\n", 0644, refused + "script"},
      {"a.py", "print(1)\n", 0644, refused + "a.py"},
      {"a.pl", "print 1;\n", 0644, refused + "a.pl"},
      {"x.desktop", "[Desktop Entry]\nExec=rm -rf ~\n", 0644,
       "refusing to open application/x-desktop: x.desktop"},
      {"x.exe", "MZ\x90", 0644, "refusing to open application/x-ms-dos-executable: x.exe"},
      {"x.jar", std::string("PK\x03\x04", 4), 0644,
       "refusing to open application/x-java-archive: x.jar"},
      {"data.bin", std::string("\x01\x02\x00\xff", 4), 0700, executableBit + "data.bin"},
      {"empty", "", 0100, executableBit + "empty"},
      {"notes.txt", "hello\n", 0755, std::nullopt},
      {"page.html", "<p>x</p>", 0755, std::nullopt},
      {"config.json", "{\"a\":1}", 0755, std::nullopt},
      {"logo.svg", "<svg/>", 0755, std::nullopt},
      {"plain.bin", std::string("\x01\x02\x00\xff", 4), 0600, std::nullopt},
      {"report.pdf", "%PDF-1.4", 0755, std::nullopt},
      {"notes.md", "# x", 0700, std::nullopt},
  };
  for (const Case& c : cases) {
    tmp.write(c.name, c.bytes, c.mode);
    EXPECT_EQ(executableRefusal(tmp / c.name), c.refusal) << c.name;
  }
  tmp.makeFolder("x.app");
  EXPECT_EQ(executableRefusal(tmp / "x.app"), "refusing to open a bundle: x.app");
  tmp.makeFolder("img");
  EXPECT_EQ(executableRefusal(tmp / "img"), std::nullopt);
  EXPECT_EQ(executableRefusal(tmp / "gone.txt"), std::nullopt);
}

}  // namespace
}  // namespace vorna::bridge::testfixture
