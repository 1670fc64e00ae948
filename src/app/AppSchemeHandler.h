#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "app/HTTPReply.h"
#include "app/HostContext.h"
#include "app/SchemeRequest.h"
#include "app/SchemeRequestLedger.h"
#include "app/WorkQueue.h"

typedef struct _WebKitURISchemeRequest WebKitURISchemeRequest;
typedef struct _WebKitWebContext WebKitWebContext;

namespace vorna::app {

// Answers every load on the host's own scheme, vorna:. Paths under /api/ go to
// the current workspace bridge; everything else is a file of the editor's
// _app folder. Answers are computed on a concurrent pool and handed back to
// the engine on the main thread, each request exactly once.
class AppSchemeHandler : public std::enable_shared_from_this<AppSchemeHandler> {
 public:
  static constexpr const char* kScheme = "vorna";
  static constexpr const char* kQueueLabel = "app.vorna.Vorna.scheme";
  // Sent with every answer, so every document of the editor has it, and the
  // srcdoc, data: and blob: frames in them inherit it. No script runs from a
  // javascript: URL or inline (a javascript: URL could replace the editor
  // without any navigation the host sees), and no worker starts: scripts
  // cannot be injected into workers, so nothing would guard their bodies.
  static constexpr const char* kContentSecurityPolicy =
      "script-src 'self' 'unsafe-eval'; worker-src 'none'";
  // The refusal of an /api/ call whose body the page's guard did not mark.
  static constexpr const char* kUnguardedBody =
      "request body refused: only fetch and XMLHttpRequest in the editor's pages may send one";

  explicit AppSchemeHandler(std::shared_ptr<HostContext> host);
  AppSchemeHandler(const AppSchemeHandler&) = delete;
  AppSchemeHandler& operator=(const AppSchemeHandler&) = delete;

  // Registers a new handler as the context's handler of "vorna", and the
  // scheme as secure and CORS-enabled (never as local: that breaks fetch,
  // modules and workers). The context owns the handler. Main thread, once
  // per context.
  static void registerWith(WebKitWebContext* context, std::shared_ptr<HostContext> host);

  // Starts one request: copies what the answer needs, computes it on the
  // pool and answers it on the main thread, through the ledger like every
  // answer. Main thread only.
  void start(WebKitURISchemeRequest* request);

  // Where workspace files are served to the editor's preview, by their path:
  // vorna://app/workspace/home/ann/site/a.css reads /home/ann/site/a.css.
  static constexpr const char* kWorkspacePrefix = "/workspace/";

  // Pure routing: /api/ paths to `api`, /workspace/ paths to `workspaceFile`,
  // everything else to `file`. Any thread.
  static HTTPReply answer(const SchemeRequest& request, const HostContext& host);
  // The bridge's answer to reading the file at `path` (`GET file`), so that
  // the preview's relative references (links, stylesheets, their @import,
  // url() and fonts) resolve by themselves. Reads only; any method is a read.
  static HTTPReply workspaceFile(const std::string& path, const HostContext& host, bool head);
  // The transport probe, the 503 before a folder is open, or the bridge's answer.
  static HTTPReply api(const std::string& url, const SchemeRequest& request,
                       const HostContext& host);
  // A file of the _app folder; `head` leaves the body out.
  static HTTPReply file(const std::string& url, const HostContext& host, bool head);
  // Whether the body of an /api/ call may be read: when its method carries
  // none (GET, HEAD), or the page's body guard marked it (UserScripts).
  static bool bodyMayBeRead(const SchemeRequest& request);
  // The body bytes, or nothing when the body stream failed. Reads the stream
  // through one reused 64 KiB buffer and closes it either way.
  static std::optional<contracts::Bytes> requestBody(const SchemeRequest& request);

  // The headers a reply goes out with: its own, with "Cache-Control" set to
  // "no-store", "Content-Length" to the body's byte count and
  // "Content-Security-Policy" to kContentSecurityPolicy, replacing any such
  // header the reply carried in whatever case.
  static std::map<std::string, std::string> deliveryHeaders(const HTTPReply& reply);

 private:
  struct PendingRequest;

  // Copies the request and queues its answer; may throw.
  void begin(WebKitURISchemeRequest* request);
  // Hands `reply` to the engine as the answer to `request`.
  static void respond(WebKitURISchemeRequest* request, HTTPReply reply);

  std::shared_ptr<HostContext> host_;
  WorkQueue queue_;
  SchemeRequestLedger ledger_;
};

}  // namespace vorna::app
