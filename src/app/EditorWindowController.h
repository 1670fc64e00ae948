#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/AppWiring.h"
#include "app/DraftHandshake.h"
#include "app/HostContext.h"
#include "app/NavigationDecision.h"
#include "app/ShellMessageHandler.h"
#include "contracts/BridgeHandling.h"
#include "contracts/GObjectPtr.h"
#include "contracts/WorkspaceChange.h"

typedef struct _GCancellable GCancellable;
typedef struct _GtkApplication GtkApplication;
typedef struct _GtkWindow GtkWindow;
typedef struct _WebKitFileChooserRequest WebKitFileChooserRequest;
typedef struct _WebKitScriptDialog WebKitScriptDialog;
typedef struct _WebKitUserContentFilter WebKitUserContentFilter;
typedef struct _WebKitUserContentFilterStore WebKitUserContentFilterStore;
typedef struct _WebKitUserContentManager WebKitUserContentManager;
typedef struct _WebKitWebContext WebKitWebContext;
typedef struct _WebKitWebView WebKitWebView;

namespace vorna::app {

class BridgeMessageHandler;

// Owns the single editor window and the web view in it: the vorna: scheme,
// both /api transports, the injected scripts, the navigation policy and the
// content blocker that keep the page on the host, and the open folder's
// bridge. Everything here runs on the main thread.
class EditorWindowController {
 public:
  // Hands a web link to the desktop's default browser.
  using ExternalOpener = std::function<void(const std::string& url)>;

  // What tests replace: how bridges are built and how links leave the host.
  struct Seams {
    BridgeFactory makeBridge = AppWiring::makeBridge;
    ExternalOpener openExternally = openWithDefaultBrowser;
  };

  // `headless` is forced on in smoke mode: errors go to standard error and
  // the window's size is neither restored nor saved. With an application the
  // window belongs to it (menu bar, window actions, quit on last close).
  EditorWindowController(bool isSmoke, bool headless, GtkApplication* application = nullptr);
  EditorWindowController(bool isSmoke, bool headless, GtkApplication* application, Seams seams);
  ~EditorWindowController();
  EditorWindowController(const EditorWindowController&) = delete;
  EditorWindowController& operator=(const EditorWindowController&) = delete;

  // Loads the editor page with the folder (and its page) in the query. Until
  // the content blocker is in place the load waits; only the last one runs.
  void load(const std::optional<std::string>& folder, const std::optional<std::string>& page);

  // Switches to a folder: the page first hands unsaved text over as a draft
  // (DraftHandshake), then the old bridge stops watching and is dropped before
  // the new one is built. On failure the window keeps what it shows, without
  // a bridge, and the user is told "Could not open that folder". `opened`
  // runs once the new editor page is being loaded (not on failure).
  void openFolder(const std::string& folder, const std::optional<std::string>& page,
                  std::function<void()> opened = nullptr);

  // Asks the page to store unsaved text as a draft and runs `then` once it
  // did, or after DraftHandshake::kWait; at once when no page is shown.
  void storePageDraft(std::function<void()> then);

  // Runs one of the editor's commands: "save", "newPage", "find", "undo",
  // "redo", "selectAll", "delete".
  void runPageCommand(const std::string& name);

  // Called with the items of every context menu the editor shows (the
  // engine's offer, then what is left), for the scenario runner.
  using ContextMenuObserver = std::function<void(const std::vector<std::string>& offered,
                                                 const std::vector<std::string>& shown)>;
  void setContextMenuObserver(ContextMenuObserver observer) {
    contextMenuObserver_ = std::move(observer);
  }

  // Installs a bridge without watching (the smoke test's read-only one).
  void useSmokeBridge(std::shared_ptr<contracts::BridgeHandling> bridge);

  // Hands one workspace change to the page's window.vornaHost.emit.
  void deliver(const contracts::WorkspaceChange& change);

  // An alert, or "Vorna: {title}: {detail}" on standard error when headless.
  void presentError(const std::string& title, const std::string& detail);

  // Tells the user, once per run, what the watcher said about changes by
  // other programs showing up late; as presentError, under kWatchNoticeTitle.
  void presentWatchNotice(const std::string& notice);
  static constexpr const char* kWatchNoticeTitle = "Changes by other programs will show up late";

  // Shows the window and brings it to the front.
  void present();

