#include "selftest/E2ERunner.h"

#include <glib.h>
#include <gtk/gtk.h>
#include <webkit/webkit.h>

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "app/EditorWindowController.h"
#include "app/JscJson.h"
#include "app/PageTarget.h"
#include "app/SignalConnect.h"
#include "contracts/GUniquePtr.h"
#include "recovery/PathForms.h"

namespace vorna::selftest {
namespace {

using contracts::Json;
using namespace std::chrono_literals;

constexpr const char* kSource = "vorna-e2e://runner";
constexpr auto kSnapshotLimit = 10s;

constexpr const char* kReadiness =
    "(function () { try { return !!(window.QX && window.QX.S.dirHandle && "
    "window.QX.S.files.length && window.VN && window.vornaHost && window.VNHost && "
    "window.VNHost.state.surveyed > 0); } catch (e) { return false; } })()";

// The whole file as UTF-8 text; nothing when it cannot be read or is not UTF-8.
std::optional<std::string> readText(const std::string& path) {
  char* contents = nullptr;
  gsize length = 0;
  if (!g_file_get_contents(path.c_str(), &contents, &length, nullptr)) {
    return std::nullopt;
  }
  contracts::GText owned(contents);
  if (!g_utf8_validate(contents, static_cast<gssize>(length), nullptr)) {
    return std::nullopt;
  }
  return std::string(contents, length);
}

}  // namespace

E2ERunner::E2ERunner(app::EditorWindowController& controller, const std::string& folder,
                     std::optional<std::string> page, std::string scenario, SelfTestOutput output,
                     Settings settings)
    : controller_(controller),
      folder_(recovery::standardisedPath(folder)),
      page_(std::move(page)),
      scenario_(std::move(scenario)),
      output_(std::move(output)),
      settings_(std::move(settings)) {}

E2ERunner::~E2ERunner() {
  alive_.reset();
  if (handlerManager_ != nullptr) {
    g_signal_handler_disconnect(handlerManager_, handlerSignal_);
    webkit_user_content_manager_unregister_script_message_handler(handlerManager_, kHandlerName,
                                                                  nullptr);
  }
}

std::optional<std::string> E2ERunner::processEnvironment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

const char* E2ERunner::readinessScript() {
  return kReadiness;
}

std::string E2ERunner::hookScript() {
  return std::string("window.__e2eSay = function (text) {\n  window.webkit.messageHandlers.") +
         kHandlerName +
         ".postMessage({ say: String(text) });\n};\n"
         "window.__e2eDone = function (object) {\n  var json;\n"
         "  try { json = JSON.stringify(object == null ? {} : object); }\n"
         "  catch (e) { json = '" +
         kUnencodable + "'; }\n  window.webkit.messageHandlers." + kHandlerName +
         ".postMessage({ done: json });\n};\n'ok'";
}

std::string E2ERunner::scenarioScript(const std::string& common, const std::string& scenario) {
  // The separator ends a common file whose last statement lacks its semicolon.
  return common.empty() ? scenario : common + "\n;\n" + scenario;
}

void E2ERunner::run() {
  deadline_.start(settings_.timeOut, [this] {
    if (!finished_) {
      finish(2, "scenario " + scenario_ + " produced no result within " +
                    std::to_string(settings_.timeOut.count()) + "s");
    }
  });

  handlerManager_ = webkit_web_view_get_user_content_manager(controller_.webView());
  webkit_user_content_manager_register_script_message_handler(handlerManager_, kHandlerName,
                                                              nullptr);
  handlerSignal_ = app::connectSignal(
      handlerManager_, "script-message-received::vornaE2E",
      +[](WebKitUserContentManager*, JSCValue* value, gpointer data) {
        try {
          static_cast<E2ERunner*>(data)->receive(app::jsonFromJsc(value));
        } catch (const std::exception& error) {
          std::fprintf(stderr, "e2e: a scenario message failed: %s\n", error.what());
        }
      },
      this);

  controller_.setContextMenuObserver(
      [this](const std::vector<std::string>& offered, const std::vector<std::string>& shown) {
        auto joined = [](const std::vector<std::string>& items) {
          std::string out;
          for (const std::string& item : items) {
            out += (out.empty() ? "" : "|") + item;
          }
          return out;
        };
        if (!finished_) {
          output_.out("E2E-MENU offered=" + joined(offered) + " shown=" + joined(shown) + "\n");
        }
      });
  controller_.present();
  controller_.openFolder(folder_, page_);
  waitForFolder(0);
}

void E2ERunner::handOver(const std::string& path, const std::string& scenario) {
  app::PageTarget next = app::target(path);
  if (!next.folder) {
    finish(2, "the scenario asked to open " + path + ", which is no folder or page");
    return;
  }
  scenario_ = scenario;
  // The readiness test would still pass on the page that is about to go, so
  // waiting starts once the new one has loaded.
  controller_.openFolder(*next.folder, next.page, [this] {
    controller_.setDidFinishLoad([alive = std::weak_ptr<E2ERunner*>(alive_)](bool) {
      if (auto self = alive.lock(); self && !(*self)->finished_) {
        (*self)->waitForFolder(0);
      }
    });
  });
}

void E2ERunner::waitForFolder(int attempt) {
  if (finished_) {
    return;
  }
  if (attempt > kLastPoll) {
    finish(2, "the editor never finished opening " + folder_);
    return;
  }
  ++polls_;
  app::evaluateScript(
      controller_.webView(), kReadiness, kSource, held([this, attempt](app::ScriptOutcome outcome) {
        if (outcome.boolean() == true) {
          inject();
          return;
        }
        poll_.start(settings_.pollInterval, [this, attempt] { waitForFolder(attempt + 1); });
      }));
}

void E2ERunner::inject() {
  std::optional<std::string> directory = settings_.environment(kScenarioDirVariable);
  if (!directory || directory->empty()) {
    finish(2, std::string(kScenarioDirVariable) + " is not set");
    return;
  }
  std::string path = *directory + "/" + scenario_ + ".js";
  std::optional<std::string> scenario = readText(path);
  if (!scenario) {
    finish(2, "no scenario at " + path);
    return;
  }
  std::string script = scenarioScript(readText(*directory + "/_common.js").value_or(""), *scenario);
  app::evaluateScript(controller_.webView(), hookScript(), kSource,
                      held([this, script](app::ScriptOutcome outcome) {
                        if (outcome.failed()) {
                          finish(2, "could not install the reporting hooks: " + outcome.error);
                          return;
                        }
                        runScenario(script);
                      }));
}

void E2ERunner::runScenario(const std::string& script) {
  // The scenario may go on reporting after an error on entry (a script whose
  // last value is a promise counts as one), so the run continues.
  app::evaluateScript(
      controller_.webView(), script, "vorna-e2e://" + scenario_ + ".js",
      held([this](app::ScriptOutcome outcome) {
        if (outcome.failed()) {
          output_.err("e2e: " + scenario_ + " threw on entry: " + outcome.error + "\n");
        }
      }));
}

void E2ERunner::receive(const std::optional<Json>& message) {
  if (finished_ || !message || !message->is_object()) {
    return;
  }
  auto say = message->find("say");
  if (say != message->end() && say->is_string()) {
    output_.out("E2E " + say->get<std::string>() + "\n");
  }
  auto open = message->find("open");
  auto then = message->find("then");
  if (open != message->end() && open->is_string() && then != message->end() && then->is_string()) {
    handOver(open->get<std::string>(), then->get<std::string>());
    return;
  }
  auto done = message->find("done");
  if (done != message->end() && done->is_string()) {
    output_.out("E2E-DONE " + done->get<std::string>() + "\n");
    if (settings_.snapshotPath) {
      finished_ = true;
      poll_.cancel();
      finishWithSnapshot();
      return;
    }
    finish(0);
  }
}

void E2ERunner::finish(int code, const std::optional<std::string>& problem) {
  if (problem) {
    output_.err("e2e: " + *problem + "\n");
  }
  if (finished_) {
    return;
  }
  finished_ = true;
  deadline_.cancel();
  poll_.cancel();
  output_.exit(code);
}

void E2ERunner::finishWithSnapshot() {
  const std::string path = *settings_.snapshotPath;
  // The engine answers a snapshot at once when the window is shown; should it
  // never answer, the run still ends.
  deadline_.start(kSnapshotLimit, [this, path] {
    output_.err("e2e: no snapshot of the editor was taken for " + path + "\n");
    output_.exit(0);
  });
  struct Pending {
    std::weak_ptr<E2ERunner*> alive;
    std::string path;
  };
  webkit_web_view_get_snapshot(
      controller_.webView(), WEBKIT_SNAPSHOT_REGION_VISIBLE, WEBKIT_SNAPSHOT_OPTIONS_NONE, nullptr,
      [](GObject* view, GAsyncResult* result, gpointer data) {
        std::unique_ptr<Pending> pending(static_cast<Pending*>(data));
        GError* error = nullptr;
        auto texture = contracts::GObjectPtr<GdkTexture>::adopt(
            webkit_web_view_get_snapshot_finish(WEBKIT_WEB_VIEW(view), result, &error));
        contracts::GErrorPtr owned(error);
        auto self = pending->alive.lock();
        if (!self || !(*self)->deadline_.pending()) {
          return;  // the runner is gone, or the run already ended without it
        }
        E2ERunner& runner = **self;
        runner.deadline_.cancel();
        if (!texture || !gdk_texture_save_to_png(texture.get(), pending->path.c_str())) {
          runner.output_.err("e2e: could not save a snapshot of the editor to " + pending->path +
                             (owned ? ": " + std::string(owned->message) : "") + "\n");
        }
        runner.output_.exit(0);
      },
      new Pending{alive_, path});
}

app::ScriptDone E2ERunner::held(std::function<void(app::ScriptOutcome)> then) {
  return [alive = std::weak_ptr<E2ERunner*>(alive_),
          then = std::move(then)](app::ScriptOutcome outcome) {
    auto self = alive.lock();
    if (self && !(*self)->finished_) {
      then(std::move(outcome));
    }
  };
}

}  // namespace vorna::selftest
