#include "app/AppSchemeHandler.h"

#include <glib.h>
#include <libsoup/soup.h>
#include <sys/stat.h>
#include <webkit/webkit.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <thread>

#include "app/MainThread.h"
#include "app/UrlParts.h"
#include "app/UserScripts.h"
#include "bridge/ContentTypes.h"
#include "bridge/PathExtension.h"
#include "contracts/BridgeRequest.h"
#include "contracts/GObjectPtr.h"
#include "contracts/GUniquePtr.h"
#include "contracts/Json.h"
#include "recovery/PathForms.h"
#include "storage/DurableFiles.h"
#include "storage/FileOpError.h"

namespace vorna::app {
namespace {

using contracts::Bytes;

constexpr size_t kBodyChunk = 65536;

bool equalsIgnoringCase(const std::string& a, const char* b) {
  return g_ascii_strcasecmp(a.c_str(), b) == 0;
}

std::string upper(std::string text) {
  for (char& c : text) {
    c = g_ascii_toupper(c);
  }
  return text;
}

// The percent-decoded path of a URL (a malformed escape stays as written);
// nothing when the URL cannot be parsed.
std::optional<std::string> decodedPath(const std::string& url) {
  std::optional<UrlParts> parts = UrlParts::parse(url);
  if (!parts) {
    return std::nullopt;
  }
  return UrlParts::percentDecode(parts->path).value_or(parts->path);
}

// "Tue, 03 Mar 2026 14:05:09 GMT", in English whatever the locale.
std::string httpDate(time_t seconds) {
  static const char* const kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  struct tm utc {};
  if (gmtime_r(&seconds, &utc) == nullptr) {
    return "";
  }
  char text[40];
  std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d GMT", kDays[utc.tm_wday],
                utc.tm_mday, kMonths[utc.tm_mon], utc.tm_year + 1900, utc.tm_hour, utc.tm_min,
                utc.tm_sec);
  return text;
}

bool startsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

// The engine's body stream, read on a pool thread. The stream object itself
// stays owned by the pending request, which is released on the main thread.
class EngineBodyStream : public RequestBodyStream {
 public:
  explicit EngineBodyStream(GInputStream* stream) : stream_(stream) {}
  long read(char* buffer, size_t capacity) override {
    GError* error = nullptr;
    gssize count = g_input_stream_read(stream_, buffer, capacity, nullptr, &error);
    g_clear_error(&error);
    return static_cast<long>(count);
  }
  void close() override { g_input_stream_close(stream_, nullptr, nullptr); }

 private:
  GInputStream* stream_;
};

}  // namespace

struct AppSchemeHandler::PendingRequest {
  contracts::GObjectPtr<WebKitURISchemeRequest> request;
  contracts::GObjectPtr<GInputStream> body;
};

AppSchemeHandler::AppSchemeHandler(std::shared_ptr<HostContext> host)
    : host_(std::move(host)),
      queue_(kQueueLabel, std::max(4u, std::thread::hardware_concurrency())),
      ledger_([](void* request, HTTPReply reply) {
        respond(static_cast<WebKitURISchemeRequest*>(request), std::move(reply));
      }) {}

void AppSchemeHandler::registerWith(WebKitWebContext* context, std::shared_ptr<HostContext> host) {
  auto handler = std::make_shared<AppSchemeHandler>(std::move(host));
  webkit_web_context_register_uri_scheme(
      context, kScheme,
      [](WebKitURISchemeRequest* request, gpointer data) {
        // Nothing may unwind into the engine; only running out of memory gets here.
        try {
          (*static_cast<std::shared_ptr<AppSchemeHandler>*>(data))->start(request);
        } catch (const std::exception& error) {
          std::fprintf(stderr, "Vorna: could not start a scheme request: %s\n", error.what());
        }
      },
      new std::shared_ptr<AppSchemeHandler>(std::move(handler)),
      [](gpointer data) { delete static_cast<std::shared_ptr<AppSchemeHandler>*>(data); });
  WebKitSecurityManager* security = webkit_web_context_get_security_manager(context);
  webkit_security_manager_register_uri_scheme_as_secure(security, kScheme);
  webkit_security_manager_register_uri_scheme_as_cors_enabled(security, kScheme);
}

void AppSchemeHandler::start(WebKitURISchemeRequest* request) {
  ledger_.start(request, [this, request] { begin(request); });
}

