#pragma once

#include <functional>
#include <optional>
#include <string>

#include "contracts/GObjectPtr.h"

typedef struct _GVariant GVariant;
typedef struct _JSCValue JSCValue;
typedef struct _WebKitWebView WebKitWebView;

namespace vorna::app {

// What one script run in the editor page gave back.
struct ScriptOutcome {
  contracts::GObjectPtr<JSCValue> value;  // null when the script failed
  std::string error;                      // the engine's message when it failed

  bool failed() const { return !value; }
  // The value when it is a string, or a boolean; nothing otherwise.
  std::optional<std::string> string() const;
  std::optional<bool> boolean() const;
};

using ScriptDone = std::function<void(ScriptOutcome)>;

// Evaluates `script` in the page's own world. `done` runs once, on the main
// thread, from the loop (never before this returns); a script whose last
// value is a promise fails with the engine's "unsupported result" error
// instead of being awaited. `sourceUri` prefixes the engine's error messages.
// Main thread.
void evaluateScript(WebKitWebView* view, const std::string& script, const std::string& sourceUri,
                    ScriptDone done);

// Runs `body` as the body of an async function in the page's own world, each
// entry of `arguments` (a floating or owned a{sv} variant, or null) becoming
// a local variable of that name, and awaits its result. `done` as above.
void callAsyncScript(WebKitWebView* view, const std::string& body, GVariant* arguments,
                     const std::string& sourceUri, ScriptDone done);

}  // namespace vorna::app
