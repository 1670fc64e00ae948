#include <gtest/gtest.h>
#include <jsc/jsc.h>

#include "app/JscJson.h"
#include "contracts/GObjectPtr.h"

namespace vorna::app {
namespace {

using contracts::Json;

// JavaScriptCore runs without a display or a web view.
class PageScriptsTest : public ::testing::Test {
 protected:
  JSCValue* evaluate(const char* code) {
    values.push_back(
        contracts::GObjectPtr<JSCValue>::adopt(jsc_context_evaluate(context.get(), code, -1)));
    return values.back().get();
  }
  contracts::GObjectPtr<JSCContext> context =
      contracts::GObjectPtr<JSCContext>::adopt(jsc_context_new());
  std::vector<contracts::GObjectPtr<JSCValue>> values;
};

TEST_F(PageScriptsTest, MessagesBecomeJsonAsJsonStringifyWouldWriteThem) {
  JSCValue* message = evaluate(
      "({ method: 'PUT', n: 42, f: 1.5, big: 2 ** 60, b: true, nul: null, und: undefined,"
      "   fn: function () {}, arr: [1, 'two', undefined], obj: { k: 'v', deep: { x: [] } },"
      "   bytes: new Uint8Array([1, 2]) })");
  std::optional<Json> json = jsonFromJsc(message);
  ASSERT_TRUE(json);
  EXPECT_EQ(*json, (Json{{"method", "PUT"},
                         {"n", 42},
                         {"f", 1.5},
                         {"big", 1152921504606846976.0},
                         {"b", true},
                         {"nul", nullptr},
                         {"arr", {1, "two", nullptr}},
                         {"obj", {{"k", "v"}, {"deep", {{"x", Json::array()}}}}},
                         {"bytes", {{"0", 1}, {"1", 2}}}}));
  EXPECT_EQ(jsonFromJsc(evaluate("'plain'")), Json("plain"));
  EXPECT_EQ(jsonFromJsc(evaluate("undefined")), std::nullopt);
  // A cycle ends in nulls instead of running for ever.
  std::optional<Json> cycle = jsonFromJsc(evaluate("var o = { name: 'loop' }; o.self = o; o"));
  ASSERT_TRUE(cycle);
  int depth = 0;
  const Json* at = &*cycle;
  while (at->is_object()) {
    EXPECT_EQ((*at)["name"], "loop");
    at = &(*at)["self"];
    ++depth;
  }
  EXPECT_TRUE(at->is_null());
  EXPECT_EQ(depth, 64);
}

}  // namespace
}  // namespace vorna::app
