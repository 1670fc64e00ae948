#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "../../bridge/MainContext.h"
#include "app/EditorWindowController.h"
#include "contracts/Json.h"

namespace vorna::app::testing {

using namespace std::chrono_literals;

using vorna::testing::runUntil;

// Runs an async function body in the page's world (it may await) and returns
// what it returns, which must be a JSON text; the test fails on a script error
// or time-out. `argument` is handed to the body as the string `arg`.
contracts::Json runScript(EditorWindowController& controller, const std::string& body,
                          const std::string& argument = "");

void loadAndWait(EditorWindowController& controller);

}  // namespace vorna::app::testing
