#include <glib.h>
#include <gtest/gtest.h>

#include "app/ShellMessageHandler.h"

namespace vorna::app {
namespace {

using contracts::Json;
using Request = ShellMessageHandler::Request;

void drainMainContext() {
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
}

TEST(ShellMessageHandlerTest, ClassifiesByOp) {
  using C = ShellMessageHandler::Classified;
  EXPECT_EQ(ShellMessageHandler::classify(Json{{"op", "openFolder"}}),
            (C{Request::openFolder, "openFolder"}));
  EXPECT_EQ(ShellMessageHandler::classify(Json{{"op", "reveal"}}), (C{Request::unknown, "reveal"}));
  for (const Json& ignored : {Json("openFolder"), Json{{"op", 1}}, Json::object(), Json::array()}) {
    EXPECT_EQ(ShellMessageHandler::classify(ignored), C{}) << ignored;
  }
  EXPECT_EQ(ShellMessageHandler::classify(std::nullopt), C{});
  // openFolder runs later, and only while the handler exists.
  int opened = 0;
  {
    ShellMessageHandler handler;
    handler.onOpenFolder = [&] { ++opened; };
    handler.receive(Json{{"op", "openFolder"}});
    EXPECT_EQ(opened, 0);
    drainMainContext();
    EXPECT_EQ(opened, 1);
    handler.receive(Json{{"op", "openFolder"}});
  }
  drainMainContext();
  EXPECT_EQ(opened, 1);
}

}  // namespace
}  // namespace vorna::app
