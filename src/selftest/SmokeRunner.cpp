#include "selftest/SmokeRunner.h"

#include <glib.h>

#include "app/EditorWindowController.h"
#include "app/ScriptResource.h"
#include "contracts/WorkspaceChange.h"
#include "recovery/PathForms.h"
#include "selftest/SmokeBridge.h"

extern "C" void vorna_selftest_scripts_register_resource(void);

namespace vorna::selftest {
namespace {

using contracts::Json;
using namespace std::chrono_literals;

constexpr const char* kSource = "vorna-smoke://step";
constexpr int kPutBytes = 100000;
constexpr auto kSettlePoll = 50ms;
constexpr int kSettlePolls = 100;

constexpr const char* kDocumentComplete = "document.readyState === 'complete'";

constexpr const char* kBasics =
    "JSON.stringify({ origin: location.protocol + '//' + location.host, "
    "editor: typeof window.QX === 'object' })";

constexpr const char* kListenForEvents =
    "window.__got = null; window.vornaHost = { emit: function (e) { window.__got = e; } }; 'ok'";
constexpr const char* kEventSeen =
    "JSON.stringify({ path: (window.__got && window.__got.path) || null })";

constexpr const char* kProtocol = "JSON.stringify({ protocol: location.protocol })";

constexpr const char* kAddFrame =
    "(function () { var frame = document.createElement('iframe'); "
    "frame.id = '__vornaSmokeFrame'; "
    "(document.body || document.documentElement).appendChild(frame); return 'ok'; })()";

constexpr const char* kFrameLocation =
    "(function () { var frame = document.getElementById('__vornaSmokeFrame'); var href; "
    "try { href = frame.contentWindow.location.href; } catch (e) { href = 'cross-origin'; } "
    "return JSON.stringify({ protocol: location.protocol, frame: href }); })()";

std::string embedExternalFrame() {
  return std::string("(function () { var frame = document.createElement('iframe'); frame.src = '") +
         SmokeRunner::kExternalOrigin +
         "/embed'; (document.body || document.documentElement).appendChild(frame); "
         "return 'ok'; })()";
}

std::string leaveForExternal() {
  return std::string("location.href = '") + SmokeRunner::kExternalOrigin + "/'; 'ok'";
}

std::string clickExternalLinkInFrame() {
  return std::string(
             "(function () { var doc = "
             "document.getElementById('__vornaSmokeFrame').contentDocument; "
             "var link = doc.createElement('a'); link.href = '") +
         SmokeRunner::kExternalOrigin +
         "/clicked'; link.textContent = 'reference'; "
         "(doc.body || doc.documentElement).appendChild(link); link.click(); return 'ok'; })()";
}

// The smoke test's own page scripts, registered beside the host's on first use.
std::string smokeScript(std::string_view name) {
  static const bool registered = [] {
    vorna_selftest_scripts_register_resource();
    return true;
  }();
  (void)registered;
  return app::ScriptResource::text(name);
}

std::string childPath(const std::string& folder, const std::string& name) {
  return folder == "/" ? "/" + name : folder + "/" + name;
}

}  // namespace

SmokeRunner::SmokeRunner(app::EditorWindowController& controller, const std::string& folder,
                         SelfTestOutput output)
    : controller_(controller),
      folder_(recovery::standardisedPath(folder)),
      output_(std::move(output)),
      result_(initialResult()) {}

SmokeRunner::~SmokeRunner() {
  alive_.reset();
  controller_.setDidFinishLoad(nullptr);
}

Json SmokeRunner::initialResult() {
  return Json{{"loaded", false},
              {"editor", false},
              {"origin", ""},
              {"list_status", 0},
              {"list_names", Json::array()},
              {"put_echo_bytes", -1},
              {"bridge_path", "scheme"},
              {"event_delivered", false},
              {"smoke_bridge_confined", false},
              {"external_navigation_blocked", false},
              {"external_launch_attempts", -1},
              {"link_click_frame_stayed", false},
              {"link_click_launch_attempts", -1}};
}

std::optional<Json> SmokeRunner::decode(const app::ScriptOutcome& outcome) {
  std::optional<std::string> text = outcome.string();
  if (!text) {
    return std::nullopt;
  }
  std::optional<Json> parsed = contracts::parseJson(*text);
  if (!parsed || !parsed->is_object()) {
    return std::nullopt;
  }
  return parsed;
}

std::string SmokeRunner::reportText(const Json& result) {
  std::string text = contracts::writeJson(result);
  // The writer's answer for a value it cannot write; a report always has entries.
  return text == "{}" ? kEncodeFailure : text;
}

void SmokeRunner::run() {
  timeOut_.start(kTimeOut, [this] {
    if (!finished_) {
      output_.err("smoke: smoke timed out after " + std::to_string(kTimeOut.count()) + "s\n");
      report(1);
    }
  });
  controller_.useSmokeBridge(std::make_shared<SmokeBridge>(folder_));
  std::weak_ptr<SmokeRunner*> alive = alive_;
  controller_.setDidFinishLoad([alive](bool success) {
    if (auto self = alive.lock()) {
      (*self)->loaded(success);
    }
  });
  controller_.present();
  controller_.load(std::nullopt, std::nullopt);
}

void SmokeRunner::loaded(bool success) {
  if (finished_) {
    return;
  }
  if (!success) {
    output_.err("smoke: the editor page failed to load\n");
    report(1);
    return;
  }
  result_["loaded"] = true;
  settle(0);
}

void SmokeRunner::settle(int attempt) {
  // The engine reports the load finished while the page's module scripts may
  // still be on their way, and the editor defines itself in them; the steps
  // start once the document is complete, or after five seconds regardless.
  evaluateRaw(kDocumentComplete, [this, attempt](app::ScriptOutcome outcome) {
    if (outcome.boolean() == true || attempt >= kSettlePolls) {
      stepBasics();
      return;
    }
    after(kSettlePoll, [this, attempt] { settle(attempt + 1); });
  });
}

void SmokeRunner::stepBasics() {
  evaluate(kBasics, [this](std::optional<Json> basics) {
    const Json origin = basics ? basics->value("origin", Json()) : Json();
    const Json editor = basics ? basics->value("editor", Json()) : Json();
    result_["origin"] = origin.is_string() ? origin.get<std::string>() : "";
    result_["editor"] = editor.is_boolean() && editor.get<bool>();
    stepBridge();
  });
}

void SmokeRunner::stepBridge() {
  callAsync(smokeScript("smoke-bridge.js") + "\nreturn await smokeBridge(folder, bytes);", true,
            [this](std::optional<Json> bridge) {
              if (bridge) {
                const Json status = bridge->value("list_status", Json());
                const Json names = bridge->value("list_names", Json());
                const Json echoed = bridge->value("put_echo_bytes", Json());
                const Json path = bridge->value("bridge_path", Json());
                result_["list_status"] = status.is_number_integer() ? status.get<int64_t>() : -1;
                bool allStrings = names.is_array();
                for (const Json& name : allStrings ? names : Json::array()) {
                  allStrings = allStrings && name.is_string();
                }
                result_["list_names"] = allStrings ? names : Json::array();
                result_["put_echo_bytes"] = echoed.is_number_integer() ? echoed.get<int64_t>() : -1;
                if (path.is_string()) {
                  result_["bridge_path"] = path;
                }
              }
              stepEvent();
            });
}

void SmokeRunner::stepEvent() {
  evaluateRaw(kListenForEvents, [this](app::ScriptOutcome) {
    const std::string page = childPath(folder_, "a.html");
    controller_.deliver(
        contracts::WorkspaceChange{contracts::WorkspaceChange::Kind::modified, page, std::nullopt});
    after(300ms, [this, page] {
      evaluate(kEventSeen, [this, page](std::optional<Json> seen) {
        const Json path = seen ? seen->value("path", Json()) : Json();
        result_["event_delivered"] = path.is_string() && path.get<std::string>() == page;
        stepConfinement();
      });
    });
  });
}

void SmokeRunner::stepConfinement() {
  callAsync(smokeScript("smoke-confinement.js") + "\nreturn await smokeConfinement(folder);", false,
            [this](std::optional<Json> statuses) {
              result_["smoke_bridge_confined"] = statuses.has_value() &&
                                                 statuses->value("inside", Json()) == 200 &&
                                                 statuses->value("outside", Json()) == 400 &&
                                                 statuses->value("traversal", Json()) == 400;
              stepNavigation();
            });
}

void SmokeRunner::stepNavigation() {
  evaluateRaw(embedExternalFrame(), [this](app::ScriptOutcome) {
    after(500ms, [this] {
      evaluateRaw(leaveForExternal(), [this](app::ScriptOutcome) {
        after(1000ms, [this] {
          evaluate(kProtocol, [this](std::optional<Json> page) {
            const Json protocol = page ? page->value("protocol", Json()) : Json();
            result_["external_navigation_blocked"] =
                protocol == "vorna:" && controller_.blockedExternalNavigation();
            result_["external_launch_attempts"] = controller_.externalOpenAttempts();
            stepLinkClick();
          });
        });
      });
    });
  });
}

void SmokeRunner::stepLinkClick() {
  linkClickStart_ = controller_.externalOpenAttempts();
  evaluateRaw(kAddFrame, [this](app::ScriptOutcome) {
    after(300ms, [this] {
      evaluateRaw(clickExternalLinkInFrame(), [this](app::ScriptOutcome) {
        after(1000ms, [this] {
          evaluate(kFrameLocation, [this](std::optional<Json> seen) {
            const Json protocol = seen ? seen->value("protocol", Json()) : Json();
            const Json frame = seen ? seen->value("frame", Json()) : Json();
            std::string href = frame.is_string() ? frame.get<std::string>() : "";
            result_["link_click_frame_stayed"] =
                protocol == "vorna:" && href.compare(0, 6, "https:") != 0;
            result_["link_click_launch_attempts"] =
                controller_.externalOpenAttempts() - linkClickStart_;
            report(0);
          });
        });
      });
    });
  });
}

void SmokeRunner::report(int exit) {
  if (finished_) {
    return;
  }
  finished_ = true;
  timeOut_.cancel();
  pause_.cancel();
  output_.out(reportText(result_) + "\n");
  output_.exit(exit);
}

app::ScriptDone SmokeRunner::held(std::function<void(app::ScriptOutcome)> then) {
  return [alive = std::weak_ptr<SmokeRunner*>(alive_),
          then = std::move(then)](app::ScriptOutcome outcome) {
    auto self = alive.lock();
    if (self && !(*self)->finished_) {
      then(std::move(outcome));
    }
  };
}

void SmokeRunner::evaluateRaw(const std::string& script,
                              std::function<void(app::ScriptOutcome)> then) {
  app::evaluateScript(controller_.webView(), script, kSource, held(std::move(then)));
}

void SmokeRunner::evaluate(const std::string& script,
                           std::function<void(std::optional<Json>)> then) {
  evaluateRaw(script,
              [then = std::move(then)](app::ScriptOutcome outcome) { then(decode(outcome)); });
}

void SmokeRunner::callAsync(const std::string& body, bool withBytes,
                            std::function<void(std::optional<Json>)> then) {
  GVariantDict arguments;
  g_variant_dict_init(&arguments, nullptr);
  g_variant_dict_insert(&arguments, "folder", "s", folder_.c_str());
  if (withBytes) {
    g_variant_dict_insert(&arguments, "bytes", "i", kPutBytes);
  }
  app::callAsyncScript(
      controller_.webView(), body, g_variant_dict_end(&arguments), kSource,
      held([then = std::move(then)](app::ScriptOutcome outcome) { then(decode(outcome)); }));
}

void SmokeRunner::after(std::chrono::milliseconds delay, Then then) {
  pause_.start(delay, std::move(then));
}

}  // namespace vorna::selftest
