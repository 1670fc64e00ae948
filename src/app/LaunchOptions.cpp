#include "app/LaunchOptions.h"

#include <algorithm>

#include "app/PageTarget.h"
#include "recovery/PathForms.h"

namespace vorna::app {

LaunchOptions LaunchOptions::scan(const std::vector<std::string>& arguments) {
  std::optional<std::string> smoke;
  std::optional<std::string> open;
  std::optional<std::string> e2e;
  std::optional<std::string> scenario;
  LaunchOptions options;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (argument == "--help" || argument == "--version") {
      (argument == "--help" ? options.showHelp : options.showVersion) = true;
      continue;
    }
    std::optional<std::string>* slot = argument == "--smoke"      ? &smoke
                                       : argument == "--open"     ? &open
                                       : argument == "--e2e"      ? &e2e
                                       : argument == "--scenario" ? &scenario
                                                                  : nullptr;
    if (slot == nullptr) {
      options.ignored.push_back(argument);
      continue;
    }
    if (i + 1 < arguments.size()) {
      *slot = arguments[++i];
    }
  }
  if (smoke) {
    options.smokeFolder = recovery::standardisedPath(*smoke);
    options.isSmoke = true;
  }
  if (open) {
    PageTarget requested = target(*open);
    options.requestedFolder = requested.folder;
    options.requestedPage = requested.page;
  }
  if (e2e) {
    PageTarget requested = target(*e2e);
    options.e2eFolder = requested.folder;
    options.e2ePage = requested.page;
  }
  options.e2eScenario = scenario;
  options.isE2E = options.e2eFolder.has_value() && scenario.has_value();
  return options;
}

std::optional<std::string> LaunchOptions::ignoredLine() const {
  if (ignored.empty()) {
    return std::nullopt;
  }
  std::string line = "Vorna: ignoring";
  for (std::string argument : ignored) {
    // Kept to one line whatever the arguments hold.
    std::replace_if(
        argument.begin(), argument.end(), [](char c) { return c >= 0 && c < ' '; }, '?');
    line += " \"" + argument + "\"";
  }
  return line + " (not an option; open a folder or page with --open PATH)\n";
}

}  // namespace vorna::app
