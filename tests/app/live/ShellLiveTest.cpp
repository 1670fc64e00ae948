#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <gtk/gtk.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <webkit/webkit.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "../../bridge/MainContext.h"
#include "../../bridge/ScopedVariable.h"
#include "../support/FakeBridge.h"
#include "app/EditorWindowController.h"
#include "app/PageScript.h"
#include "app/UserDefaults.h"
#include "app/UserScripts.h"
#include "storage/Fingerprint.h"
#include "support/TempDir.h"

namespace vorna::app::testing {
namespace {

using contracts::Json;
using namespace std::chrono_literals;
using vorna::testing::runUntil;

// Runs an async function body in the page's world (it may await) and returns
// what it returns, which must be a JSON text; the test fails on a script error
// or time-out. `argument` is handed to the body as the string `arg`.
Json runScript(EditorWindowController& controller, const std::string& body,
               const std::string& argument = "") {
  // Shared with the completion, which may outlive a call that timed out.
  auto outcome = std::make_shared<std::optional<ScriptOutcome>>();
  GVariantDict arguments;
  g_variant_dict_init(&arguments, nullptr);
  g_variant_dict_insert(&arguments, "arg", "s", argument.c_str());
  callAsyncScript(controller.webView(), body, g_variant_dict_end(&arguments),
                  "vorna-test://script", [outcome](ScriptOutcome done) { *outcome = std::move(done); });
  if (!runUntil([&] { return outcome->has_value(); })) {
    ADD_FAILURE() << "script timed out:\n" << body;
    return nullptr;
  }
  std::optional<std::string> text = (*outcome)->string();
  if (!text) {
    ADD_FAILURE() << "script failed: "
                  << ((*outcome)->failed() ? (*outcome)->error : "it returned no string") << "\n"
                  << body;
    return nullptr;
  }
  std::optional<contracts::Json> parsed = contracts::parseJson(*text);
  if (!parsed) {
    ADD_FAILURE() << "script returned no JSON: " << *text;
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

// A TCP listener on 127.0.0.1 that only counts connections: the witness that
// nothing left the web view. The kernel completes connections into the
// backlog by itself, so nothing has to run while the page does; they are
// counted when asked for.
class LoopbackListener {
 public:
  LoopbackListener() : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (socket_ < 0 ||
        ::bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(socket_, 64) != 0 ||
        ::getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
      throw std::runtime_error("cannot listen on 127.0.0.1");
    }
    port_ = ntohs(address.sin_port);
  }
  ~LoopbackListener() { ::close(socket_); }
  LoopbackListener(const LoopbackListener&) = delete;
  LoopbackListener& operator=(const LoopbackListener&) = delete;

  int port() const { return port_; }
  int connections() {
    for (int accepted; (accepted = ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
      ::close(accepted);
      ++connections_;
    }
    return connections_;
  }

 private:
  int socket_;
  int port_ = 0;
  int connections_ = 0;
};

constexpr size_t kBigBody = 5 * 1024 * 1024;

std::string sha256(const std::string& bytes) {
  return storage::Fingerprint::ofBytes(bytes).hex;
}

// The same bytes as the page's `big`: the top byte of i * 2654435761 mod 2^32.
std::string bigBody() {
  std::string bytes(kBigBody, '\0');
  for (uint32_t i = 0; i < kBigBody; ++i) {
    bytes[i] = static_cast<char>(static_cast<uint32_t>(i * 2654435761u) >> 24);
  }
  return bytes;
}

constexpr const char* kBigInPage = R"JS(
  const big = new Uint8Array(5 * 1024 * 1024);
  for (let i = 0; i < big.length; i++) big[i] = Math.imul(i, 2654435761) >>> 24;
)JS";

// Whether an image from `url` loads or fails.
constexpr const char* kImageOutcome = R"JS(
  const imageOutcome = (url) => new Promise((resolve) => {
    const image = new Image();
    image.onload = () => resolve('loaded');
    image.onerror = () => resolve('failed');
    image.src = url;
  });
)JS";

class ShellLiveTest : public ::testing::Test {
 protected:
  std::unique_ptr<EditorWindowController> makeController() {
    EditorWindowController::Seams seams;
    seams.makeBridge = [this](const std::string& folder) { return factory(folder); };
    seams.openExternally = [this](const std::string& url) { opened.push_back(url); };
    return std::make_unique<EditorWindowController>(/*isSmoke=*/false, /*headless=*/true, nullptr,
                                                    std::move(seams));
  }

