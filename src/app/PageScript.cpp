#include "app/PageScript.h"

#include <webkit/webkit.h>

#include <cstdio>
#include <exception>
#include <memory>

#include "contracts/GUniquePtr.h"

namespace vorna::app {
namespace {

using Finish = JSCValue* (*)(WebKitWebView*, GAsyncResult*, GError**);

struct PendingScript {
  ScriptDone done;
  Finish finish;
};

void finished(GObject* source, GAsyncResult* result, gpointer data) {
  std::unique_ptr<PendingScript> pending(static_cast<PendingScript*>(data));
  GError* error = nullptr;
  ScriptOutcome outcome;
  outcome.value = contracts::GObjectPtr<JSCValue>::adopt(
      pending->finish(WEBKIT_WEB_VIEW(source), result, &error));
  contracts::GErrorPtr owned(error);
  if (owned) {
    outcome.value.reset();
    outcome.error = owned->message;
  } else if (!outcome.value) {
    outcome.error = "the script gave no value";
  }
  // A completion must never let an exception reach the engine.
  try {
    pending->done(std::move(outcome));
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "Vorna: a script completion failed: %s\n", failure.what());
  } catch (...) {
    std::fprintf(stderr, "Vorna: a script completion failed\n");
  }
}

}  // namespace

std::optional<std::string> ScriptOutcome::string() const {
  if (!value || !jsc_value_is_string(value.get())) {
    return std::nullopt;
  }
  contracts::GText text(jsc_value_to_string(value.get()));
  return std::string(text ? text.get() : "");
}

std::optional<bool> ScriptOutcome::boolean() const {
  if (!value || !jsc_value_is_boolean(value.get())) {
    return std::nullopt;
  }
  return jsc_value_to_boolean(value.get()) != FALSE;
}

void evaluateScript(WebKitWebView* view, const std::string& script, const std::string& sourceUri,
                    ScriptDone done) {
  webkit_web_view_evaluate_javascript(
      view, script.c_str(), static_cast<gssize>(script.size()), nullptr, sourceUri.c_str(), nullptr,
      finished, new PendingScript{std::move(done), webkit_web_view_evaluate_javascript_finish});
}

void callAsyncScript(WebKitWebView* view, const std::string& body, GVariant* arguments,
                     const std::string& sourceUri, ScriptDone done) {
  webkit_web_view_call_async_javascript_function(
      view, body.c_str(), static_cast<gssize>(body.size()), arguments, nullptr, sourceUri.c_str(),
      nullptr, finished,
      new PendingScript{std::move(done), webkit_web_view_call_async_javascript_function_finish});
}

}  // namespace vorna::app
