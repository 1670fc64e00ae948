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
// records each call. Calls arrive through the default main context.
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

  std::vector<std::string> calls;  // the method and its parameters, as GVariant text

 private:
  static void onCall(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                     const gchar* method, GVariant* parameters, GDBusMethodInvocation* invocation,
                     gpointer self) {
    g_autofree gchar* text = g_variant_print(parameters, FALSE);
    static_cast<FakeFileManager*>(self)->calls.push_back(std::string(method) + text);
    g_dbus_method_invocation_return_value(invocation, nullptr);
  }

  GDBusConnection* connection_ = nullptr;
  GDBusNodeInfo* node_ = nullptr;
  guint registration_ = 0;
};

class GioDesktopActionsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_autofree gchar* daemon = g_find_program_in_path("dbus-daemon");
    if (daemon == nullptr) {
      GTEST_SKIP() << "dbus-daemon is not installed";
    }
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

  GioDesktopActions actions(std::string busAddress) {
    return GioDesktopActions(
        std::move(busAddress),
        [record = record](const std::string& uri) { record->push_back("launch " + uri); },
        [record = record](std::string_view line) { record->emplace_back(line); });
  }

  testing::TempDir tmp;
  std::string address;
  // What the actions of one test did: launches and log lines. Shared with
  // their callbacks, which may run after the test if a reply comes late.
  std::shared_ptr<std::vector<std::string>> record = std::make_shared<std::vector<std::string>>();

 private:
  GTestDBus* bus_ = nullptr;
};

TEST_F(GioDesktopActionsTest, RevealAsksTheFileManagerToShowTheItem) {
  FakeFileManager fileManager(address);
  actions(address).reveal(tmp / "site/a b.html");
  // Nothing happens until the main context runs: the call was only posted.
  EXPECT_TRUE(fileManager.calls.empty());
  ASSERT_TRUE(testing::runUntil([&] { return !fileManager.calls.empty(); }));
  EXPECT_EQ(fileManager.calls, std::vector<std::string>{"ShowItems(['file://" + tmp.path() +
                                                        "/site/a%20b.html'], '')"});
  // Open hands the file URI to the launcher, on the main context too.
  actions(address).open(tmp / "doc.pdf");
  EXPECT_TRUE(record->empty());
  ASSERT_TRUE(testing::runUntil([&] { return !record->empty(); }));
  EXPECT_EQ(*record, std::vector<std::string>{"launch file://" + tmp.path() + "/doc.pdf"});
  // Names that are not UTF-8 are escaped byte for byte.
  EXPECT_EQ(GioDesktopActions::fileUri("/w/bad\xff name.html"), "file:///w/bad%FF%20name.html");
}

TEST_F(GioDesktopActionsTest, WithoutAFileManagerOrABusTheFolderIsOpenedInstead) {
  const std::string folder = tmp / "site";
  for (const std::string& bus : {address, "unix:path=" + tmp / "no-bus"}) {
    record->clear();
    actions(bus).reveal(folder + "/a.html");
    ASSERT_TRUE(testing::runUntil([&] { return record->size() == 2; })) << bus;
    const std::string& line = (*record)[0];
    EXPECT_TRUE(
        line.starts_with("Vorna bridge: no file manager showed file://" + folder + "/a.html ("))
        << line;
    EXPECT_TRUE(line.ends_with("; opening file://" + folder + "\n")) << line;
    EXPECT_EQ((*record)[1], "launch file://" + folder);
  }
}

}  // namespace
}  // namespace vorna::bridge