  std::function<std::shared_ptr<contracts::BridgeHandling>(const std::string&)> factory =
      [](const std::string&) -> std::shared_ptr<contracts::BridgeHandling> {
    throw std::runtime_error("no bridge in this test");
  };
  std::shared_ptr<FakeBridge> bridge = std::make_shared<FakeBridge>();
  std::vector<std::string> opened;
};

// Before a folder is open: the API answers 503 on both transports, and the
// message handler answers its probe and refuses what is not an object. (The
// shell channel's ops: ShellMessageHandlerTest; its wiring: the closing test.)
TEST_F(ShellLiveTest, WithoutAFolderTheApiAnswers503AndTheHandlerAnswersOrRefuses) {
  auto controller = makeController();
  loadAndWait(*controller);
  Json result = runScript(*controller, R"JS(
    await window.__vornaBridgeReady;
    const out = {};
    for (const mode of ['scheme', 'message']) {
      window.__vornaBridgeMode = mode;
      const r = await fetch('/api/list?path=%2Ftmp');
      out[mode] = { status: r.status, body: await r.text(),
                    cache: r.headers.get('Cache-Control'), type: r.headers.get('Content-Type') };
    }
    const handler = window.webkit.messageHandlers.vorna;
    const probe = await handler.postMessage({ op: '__probe', bodyBase64: btoa('vorna-probe-body') });
    const invalid = await handler.postMessage({ op: '__probe', bodyBase64: 'dm9y bmE=' });
    out.probe = { status: probe.status, headers: probe.headers, body: atob(probe.bodyBase64),
                  invalid: atob(invalid.bodyBase64) };
    out.refusals = [];
    for (const message of ['plain', [1, 2], 7]) {
      try { await handler.postMessage(message); out.refusals.push('answered'); }
      catch (e) { out.refusals.push(e.message); }
    }
    return JSON.stringify(out);
  )JS");
  Json expected = {{"status", 503},
                   {"body", R"({"error":"no workspace open"})"},
                   {"cache", "no-store"},
                   {"type", "application/json"}};
  EXPECT_EQ(result["scheme"], expected);
  EXPECT_EQ(result["message"], expected);
  EXPECT_EQ(
      result["probe"],
      (Json{{"status", 200},
            {"headers", {{"Cache-Control", "no-store"}, {"Content-Type", "application/json"}}},
            {"body", R"({"bytes":16})"},
            {"invalid", R"({"bytes":0})"}}));
  std::string refusal = "vorna: expected an object";
  EXPECT_EQ(result["refusals"], (Json{refusal, refusal, refusal}));
  // The storage shim stands in only where localStorage is refused; the bridge
  // shim installs once per document, however often its script runs.
  Json storage = runScript(*controller, R"JS(
    const refusing = {};
    Object.defineProperty(refusing, 'localStorage',
                          { configurable: true, get() { throw new Error('refused'); } });
    new Function('window', arg)(refusing);
    const s = refusing.localStorage;
    s.setItem('b', 2);
    return JSON.stringify({ b: s.getItem('b'), missing: s.getItem('zz'),
                            real: window.localStorage instanceof Storage });
  )JS",
                           UserScripts::all()[0].source);
  EXPECT_EQ(storage, (Json{{"b", "2"}, {"missing", nullptr}, {"real", true}}));
  std::string again =
      "const before = window.fetch; new Function(arg)();"
      "return JSON.stringify({ same: window.fetch === before,"
      " mode: await window.__vornaBridgeReady });";
  for (int load = 0; load < 2; ++load) {
    loadAndWait(*controller);
    EXPECT_EQ(runScript(*controller, again, UserScripts::all()[1].source),
              (Json{{"same", true}, {"mode", "scheme"}}));
  }
}

// Bodies cross both transports whole, answers carry no-store, HEAD answers
// no body, a 204 a null one; an answer to a page that is gone is dropped.
TEST_F(ShellLiveTest, BodiesAndAnswersCrossBothTransportsWhole) {
  auto controller = makeController();
  controller->useSmokeBridge(bridge);
  loadAndWait(*controller);
  Json result = runScript(*controller, std::string(kBigInPage) + R"JS(
    await window.__vornaBridgeReady;
    const put = async (body) => (await fetch('/api/echo', { method: 'PUT', body })).json();
    const out = {};
    for (const mode of ['scheme', 'message']) {
      window.__vornaBridgeMode = mode;
      out[mode] = {
        small: await put(new Blob(['abc'])),
        big: await put(new Blob([big])),
        typed: await put(new Blob(['<p>hi</p>'], { type: 'text/html' })),
        file: await put(new File(['hello'], 'a.html'))
      };
    }
    const head = async (url) => {
      const r = await fetch(url, { method: 'HEAD' });
      return [r.status, r.headers.get('Cache-Control'), r.headers.get('Content-Type'), await r.text()];
    };
    window.__vornaBridgeMode = 'scheme';
    out.head = await head('/index.html');
    out.apiHead = await head('/api/echo');
    window.__vornaBridgeMode = 'message';
    const r = await fetch('/api/nocontent', { method: 'DELETE' });
    out.noContent = { status: r.status, nullBody: r.body === null,
                      cache: r.headers.get('Cache-Control') };
    return JSON.stringify(out);
  )JS");
  for (const char* mode : {"scheme", "message"}) {
    SCOPED_TRACE(mode);
    const Json& sent = result[mode];
    EXPECT_EQ(
        sent["small"],
        (Json{{"bytes", 3}, {"sha256", sha256("abc")}, {"method", "PUT"}, {"contentType", ""}}));
    EXPECT_EQ(sent["big"]["bytes"], kBigBody);
    EXPECT_EQ(sent["big"]["sha256"], sha256(bigBody()));
    EXPECT_EQ(sent["typed"]["contentType"], "text/html");
    EXPECT_EQ(sent["typed"]["sha256"], sha256("<p>hi</p>"));
    EXPECT_EQ(sent["file"]["bytes"], 5);
  }
  EXPECT_EQ(result["head"], (Json{200, "no-store", "text/html; charset=utf-8", ""}));
  EXPECT_EQ(result["apiHead"], (Json{200, "no-store", "application/json", ""}));
  EXPECT_EQ(result["noContent"],
            (Json{{"status", 204}, {"nullBody", true}, {"cache", "no-store"}}));
  EXPECT_EQ(bridge->requests().back().method, "DELETE");

  runScript(*controller, "fetch('/api/slow').catch(() => {}); return '{}';");
  ASSERT_TRUE(runUntil([&] { return bridge->slowWaiting == 1; }));
  loadAndWait(*controller);  // the page that asked is gone
  bridge->releaseSlow();
  ASSERT_TRUE(runUntil([&] { return bridge->slowAnswered == 1; }));
  Json after = runScript(*controller, R"JS(
    const r = await fetch('/api/echo', { method: 'PUT', body: 'still here' });
    return JSON.stringify((await r.json()).bytes);
  )JS");
  EXPECT_EQ(after, 10);
}

TEST_F(ShellLiveTest, FileBodiesFromAnIframeArriveAsBytesOrAreRefusedClearly) {
  auto controller = makeController();
  controller->useSmokeBridge(bridge);
  loadAndWait(*controller);
  // The frame has no bridge shim: its calls go straight to the scheme, with
  // only the body guard between a Blob and the engine's crash.
  Json result = runScript(*controller, std::string(kBigInPage) + R"JS(
    const frame = document.createElement('iframe');
    frame.src = 'frame.html';
    await new Promise((resolve) => { frame.onload = resolve; document.body.appendChild(frame); });
    const w = frame.contentWindow;
    const put = async (body) => (await w.fetch('/api/echo', { method: 'PUT', body })).json();
    const out = { guarded: w.__vornaBodyGuard === true, shim: w.__vornaBridgeInstalled === true };
    out.big = await put(new w.Blob([big]));
    out.request = await (await w.fetch(new w.Request('/api/echo',
        { method: 'POST', body: new w.Blob(['abcd'], { type: 'text/plain' }) }))).json();
    const withFile = new w.FormData();
    withFile.append('file', new w.Blob(['abc']), 'a.bin');
    const attempt = async (act) => {
      try { await act(); return 'sent'; } catch (e) { return e.name + ': ' + e.message; } };
    const xhr = (body, async) => {
      const x = new w.XMLHttpRequest(); x.open('PUT', '/api/echo', async); x.send(body); };
    out.formData = await attempt(() => w.fetch('/api/echo', { method: 'PUT', body: withFile }));
    out.xhrFormData = await attempt(() => xhr(withFile, true));
    out.syncXhr = await attempt(() => xhr(new w.Blob(['a']), false));
    const fields = new w.FormData();
    fields.append('a', '1');
    out.fields = (await (await w.fetch('/api/echo', { method: 'PUT', body: fields })).json()).bytes > 0;
    const immediate = document.createElement('iframe');
    document.body.appendChild(immediate);
    out.immediate = immediate.contentWindow.__vornaBodyGuard === true;
    const kinds = { srcdoc: (f) => { f.srcdoc = '<p>x</p>'; }, blank: () => {} };
    for (const kind of Object.keys(kinds)) {
      const f = document.createElement('iframe');
      kinds[kind](f);
      await new Promise((resolve) => { f.onload = resolve; document.body.appendChild(f); });
      out[kind] = f.contentWindow.__vornaBodyGuard === true;
    }
    // A relative URL in an about:srcdoc frame resolves against the parent's
    // address (the rest of such a frame's bodies: e2e frame-blob-bodies).
    const sw = document.querySelector('iframe[srcdoc]').contentWindow;
    out.srcdocXhr = await new Promise((resolve) => {
      const x = new sw.XMLHttpRequest();
      x.open('PUT', 'api/echo');
      x.onload = () => resolve(JSON.parse(x.responseText).bytes);
      x.onerror = () => resolve(-1);
      x.send(new sw.Blob(['abcde']));
    });
    try { new Worker('frame.html'); out.worker = 'started'; } catch (e) { out.worker = e.name; }
    return JSON.stringify(out);
  )JS");
  EXPECT_EQ(result["guarded"], true);
  EXPECT_EQ(result["shim"], false);
  // Small Blobs, Files and XMLHttpRequest bodies from a frame: e2e frame-blob-bodies.
  EXPECT_EQ(result["big"]["sha256"], sha256(bigBody()));
  EXPECT_EQ(result["request"]["sha256"], sha256("abcd"));
  EXPECT_EQ(result["request"]["method"], "POST");
  EXPECT_EQ(result["request"]["contentType"], "text/plain");
  std::string formDataRefusal = std::string("TypeError: ") + UserScripts::kFormDataRefusal;
  EXPECT_EQ(result["formData"], formDataRefusal);
  EXPECT_EQ(result["xhrFormData"], formDataRefusal);
  EXPECT_EQ(result["syncXhr"], std::string("TypeError: ") + UserScripts::kBlobRefusal);
  EXPECT_EQ(result["fields"], true);
  // Frames without a load of their own get the guard too, even at once.
  EXPECT_EQ(result["immediate"], true);
  EXPECT_EQ(result["srcdoc"], true);
  EXPECT_EQ(result["blank"], true);
  EXPECT_EQ(result["srcdocXhr"], 5);
  // No worker starts: no script could guard its bodies.
  EXPECT_EQ(result["worker"], "SecurityError");
  // Every body that was sent reached the bridge whole; none arrived empty.
  for (const contracts::BridgeRequest& request : bridge->requests()) {
    EXPECT_FALSE(request.body.empty()) << request.method << " " << request.op;
  }
}

TEST_F(ShellLiveTest, NothingLoadsFromOutsideTheHostAndLinksGoToTheBrowser) {
  LoopbackListener listener;
  std::string port = std::to_string(listener.port());
  auto controller = makeController();
  loadAndWait(*controller);
  Json loads = runScript(*controller, std::string(kImageOutcome) + R"JS(
    const base = '127.0.0.1:' + arg;
    const images = ['http', 'https'].map((scheme) => imageOutcome(scheme + '://' + base + '/i.png'));
    let noCors;
    try { await fetch('http://' + base + '/no-cors', { mode: 'no-cors' }); noCors = 'sent'; }
    catch (e) { noCors = 'failed'; }
    const socket = await new Promise((resolve) => {
      try {
        const s = new WebSocket('ws://' + base + '/');
        s.onopen = () => resolve('open');
        s.onerror = () => resolve('failed');
      } catch (e) { resolve('failed'); }
    });
    navigator.sendBeacon('http://' + base + '/beacon', 'x');
    const frames = ['https', 'http'].map((scheme) => {
      const frame = document.createElement('iframe');
      frame.src = scheme + '://' + base + '/embed';
      document.body.appendChild(frame);
      return frame;
    });
    // A frame of the host's own loads after the two outside ones were decided.
    const own = document.createElement('iframe');
    own.src = 'frame.html';
    await new Promise((resolve) => { own.onload = resolve; document.body.appendChild(own); });
    const where = frames.map((frame) => {
      try { return frame.contentWindow.location.href; } catch (e) { return 'cross-origin'; }
    });
    return JSON.stringify({ images: await Promise.all(images), noCors, socket, frames: where });
  )JS",
                         port);
  EXPECT_EQ(loads["images"], (Json{"failed", "failed"}));
  EXPECT_EQ(loads["noCors"], "failed");
  EXPECT_EQ(loads["socket"], "failed");
  for (const Json& frame : loads["frames"]) {
    EXPECT_EQ(frame.get<std::string>().rfind("http", 0), std::string::npos) << frame;
  }
  EXPECT_EQ(controller->externalOpenAttempts(), 0);
  EXPECT_TRUE(opened.empty());

