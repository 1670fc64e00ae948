#include <gtest/gtest.h>

#include "app/EditorUrl.h"
#include "app/EditorWindowController.h"
#include "app/NavigationPolicy.h"

namespace vorna::app {
namespace {

using Frame = NavigationPolicy::Frame;

TEST(EditorUrlTest, FolderAndPageArePercentEncodedWithOnlyTheListedCharactersLiteral) {
  EXPECT_EQ(editorUrl(std::nullopt, std::nullopt), "vorna://app/index.html");
  EXPECT_EQ(editorUrl(std::nullopt, std::string("a.html")), "vorna://app/index.html");
  EXPECT_EQ(editorUrl(std::string("/home/ann/My Site/é"), std::string("a&b=c.html")),
            "vorna://app/index.html?path=/home/ann/My%20Site/%C3%A9&open=a%26b%3Dc.html");
  std::string printable;
  for (char c = ' '; c <= '~'; ++c) {
    printable += c;
  }
  EXPECT_EQ(percentEncoded(printable),
            "%20%21%22%23%24%25%26%27%28%29%2A%2B%2C-./0123456789%3A%3B%3C%3D%3E%3F%40"
            "ABCDEFGHIJKLMNOPQRSTUVWXYZ%5B%5C%5D%5E_%60abcdefghijklmnopqrstuvwxyz%7B%7C%7D~");
}

struct Case {
  const char* url;
  bool link;
  Frame frame;
  NavigationDecision expected;
};

TEST(NavigationPolicyTest, KeepsTheViewOnTheEditorAndHandsWebLinksOn) {
  const NavigationDecision allow{true, false, false};
  const NavigationDecision refuse{false, false, false};
  const NavigationDecision external{false, true, false};
  const NavigationDecision launch{false, true, true};
  const Case cases[] = {
      {"vorna://app/index.html?path=/w", false, Frame::main, allow},
      {"VORNA://APP/any/path", false, Frame::sub, allow},
      {"vorna://other/index.html", false, Frame::main, refuse},
      {"https://example.org/", false, Frame::main, external},
      {"http://example.org/", true, Frame::sub, launch},
      {"HTTPS://example.org/x", true, Frame::unknown, launch},
      {"about:blank", false, Frame::main, refuse},
      {"about:blank", false, Frame::sub, allow},
      {"data:text/html,x", false, Frame::unknown, allow},
      {"blob:vorna://app/1", false, Frame::sub, allow},
      {"file:///etc/hosts", false, Frame::sub, refuse},
      {"javascript:alert(1)", true, Frame::sub, refuse},
      {"", false, Frame::sub, refuse},
      {"no scheme", false, Frame::sub, refuse},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(NavigationPolicy::decide(c.url, c.link, c.frame), c.expected) << c.url;
  }
  // New windows are never opened, and responses must be the editor's.
  EXPECT_EQ(NavigationPolicy::decideNewWindow("https://example.org/", true),
            (NavigationDecision{false, true, true}));
  EXPECT_EQ(NavigationPolicy::decideNewWindow("https://example.org/", false), NavigationDecision{});
  EXPECT_EQ(NavigationPolicy::decideNewWindow("vorna://app/x.html", true), NavigationDecision{});
  for (const char* url : {"vorna://app/index.html?path=/w", "vorna://APP/sub/page.html"}) {
    EXPECT_TRUE(NavigationPolicy::allowsResponse(url, true)) << url;
    EXPECT_TRUE(NavigationPolicy::isEditorDocument(url)) << url;
  }
  for (const char* url : {"blob:vorna://app/1", "data:text/html,x", "about:blank", "about:srcdoc",
                          "vorna://app/api/file?path=/w/a.html", "vorna://app/%61pi/list",
                          "vorna://other/index.html", ""}) {
    EXPECT_FALSE(NavigationPolicy::allowsResponse(url, true)) << url;
    EXPECT_FALSE(NavigationPolicy::isEditorDocument(url)) << url;
  }
  EXPECT_TRUE(NavigationPolicy::allowsResponse("blob:vorna://app/1", false));
}

// What a change becomes in the page: e2e outside-write-events.
TEST(ChangeScriptTest, AChangeThatCannotBeWrittenAsJsonIsNotSent) {
  contracts::WorkspaceChange change{contracts::WorkspaceChange::Kind::created, "/w/\xff.html",
                                    std::nullopt};
  EXPECT_EQ(EditorWindowController::changeScript(change), std::nullopt);
}

}  // namespace
}  // namespace vorna::app
