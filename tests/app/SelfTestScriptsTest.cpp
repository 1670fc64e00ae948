#include <gtest/gtest.h>
#include <jsc/jsc.h>

#include "app/E2ERunner.h"
#include "app/SmokeRunner.h"
#include "contracts/GObjectPtr.h"
#include "contracts/GUniquePtr.h"

namespace vorna::app {
namespace {

using contracts::Json;

// The scripts the self-tests put into the page, run by JavaScriptCore alone
// against a stand-in for the page's window.
class SelfTestScriptsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    run("var window = this; var posted = [];"
        "window.webkit = { messageHandlers: { vornaE2E: { postMessage: function (m) {"
        "  posted.push(m); } } } };");
  }

  std::string run(const std::string& code) {
    auto value = contracts::GObjectPtr<JSCValue>::adopt(
        jsc_context_evaluate(context.get(), code.c_str(), static_cast<gssize>(code.size())));
    JSCException* exception = jsc_context_get_exception(context.get());
    if (exception != nullptr) {
      ADD_FAILURE() << jsc_exception_get_message(exception) << "\n" << code;
      jsc_context_clear_exception(context.get());
      return "";
    }
    contracts::GText text(jsc_value_to_json(value.get(), 0));
    return text ? text.get() : "undefined";
  }
  Json posted() { return Json::parse(run("posted")); }

  contracts::GObjectPtr<JSCContext> context =
      contracts::GObjectPtr<JSCContext>::adopt(jsc_context_new());
};

TEST_F(SelfTestScriptsTest, TheHooksPostWhatTheScenarioSays) {
  EXPECT_EQ(run(E2ERunner::hookScript()), "\"ok\"");
  run("window.__e2eSay('hello'); window.__e2eSay(42); window.__e2eDone({ b: 2, a: [1] });");
  EXPECT_EQ(posted(),
            Json::parse(R"([{"say":"hello"},{"say":"42"},{"done":"{\"b\":2,\"a\":[1]}"}])"));
}

TEST_F(SelfTestScriptsTest, AnAbsentReportIsAnEmptyObjectAndACycleTheFixedError) {
  run(E2ERunner::hookScript());
  run("window.__e2eDone(); window.__e2eDone(null);"
      "var cycle = {}; cycle.self = cycle; window.__e2eDone(cycle);");
  Json expected = Json::array(
      {Json{{"done", "{}"}}, Json{{"done", "{}"}}, Json{{"done", E2ERunner::kUnencodable}}});
  EXPECT_EQ(posted(), expected);
  EXPECT_EQ(std::string(E2ERunner::kUnencodable),
            R"({"error":"the scenario reported something that will not encode"})");
}

TEST_F(SelfTestScriptsTest, TheCommonTextComesFirstSeparatedByASemicolonLine) {
  EXPECT_EQ(E2ERunner::scenarioScript("", "go()"), "go()");
  EXPECT_EQ(E2ERunner::scenarioScript("function go() { return 1 }", "go()"),
            "function go() { return 1 }\n;\ngo()");
  // Without the separator these two texts would run as one call expression.
  run(E2ERunner::hookScript());
  EXPECT_EQ(run(E2ERunner::scenarioScript("var f = function () { return 7 }", "(f())")), "7");
}

TEST_F(SelfTestScriptsTest, TheEditorIsReadyOnlyOnceItListedItsFolder) {
  const std::string ready =
      "window.QX = { S: { dirHandle: '/w', files: [{ name: 'a.html' }] } };"
      "window.VN = {}; window.vornaHost = { emit: function () {} };"
      "window.VNHost = { state: { surveyed: 1 } };";
  run(ready);
  EXPECT_EQ(run(E2ERunner::readinessScript()), "true");

  const char* notReady[] = {
      "window.QX = undefined;",
      "window.QX.S.dirHandle = null;",
      "window.QX.S.files = [];",
      "window.VN = undefined;",
      "window.vornaHost = undefined;",
      "window.VNHost = undefined;",
      "window.VNHost.state.surveyed = 0;",
      "window.QX = { S: null };",  // reading it throws
  };
  for (const char* change : notReady) {
    run(ready);
    run(change);
    EXPECT_EQ(run(E2ERunner::readinessScript()), "false") << change;
  }
}

TEST(SmokeReportTest, ARunThatRecordedNothingReportsTheInitialValues) {
  EXPECT_EQ(SmokeRunner::reportText(SmokeRunner::initialResult()),
            R"({"bridge_path":"scheme","editor":false,"event_delivered":false,)"
            R"("external_launch_attempts":-1,"external_navigation_blocked":false,)"
            R"("link_click_frame_stayed":false,"link_click_launch_attempts":-1,"list_names":[],)"
            R"("list_status":0,"loaded":false,"origin":"","put_echo_bytes":-1,)"
            R"("smoke_bridge_confined":false})");
  Json unwritable = SmokeRunner::initialResult();
  unwritable["origin"] = "\xff";  // not UTF-8
  EXPECT_EQ(SmokeRunner::reportText(unwritable), SmokeRunner::kEncodeFailure);
}

TEST(SmokeReportTest, OnlyAStringHoldingAJsonObjectDecodes) {
  auto context = contracts::GObjectPtr<JSCContext>::adopt(jsc_context_new());
  auto outcome = [&](const char* code) {
    ScriptOutcome result;
    result.value =
        contracts::GObjectPtr<JSCValue>::adopt(jsc_context_evaluate(context.get(), code, -1));
    return SmokeRunner::decode(result);
  };
  EXPECT_EQ(outcome(R"('{"origin":"vorna://app"}')"), (Json{{"origin", "vorna://app"}}));
  EXPECT_EQ(outcome("'[1, 2]'"), std::nullopt);
  EXPECT_EQ(outcome("'not json'"), std::nullopt);
  EXPECT_EQ(outcome("({ origin: 'vorna://app' })"), std::nullopt);
  EXPECT_EQ(outcome("7"), std::nullopt);
  EXPECT_EQ(SmokeRunner::decode(ScriptOutcome{{}, "Unsupported result type"}), std::nullopt);
}

}  // namespace
}  // namespace vorna::app