  // A link clicked in a sub-frame goes to the browser (that the frame stays:
  // the smoke check).
  runScript(*controller, R"JS(
    const frame = document.createElement('iframe');
    await new Promise((resolve) => { frame.onload = resolve; document.body.appendChild(frame); });
    const doc = frame.contentDocument;
    const link = doc.createElement('a');
    link.href = 'https://127.0.0.1:' + arg + '/clicked';
    (doc.body || doc.documentElement).appendChild(link);
    link.click();
    return '{}';
  )JS",
            port);
  ASSERT_TRUE(runUntil([&] { return controller->externalOpenAttempts() == 1; }));
  EXPECT_EQ(opened, (std::vector<std::string>{"https://127.0.0.1:" + port + "/clicked"}));
  EXPECT_EQ(listener.connections(), 0);

  // The listener does count: one connection of the test's own.
  int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(listener.port()));
  ASSERT_EQ(::connect(probe, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ::close(probe);
  EXPECT_TRUE(runUntil([&] { return listener.connections() == 1; }));
}

TEST_F(ShellLiveTest, WithoutAUsableCacheFolderTheBlockerIsCompiledForTheRunAlone) {
  vorna::testing::TempDir temp;
  temp.write("file", "a file where a folder would have to be");
  bridge::testfixture::ScopedVariable cache("XDG_CACHE_HOME", (temp / "file/cache").c_str());
  LoopbackListener listener;
  ::testing::internal::CaptureStderr();
  auto controller = makeController();
  loadAndWait(*controller);
  std::string errors = ::testing::internal::GetCapturedStderr();
  EXPECT_TRUE(controller->contentBlockerReady());
  EXPECT_NE(errors.find("Vorna: the content filter could not be kept in " +
                        temp / "file/cache/vorna/content-filters"),
            std::string::npos)
      << errors;
  Json image = runScript(*controller, std::string(kImageOutcome) + R"JS(
    return JSON.stringify(await imageOutcome('http://127.0.0.1:' + arg + '/image.png'));
  )JS",
                         std::to_string(listener.port()));
  EXPECT_EQ(image, "failed");
  EXPECT_EQ(listener.connections(), 0);
}