void AppSchemeHandler::begin(WebKitURISchemeRequest* request) {
  auto pending = std::make_shared<PendingRequest>();
  pending->request = contracts::GObjectPtr<WebKitURISchemeRequest>::ref(request);

  SchemeRequest copy;
  if (const char* uri = webkit_uri_scheme_request_get_uri(request)) {
    copy.url = uri;
  }
  if (const char* method = webkit_uri_scheme_request_get_http_method(request)) {
    copy.method = method;
  }
  if (SoupMessageHeaders* headers = webkit_uri_scheme_request_get_http_headers(request)) {
    SoupMessageHeadersIter iter;
    soup_message_headers_iter_init(&iter, headers);
    const char* name = nullptr;
    const char* value = nullptr;
    while (soup_message_headers_iter_next(&iter, &name, &value)) {
      copy.headers[name] = value;
    }
  }
  // Only /api/ calls read a body. The engine crashes inside get_http_body on a
  // Blob-backed body, so file loads (which never need one) do not ask for it,
  // and neither does a call whose body the page's guard did not turn into
  // bytes; api() refuses that call.
  std::optional<std::string> path = copy.url ? decodedPath(*copy.url) : std::nullopt;
  if (path && startsWith(*path, "/api/") && bodyMayBeRead(copy)) {
    pending->body = contracts::GObjectPtr<GInputStream>::adopt(
        webkit_uri_scheme_request_get_http_body(request));
    if (pending->body) {
      copy.bodyStream = std::make_shared<EngineBodyStream>(pending->body.get());
    }
  }

  std::weak_ptr<AppSchemeHandler> weak = weak_from_this();
  queue_.submit([weak, host = host_, copy = std::move(copy), pending]() mutable {
    HTTPReply reply;
    try {
      reply = answer(copy, *host);
    } catch (const std::exception& error) {
      reply = HTTPReply::error(500, error.what());
    }
    copy.bodyStream.reset();
    // The engine objects are released on the main thread, never here.
    postToMainThread([weak, reply = std::move(reply), pending = std::move(pending)]() mutable {
      if (auto handler = weak.lock()) {
        handler->ledger_.finish(pending->request.get(), std::move(reply));
      }
    });
  });
}

HTTPReply AppSchemeHandler::answer(const SchemeRequest& request, const HostContext& host) {
  if (!request.url) {
    return HTTPReply::error(400, "no url");
  }
  std::optional<std::string> path = decodedPath(*request.url);
  if (path && startsWith(*path, "/api/")) {
    return api(*request.url, request, host);
  }
  bool head = request.method && upper(*request.method) == "HEAD";
  if (path && startsWith(*path, kWorkspacePrefix)) {
    return workspaceFile(path->substr(std::char_traits<char>::length(kWorkspacePrefix) - 1), host,
                         head);
  }
  return file(*request.url, host, head);
}

HTTPReply AppSchemeHandler::workspaceFile(const std::string& path, const HostContext& host,
                                          bool head) {
  std::shared_ptr<contracts::BridgeHandling> bridge = host.bridge();
  if (!bridge) {
    return HTTPReply::error(503, "no workspace open");
  }
  // The bridge confines the path to the workspace like any other request's.
  HTTPReply reply = HTTPReply::from(
      bridge->handle(contracts::BridgeRequest::make("GET", "file", {{"path", path}}, {}, {})));
  if (head) {
    reply.body.clear();
  }
  return reply;
}

HTTPReply AppSchemeHandler::api(const std::string& url, const SchemeRequest& request,
                                const HostContext& host) {
  std::string method = request.method.value_or("GET");
  if (!bodyMayBeRead(request)) {
    return HTTPReply::error(400, kUnguardedBody);
  }
  std::optional<Bytes> body = requestBody(request);
  if (!body) {
    return HTTPReply::error(400, "could not read the request body");
  }
  if (decodedPath(url) == "/api/__probe") {
    return HTTPReply::from(contracts::BridgeResponse::json(
        200, contracts::Json{{"bytes", static_cast<int64_t>(body->size())}}));
  }
  std::shared_ptr<contracts::BridgeHandling> bridge = host.bridge();
  if (!bridge) {
    return HTTPReply::error(503, "no workspace open");
  }
  std::optional<contracts::BridgeRequest> bridgeRequest =
      contracts::BridgeRequest::fromUrl(url, method, request.headers, std::move(*body));
  if (!bridgeRequest) {
    return HTTPReply::error(400, "bad request");
  }
  return HTTPReply::from(bridge->handle(*bridgeRequest));
}

bool AppSchemeHandler::bodyMayBeRead(const SchemeRequest& request) {
  std::string method = upper(request.method.value_or("GET"));
  if (method == "GET" || method == "HEAD") {
    return true;
  }
  for (const auto& [name, value] : request.headers) {
    if (equalsIgnoringCase(name, UserScripts::kBodyHeader) &&
        value == UserScripts::kBodyHeaderValue) {
      return true;
    }
  }
  return false;
}

std::optional<Bytes> AppSchemeHandler::requestBody(const SchemeRequest& request) {
  if (request.body) {
    return *request.body;
  }
  if (!request.bodyStream) {
    return Bytes();
  }
  Bytes bytes;
  std::unique_ptr<char[]> buffer(new char[kBodyChunk]);
  for (;;) {
    long count = request.bodyStream->read(buffer.get(), kBodyChunk);
    if (count == 0) {
      request.bodyStream->close();
      return bytes;
    }
    if (count < 0) {
      request.bodyStream->close();
      return std::nullopt;
    }
    bytes.append(buffer.get(), static_cast<size_t>(count));
  }
}

