#pragma once

#include <string>

namespace vorna::app {

// What `vorna --help` and `vorna --version` print. The man page is made from
// the program's own answers to both, so the two never say different things.
class CommandLineHelp {
 public:
  // The options, the environment variables the program reads and where its
  // files lie, laid out so that help2man turns each part into a section.
  static std::string helpText();
  // "vorna {version}", the project's version.
  static std::string versionText();
};

}  // namespace vorna::app
