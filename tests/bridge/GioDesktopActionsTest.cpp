#include <gio/gio.h>
#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "MainContext.h"
#include "bridge/GioDesktopActions.h"
#include "support/TempDir.h"

namespace vorna::bridge {
namespace {

constexpr const char* kInterfaceXml =
    R"(<node><interface name="org.freedesktop.FileManager1"><method name="ShowItems">)"
    R"(<arg type="as" direction="in"/><arg type="s" direction="in"/></method></interface></node>)";

// Stands in for the desktop's file manager: owns its name on the bus and
// records each ShowItems call. Calls arrive through the default main context.
class FakeFileManager {
 public:
  explicit FakeFileManager(const std::string& address) {
    GError* error = nullptr;
    connection_ = g_dbus_connection_new_for_address_sync(
        address.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &error);
    EXPECT_NE(connection_, nullptr) << (error ? error->message : "");
    g_clear_error(&error);
    node_ = g_dbus_node_info_new_for_xml(kInterfaceXml, nullptr);
    static const GDBusInterfaceVTable vtable{&FakeFileManager::onCall, nullptr, nullptr, {}};
    registration_ =
        g_dbus_connection_register_object(connection_, "/org/freedesktop/FileManager1",
                                          node_->interfaces[0], &vtable, this, nullptr, nullptr);
    GVariant* reply = g_dbus_connection_call_sync(
        connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "RequestName", g_variant_new("(su)", "org.freedesktop.FileManager1", 4u),
        G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
    EXPECT_NE(reply, nullptr);
    g_clear_pointer(&reply, g_variant_unref);
  }
  ~FakeFileManager() {
    g_dbus_connection_unregister_object(connection_, registration_);
    // Replies still queued must reach the caller, or it would see the call fail.
    g_dbus_connection_flush_sync(connection_, nullptr, nullptr);
    g_dbus_connection_close_sync(connection_, nullptr, nullptr);
    g_object_unref(connection_);
    g_dbus_node_info_unref(node_);
  }

  std::vector<std::vector<std::string>> calls;  // the URIs, then the startup id

 private:
  static void onCall(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                     const gchar* method, GVariant* parameters, GDBusMethodInvocation* invocation,
                     gpointer self) {
    EXPECT_STREQ(method, "ShowItems");
    const gchar** uris = nullptr;
    const gchar* startup = nullptr;
    g_variant_get(parameters, "(^a&s&s)", &uris, &startup);
    std::vector<std::string> call;
    for (const gchar** uri = uris; uri != nullptr && *uri != nullptr; ++uri) {
      call.emplace_back(*uri);
    }
    call.emplace_back(startup);
    g_free(uris);
    static_cast<FakeFileManager*>(self)->calls.push_back(std::move(call));
    g_dbus_method_invocation_return_value(invocation, nullptr);
  }

  GDBusConnection* connection_ = nullptr;
  GDBusNodeInfo* node_ = nullptr;
  guint registration_ = 0;
};

class GioDesktopActionsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    gchar* daemon = g_find_program_in_path("dbus-daemon");
    if (daemon == nullptr) {
      GTEST_SKIP() << "dbus-daemon is not installed";
    }
    g_free(daemon);
    bus_ = g_test_dbus_new(G_TEST_DBUS_NONE);
    g_test_dbus_up(bus_);
    address = g_test_dbus_get_bus_address(bus_);
  }
  void TearDown() override {
    // Dispatch whatever is ready now, so that little is left for later tests;
    // anything later still only reaches this test's shared record.
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
    if (bus_ != nullptr) {
      g_test_dbus_down(bus_);
      g_object_unref(bus_);
    }
  }

  // What the actions of one test did. Shared with their callbacks, which may
  // run after the test if a reply comes late.
  struct Record {
    std::vector<std::string> launched;
    std::vector<std::string> lines;
  };

  GioDesktopActions actions(std::string busAddress) {
    return GioDesktopActions(
        std::move(busAddress),
        [record = record_](const std::string& uri) { record->launched.push_back(uri); },
        [record = record_](std::string_view line) { record->lines.emplace_back(line); });
  }

  testing::TempDir tmp;
  std::string address;
  std::shared_ptr<Record> record_ = std::make_shared<Record>();
  std::vector<std::string>& launched = record_->launched;
  std::vector<std::string>& lines = record_->lines;

 private:
  GTestDBus* bus_ = nullptr;
};

TEST_F(GioDesktopActionsTest, RevealAsksTheFileManagerToShowTheItem) {
  FakeFileManager fileManager(address);
  actions(address).reveal(tmp / "site/a b.html");
  // Nothing happens until the main context runs: the call was only posted.
  EXPECT_TRUE(fileManager.calls.empty());
  ASSERT_TRUE(testing::runUntil([&] { return !fileManager.calls.empty(); }));
  EXPECT_EQ(
      fileManager.calls,
      (std::vector<std::vector<std::string>>{{"file://" + tmp.path() + "/site/a%20b.html", ""}}));
  EXPECT_TRUE(launched.empty());
  // Open hands the file URI to the launcher, on the main context too.
  actions(address).open(tmp / "doc.pdf");
  EXPECT_TRUE(launched.empty());
  ASSERT_TRUE(testing::runUntil([&] { return !launched.empty(); }));
  EXPECT_EQ(launched, (std::vector<std::string>{"file://" + tmp.path() + "/doc.pdf"}));
  // Names that are not UTF-8 are escaped byte for byte.
  EXPECT_EQ(GioDesktopActions::fileUri("/w/bad\xff name.html"), "file:///w/bad%FF%20name.html");
}

TEST_F(GioDesktopActionsTest, WithoutAFileManagerOrABusTheFolderIsOpenedInstead) {
  actions(address).reveal(tmp / "site/a.html");
  ASSERT_TRUE(testing::runUntil([&] { return !launched.empty(); }));
  EXPECT_EQ(launched, (std::vector<std::string>{"file://" + tmp.path() + "/site"}));
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(lines[0].starts_with("Vorna bridge: no file manager showed file://")) << lines[0];
  actions("unix:path=" + tmp / "no-bus").reveal(tmp / "a.html");
  ASSERT_TRUE(testing::runUntil([&] { return launched.size() == 2; }));
  EXPECT_EQ(launched[1], "file://" + tmp.path());
}

}  // namespace
}  // namespace vorna::bridge