// Changes reaching the page: e2e outside-write-events and the smoke check.
TEST_F(ShellLiveTest, OpeningAFolderLoadsItStopsTheOldBridgeFirstOrLeavesNone) {
  vorna::testing::TempDir temp;
  std::filesystem::path folder = temp / "vorna live/a b/é";
  std::filesystem::create_directories(folder);
  std::vector<std::shared_ptr<FakeBridge>> built;
  std::vector<std::string> seenAtBuild;
  std::unique_ptr<EditorWindowController> controller;
  factory = [&](const std::string& root) -> std::shared_ptr<contracts::BridgeHandling> {
    std::string previous = built.empty() ? "" : built.back()->log().back();
    seenAtBuild.push_back(previous + (controller->host()->bridge() ? " +bridge" : " no bridge"));
    built.push_back(std::make_shared<FakeBridge>(root));
    return built.back();
  };
  controller = makeController();
  std::optional<bool> loaded;
  controller->setDidFinishLoad([&](bool ok) { loaded = ok; });
  controller->openFolder(folder.string() + "/../é", std::string("index.html"));
  ASSERT_TRUE(runUntil([&] { return loaded.has_value(); }));
  ASSERT_EQ(built.size(), 1u);
  EXPECT_EQ(controller->folder(), folder.string());
  EXPECT_EQ(controller->host()->bridge(), built[0]);
  Json search = runScript(*controller, "return JSON.stringify(location.search);");
  EXPECT_EQ(search, "?path=" + temp.path() + "/vorna%20live/a%20b/%C3%A9&open=index.html");

  loaded.reset();
  controller->setDidFinishLoad([&](bool ok) { loaded = ok; });
  controller->openFolder(folder.parent_path().string(), std::nullopt);
  ASSERT_TRUE(runUntil([&] { return loaded.has_value(); }));
  ASSERT_EQ(built.size(), 2u);
  // The first bridge had stopped watching, and was out of the host, before the second existed.
  EXPECT_EQ(seenAtBuild,
            (std::vector<std::string>{" no bridge", "stop " + folder.string() + " no bridge"}));
  EXPECT_EQ(controller->host()->bridge(), built[1]);

  // A folder that cannot be opened leaves no bridge; the old one stays until
  // the page had its chance to store a draft.
  factory = [](const std::string&) -> std::shared_ptr<contracts::BridgeHandling> {
    throw std::runtime_error("the recovery store is not writable");
  };
  ::testing::internal::CaptureStderr();
  controller->openFolder("/tmp", std::nullopt);
  EXPECT_EQ(controller->bridge(), built[1]);
  runUntil([&] { return controller->bridge() == nullptr; });
  std::string errors = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(errors, "Vorna: Could not open that folder: the recovery store is not writable\n");
  EXPECT_EQ(controller->bridge(), nullptr);
  EXPECT_EQ(controller->host()->bridge(), nullptr);
  EXPECT_EQ(built[1]->log().back(), "stop " + folder.parent_path().string());
}

