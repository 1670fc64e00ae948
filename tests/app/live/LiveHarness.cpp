#include "LiveHarness.h"

#include <gtest/gtest.h>
#include <webkit/webkit.h>

#include "contracts/GObjectPtr.h"
#include "contracts/GUniquePtr.h"

namespace vorna::app::testing {

namespace {

struct ScriptCall {
  bool finished = false;
  std::string result;
  std::string error;
};

}  // namespace

contracts::Json runScript(EditorWindowController& controller, const std::string& body,
                          const std::string& argument) {
  ScriptCall call;
  GVariantDict arguments;
  g_variant_dict_init(&arguments, nullptr);
  g_variant_dict_insert(&arguments, "arg", "s", argument.c_str());
  webkit_web_view_call_async_javascript_function(
      controller.webView(), body.c_str(), -1, g_variant_dict_end(&arguments), nullptr,
      "vorna-test://script", nullptr,
      [](GObject* view, GAsyncResult* result, gpointer data) {
        auto* pending = static_cast<ScriptCall*>(data);
        GError* error = nullptr;
        auto value = contracts::GObjectPtr<JSCValue>::adopt(
            webkit_web_view_call_async_javascript_function_finish(WEBKIT_WEB_VIEW(view), result,
                                                                  &error));
        contracts::GErrorPtr owned(error);
        if (owned) {
          pending->error = owned->message;
        } else if (value && jsc_value_is_string(value.get())) {
          contracts::GText text(jsc_value_to_string(value.get()));
          pending->result = text.get();
        } else {
          pending->error = "the script did not return a string";
        }
        pending->finished = true;
      },
      &call);
  if (!runUntil([&] { return call.finished; })) {
    ADD_FAILURE() << "script timed out:\n" << body;
    // The call still holds `call`; wait it out so that it never writes freed memory.
    runUntil([&] { return call.finished; }, 120s);
    return nullptr;
  }
  if (!call.error.empty()) {
    ADD_FAILURE() << "script failed: " << call.error << "\n" << body;
    return nullptr;
  }
  std::optional<contracts::Json> parsed = contracts::parseJson(call.result);
  if (!parsed) {
    ADD_FAILURE() << "script returned no JSON: " << call.result;
    return nullptr;
  }
  return *parsed;
}

void loadAndWait(EditorWindowController& controller) {
  std::optional<bool> loaded;
  controller.setDidFinishLoad([&](bool ok) { loaded = ok; });
  controller.load(std::nullopt, std::nullopt);
  ASSERT_TRUE(runUntil([&] { return loaded.has_value(); })) << "the page did not load";
  ASSERT_TRUE(*loaded) << "the page failed to load";
}

}  // namespace vorna::app::testing