  // Closes the window; with `askPage`, once the page has stored unsaved text
  // as a draft (as when the user closes it), else at once.
  void close(bool askPage);

  // Called once with true when the next page load finishes, false when it fails.
  void setDidFinishLoad(std::function<void(bool)> callback) {
    didFinishLoad_ = std::move(callback);
  }

  // The script that delivers a change; nothing when the change cannot be
  // written as JSON.
  static std::optional<std::string> changeScript(const contracts::WorkspaceChange& change);

  static void openWithDefaultBrowser(const std::string& url);

  bool isSmoke() const { return isSmoke_; }
  bool headless() const { return headless_; }
  bool blockedExternalNavigation() const { return blockedExternalNavigation_; }
  int externalOpenAttempts() const { return externalOpenAttempts_; }
  const std::shared_ptr<HostContext>& host() const { return host_; }
  const std::shared_ptr<contracts::BridgeHandling>& bridge() const { return bridge_; }
  const std::optional<std::string>& folder() const { return folder_; }
  ShellMessageHandler& shellMessages() { return shellMessages_; }
  WebKitWebView* webView() const { return webView_.get(); }
  GtkWindow* window() const { return window_.get(); }
  // True once the content blocker is installed and loads go ahead.
  bool contentBlockerReady() const { return contentBlockerReady_; }
  // How often the main frame committed to something other than the editor
  // and was brought back.
  int editorReturns() const { return editorReturns_; }

 private:
  void buildWebView();
  void buildWindow(GtkApplication* application);
  void installContentBlocker();
  // Compiles the blocker into `folder`'s store; unless this is the last try, a
  // failure moves on to a private folder of this run.
  void compileContentBlocker(const std::string& folder, bool lastTry);
  std::optional<std::string> makePrivateFilterFolder();
  // After a main-frame commit: anything but an editor document is left again,
  // back to the editor (see NavigationPolicy::isEditorDocument).
  void keepEditor();
  // Adds the compiled blocker and lets the waiting load go; with none, loads nothing.
  void contentBlockerInstalled(WebKitUserContentFilter* filter, const std::string& failure);
  void countNavigation(const NavigationDecision& decision, const std::string& url);
  void finishLoad(bool success);
  void swapFolder(const std::string& folder, const std::optional<std::string>& page,
                  const std::function<void()>& opened);
  void chooseFiles(WebKitFileChooserRequest* request);
  void showAlert(WebKitScriptDialog* dialog);
  void restoreFrame();
  void saveFrame();

  static void connectSignals(EditorWindowController* self);
  // The handlers of the window's and the web view's signals, one per signal.
  struct Signals;

  const bool isSmoke_;
  const bool headless_;
  Seams seams_;
  std::shared_ptr<HostContext> host_;
  std::unique_ptr<BridgeMessageHandler> bridgeMessages_;
  ShellMessageHandler shellMessages_;
  contracts::GObjectPtr<WebKitWebContext> context_;
  contracts::GObjectPtr<WebKitUserContentManager> contentManager_;
  contracts::GObjectPtr<WebKitUserContentFilterStore> filterStore_;
  contracts::GObjectPtr<GCancellable> cancellable_;
  contracts::GObjectPtr<WebKitWebView> webView_;
  contracts::GObjectPtr<GtkWindow> window_;
  bool windowClosed_ = false;
  bool closeAgreed_ = false;  // the page stored its draft; the window may close
  std::unique_ptr<DraftHandshake> drafts_;
  ContextMenuObserver contextMenuObserver_;
  bool contentBlockerReady_ = false;
  bool contentBlockerFailed_ = false;
  std::string privateFilterFolder_;  // made when the cache could not take the filter
  int editorReturns_ = 0;
  std::vector<contracts::WorkspaceChange> heldChanges_;  // while the main frame is away
  bool watchNoticeShown_ = false;
  std::optional<std::string> pendingUrl_;
  bool blockedExternalNavigation_ = false;
  int externalOpenAttempts_ = 0;
  std::function<void(bool)> didFinishLoad_;
  std::shared_ptr<contracts::BridgeHandling> bridge_;
  std::optional<std::string> folder_;
  // Callbacks that outlive a call (async results, posted work, watcher
  // events) hold this weakly and do nothing once the controller is gone.
  std::shared_ptr<EditorWindowController*> alive_ = std::make_shared<EditorWindowController*>(this);
};

}  // namespace vorna::app
