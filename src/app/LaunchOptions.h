#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vorna::app {

// What the command line asks for. Fixed once scanned.
struct LaunchOptions {
  bool isSmoke = false;                        // --smoke had a value
  bool isE2E = false;                          // --e2e gave a folder and --scenario had a value
  std::optional<std::string> smokeFolder;      // standardized
  std::optional<std::string> requestedFolder;  // from --open
  std::optional<std::string> requestedPage;
  std::optional<std::string> e2eFolder;
  std::optional<std::string> e2ePage;
  std::optional<std::string> e2eScenario;
  // The arguments that are neither flags nor flag values, in order. They are
  // not opened: --open decides what is.
  std::vector<std::string> ignored;
  // --help or --version: print and end before anything else starts.
  bool showHelp = false;
  bool showVersion = false;

  // Scans left to right. Each of --smoke, --open, --e2e and --scenario takes
  // the next argument as its value whatever it looks like, and the scan goes
  // on after it; a flag as the last argument is ignored; a flag given twice
  // keeps its last value. --help and --version take no value. `arguments`
  // excludes the program's own path.
  static LaunchOptions scan(const std::vector<std::string>& arguments);

  // The one line for standard error that says which arguments were ignored;
  // nothing when none was.
  std::optional<std::string> ignoredLine() const;

  bool selfTest() const { return isSmoke || isE2E; }
};

}  // namespace vorna::app