// The page's answer to the host's question before it goes: a draft stored
// after a while (reported on the shell channel first), or no answer at all.
TEST_F(ShellLiveTest, ClosingWaitsUntilThePageStoredItsDraftOrTheWaitRanOut) {
  for (const char* flush :
       {"new Promise((resolve) => setTimeout(() => {"
        " window.webkit.messageHandlers.vornaShell.postMessage({ op: 'stored' });"
        " resolve(true); }, 300))",
        "new Promise(() => {})"}) {
    auto controller = makeController();
    controller->useSmokeBridge(bridge);
    controller->present();
    loadAndWait(*controller);
    runScript(*controller, std::string("window.vornaHost = { flush: () => ") + flush +
                               " }; return JSON.stringify(true);");
    ::testing::internal::CaptureStderr();
    auto* window = GTK_WIDGET(controller->window());
    gtk_window_close(controller->window());
    EXPECT_TRUE(gtk_widget_get_visible(window)) << flush;
    EXPECT_TRUE(runUntil([&] { return !gtk_widget_get_visible(window); }, 5s)) << flush;
    std::string errors = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(errors.find("unknown shell op stored") != std::string::npos,
              std::string(flush).find("stored") != std::string::npos)
        << errors;
  }
}

TEST(ShellWindowLiveTest, TheWindowRemembersItsSizeUnlessHeadless) {
  UserDefaults defaults(UserDefaults::standardPath());
  std::filesystem::remove(defaults.path());
  {
    EditorWindowController headless(false, true);
    headless.present();
    gtk_window_close(headless.window());
  }
  EXPECT_EQ(defaults.windowFrame(UserDefaults::kWindowAutosaveName), std::nullopt);
  {
    EditorWindowController shown(false, false);
    shown.present();
    gtk_window_set_default_size(shown.window(), 900, 600);
    gtk_window_close(shown.window());
  }
  EXPECT_EQ(defaults.windowFrame(UserDefaults::kWindowAutosaveName),
            (WindowFrame{900, 600, false}));
  EditorWindowController restored(false, false);
  std::pair<int, int> size;
  gtk_window_get_default_size(restored.window(), &size.first, &size.second);
  EXPECT_EQ(size, std::pair(900, 600));
}

}  // namespace
}  // namespace vorna::app::testing