HTTPReply AppSchemeHandler::file(const std::string& url, const HostContext& host, bool head) {
  if (!host.appDirectory()) {
    return HTTPReply::error(500, "the editor (_app/) was not found next to this executable");
  }
  storage::FileSystem& fs = storage::FileSystem::real();
  std::string root = recovery::resolvedPath(*host.appDirectory(), fs);
  std::string rootPrefix = root.back() == '/' ? root : root + "/";

  std::string relative = decodedPath(url).value_or("");
  size_t first = relative.find_first_not_of('/');
  relative = first == std::string::npos ? "index.html" : relative.substr(first);
  if (relative.find('\0') != std::string::npos) {
    return HTTPReply::error(404, "not found: " + relative);  // no file name holds a NUL
  }
  std::string candidate = recovery::standardisedPath(rootPrefix + relative);
  if (!startsWith(candidate, rootPrefix)) {
    return HTTPReply::error(403, "outside the editor folder");
  }
  std::string target = recovery::canonicalPath(candidate, fs).value_or(candidate);
  if (!startsWith(target, rootPrefix) && target != root) {
    return HTTPReply::error(403, "outside the editor folder");
  }
  struct stat info {};
  if (fs.stat(target, &info) != 0 || S_ISDIR(info.st_mode)) {
    return HTTPReply::error(404, "not found: " + relative);
  }
  Bytes bytes;
  try {
    bytes = storage::readFileWhole(target);
  } catch (const storage::FileOpError&) {
    return HTTPReply::error(404, "not readable: " + relative);
  }
  HTTPReply reply;
  reply.status = 200;
  reply.headers["Content-Type"] = std::string(bridge::ContentTypes::forPath(target));
  std::string modified = httpDate(info.st_mtim.tv_sec);
  if (!modified.empty()) {
    reply.headers["Last-Modified"] = modified;
  }
  if (!head) {
    reply.body = std::move(bytes);
  }
  return reply;
}

std::map<std::string, std::string> AppSchemeHandler::deliveryHeaders(const HTTPReply& reply) {
  std::map<std::string, std::string> headers;
  for (const auto& [name, value] : reply.headers) {
    if (!equalsIgnoringCase(name, "Cache-Control") && !equalsIgnoringCase(name, "Content-Length") &&
        !equalsIgnoringCase(name, "Content-Security-Policy")) {
      headers[name] = value;
    }
  }
  headers["Cache-Control"] = "no-store";
  headers["Content-Length"] = std::to_string(reply.body.size());
  headers["Content-Security-Policy"] = kContentSecurityPolicy;
  return headers;
}

void AppSchemeHandler::respond(WebKitURISchemeRequest* request, HTTPReply reply) {
  if (reply.status < 100 || reply.status > 599) {
    contracts::GErrorPtr error(
        g_error_new(G_IO_ERROR, G_IO_ERROR_INVALID_DATA, "bad server response"));
    webkit_uri_scheme_request_finish_error(request, error.get());
    return;
  }
  std::map<std::string, std::string> headers = deliveryHeaders(reply);
  const char* method = webkit_uri_scheme_request_get_http_method(request);
  bool head = method != nullptr && g_ascii_strcasecmp(method, "HEAD") == 0;

  // The body moves into the stream without a copy; GBytes frees it.
  auto* body = new Bytes(head ? Bytes() : std::move(reply.body));
  contracts::GBytesPtr bytes(g_bytes_new_with_free_func(
      body->data(), body->size(), [](gpointer data) { delete static_cast<Bytes*>(data); }, body));
  auto stream =
      contracts::GObjectPtr<GInputStream>::adopt(g_memory_input_stream_new_from_bytes(bytes.get()));
  auto length = static_cast<gint64>(g_bytes_get_size(bytes.get()));
  auto response = contracts::GObjectPtr<WebKitURISchemeResponse>::adopt(
      webkit_uri_scheme_response_new(stream.get(), length));
  webkit_uri_scheme_response_set_status(response.get(), static_cast<guint>(reply.status),
                                        soup_status_get_phrase(static_cast<guint>(reply.status)));
  // The page sees a Content-Type only inside the header map; the engine's own
  // MIME type (rendering, module scripts) comes from set_content_type. Both.
  SoupMessageHeaders* soupHeaders = soup_message_headers_new(SOUP_MESSAGE_HEADERS_RESPONSE);
  for (const auto& [name, value] : headers) {
    soup_message_headers_append(soupHeaders, name.c_str(), value.c_str());
    if (equalsIgnoringCase(name, "Content-Type")) {
      webkit_uri_scheme_response_set_content_type(response.get(), value.c_str());
    }
  }
  webkit_uri_scheme_response_set_http_headers(response.get(), soupHeaders);  // takes ownership
  webkit_uri_scheme_request_finish_with_response(request, response.get());
}

}  // namespace vorna::app
