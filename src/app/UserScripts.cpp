#include "app/UserScripts.h"

#include <string>

#include "contracts/Json.h"

namespace vorna::app {
namespace {

// Gives the page a working localStorage when the engine refuses one. Nothing
// is kept across loads.
constexpr const char* kStorageShim = R"JS((function () {
  'use strict';
  try {
    window.localStorage.getItem('__vorna_probe__');
    return;
  } catch (e) {}
  var store = Object.create(null);
  var storage = {
    getItem: function (k) {
      k = String(k);
      return k in store ? store[k] : null;
    },
    setItem: function (k, v) { store[String(k)] = String(v); },
    removeItem: function (k) { delete store[String(k)]; },
    clear: function () { store = Object.create(null); },
    key: function (i) {
      var keys = Object.keys(store);
      return i >= 0 && i < keys.length ? keys[i] : null;
    }
  };
  Object.defineProperty(storage, 'length', {
    get: function () { return Object.keys(store).length; }
  });
  try {
    Object.defineProperty(window, 'localStorage', {
      configurable: true,
      get: function () { return storage; }
    });
  } catch (e) {}
})();
)JS";

// Chooses the /api transport once per document and routes every /api/ fetch
// through it. Over the scheme every body is re-read as bytes: the engine
// hands a Blob-backed body to the scheme handler as nothing at all, and the
// editor saves pages as Blobs.
constexpr const char* kBridgeShim = R"JS((function () {
  'use strict';
  if (window.__vornaBridgeInstalled) return;
  window.__vornaBridgeInstalled = true;
  var savedFetch = window.fetch.bind(window);
  window.__vornaBridgeMode = 'scheme';

  var probeBody = 'vorna-probe-body';
  var probeHeaders = {};
  probeHeaders[@BODY_HEADER@] = @BODY_HEADER_VALUE@;
  window.__vornaBridgeReady = (async function () {
    var mode = 'message';
    try {
      var response = await savedFetch('/api/__probe',
                                      { method: 'PUT', headers: probeHeaders, body: probeBody });
      var answer = await response.json();
      if (answer && answer.bytes === probeBody.length) mode = 'scheme';
    } catch (e) {
      mode = 'message';
    }
    window.__vornaBridgeMode = mode;
    return mode;
  })();

  function bytesToBase64(bytes) {
    var parts = [];
    for (var i = 0; i < bytes.length; i += 0x8000) {
      parts.push(String.fromCharCode.apply(null, bytes.subarray(i, i + 0x8000)));
    }
    return btoa(parts.join(''));
  }

  function base64ToBytes(text) {
    var binary = atob(text);
    var bytes = new Uint8Array(binary.length);
    for (var i = 0; i < binary.length; i++) bytes[i] = binary.charCodeAt(i);
    return bytes;
  }

  async function viaMessage(url, request) {
    var query = {};
    url.searchParams.forEach(function (value, key) { query[key] = value; });
    var headers = {};
    request.headers.forEach(function (value, key) { headers[key] = value; });
    var body = new Uint8Array(0);
    if (request.method !== 'GET' && request.method !== 'HEAD') {
      body = new Uint8Array(await request.arrayBuffer());
    }
    var reply = await window.webkit.messageHandlers.vorna.postMessage({
      method: request.method,
      op: url.pathname.slice('/api/'.length),
      query: query,
      headers: headers,
      bodyBase64: bytesToBase64(body)
    });
    var status = reply && reply.status ? reply.status : 500;
    var nullBody = status === 204 || status === 205 || status === 304;
    var bytes = reply && typeof reply.bodyBase64 === 'string'
        ? base64ToBytes(reply.bodyBase64) : new Uint8Array(0);
    return new Response(nullBody ? null : bytes,
                        { status: status, headers: (reply && reply.headers) || undefined });
  }

  async function viaScheme(request) {
    if (request.method === 'GET' || request.method === 'HEAD') return savedFetch(request);
    var body = await request.arrayBuffer();
    return savedFetch(request.url, { method: request.method, headers: request.headers, body: body });
  }

  window.fetch = async function (input, init) {
    var url;
    try {
      url = new URL(input instanceof Request ? input.url : String(input), location.href);
    } catch (e) {
      return savedFetch(input, init);
    }
    if (url.protocol !== 'vorna:' || url.pathname.indexOf('/api/') !== 0) {
      return savedFetch(input, init);
    }
    var request;
    try {
      request = new Request(input, init);
    } catch (e) {
      return savedFetch(input, init);
    }
    await window.__vornaBridgeReady;
    return window.__vornaBridgeMode === 'message' ? viaMessage(url, request) : viaScheme(request);
  };
})();
)JS";

// Runs in every frame, so that no frame can hand the engine a Blob-backed
// body for the host's scheme, and marks every body it let through: the host
// reads no body without the mark. Objects may come from another frame's
// realm, so types are told by their tag rather than by instanceof. Targets
// resolve against the document's base URL, as the engine resolves them (an
// about:srcdoc frame takes its parent's); one that cannot be resolved is
// treated as the host's.
constexpr const char* kBodyGuardTemplate = R"JS((function () {
  'use strict';
  if (window.__vornaBodyGuard) return;
  Object.defineProperty(window, '__vornaBodyGuard', { value: true });
  var REFUSAL = @FORMDATA_REFUSAL@;
  var BLOB_REFUSAL = @BLOB_REFUSAL@;
  var MARK = @BODY_HEADER@;
  var MARK_VALUE = @BODY_HEADER_VALUE@;

  function tag(value) { return Object.prototype.toString.call(value); }
  function isBlob(value) { return tag(value) === '[object Blob]' || tag(value) === '[object File]'; }
  function isFormData(value) { return tag(value) === '[object FormData]'; }
  function isRequest(value) { return tag(value) === '[object Request]'; }
  function holdsBlob(formData) {
    var found = false;
    formData.forEach(function (value) { if (isBlob(value)) found = true; });
    return found;
  }
  function toHost(target) {
    try {
      return new URL(String(target), document.baseURI).protocol === 'vorna:';
    } catch (e) {
      return true;
    }
  }
  function carriesBody(method) {
    method = String(method || 'GET').toUpperCase();
    return method !== 'GET' && method !== 'HEAD';
  }
  // The request's own headers and the caller's, with the mark; a blob's type
  // as Content-Type when none is given.
  function marked(input, init, blob) {
    var headers = new Headers(init && init.headers !== undefined ? init.headers
        : (isRequest(input) ? input.headers : undefined));
    if (blob && blob.type && !headers.has('Content-Type')) headers.set('Content-Type', blob.type);
    headers.set(MARK, MARK_VALUE);
    return headers;
  }

  var originalFetch = window.fetch;
  window.fetch = function (input, init) {
    var target = isRequest(input) ? input.url : input;
    if (!toHost(target)) return originalFetch.apply(window, arguments);
    var method = init && init.method !== undefined ? init.method
        : (isRequest(input) ? input.method : 'GET');
    if (!carriesBody(method)) return originalFetch.apply(window, arguments);
    var body = init ? init.body : undefined;
    if (body !== undefined && body !== null) {
      if (isFormData(body) && holdsBlob(body)) return Promise.reject(new TypeError(REFUSAL));
      if (!isBlob(body)) {
        return originalFetch.call(window, input,
                                  Object.assign({}, init, { headers: marked(input, init) }));
      }
      return body.arrayBuffer().then(function (bytes) {
        return originalFetch.call(window, input,
            Object.assign({}, init, { body: bytes, headers: marked(input, init, body) }));
      });
    }
    if (isRequest(input)) {
      var request = input;
      return request.clone().arrayBuffer().then(function (bytes) {
        return originalFetch.call(window, new Request(request,
            Object.assign({}, init, { body: bytes, headers: marked(request, init) })));
      }, function () {
        throw new TypeError(REFUSAL);
      });
    }
    return originalFetch.call(window, input,
                              Object.assign({}, init, { headers: marked(input, init) }));
  };

  var XHR = window.XMLHttpRequest;
  if (XHR) {
    var state = new WeakMap();
    var open = XHR.prototype.open;
    var send = XHR.prototype.send;
    var setRequestHeader = XHR.prototype.setRequestHeader;
    XHR.prototype.open = function (method, url, async) {
      state.set(this, { host: toHost(url) && carriesBody(method),
                        async: arguments.length < 3 || !!async, typed: false });
      return open.apply(this, arguments);
    };
    XHR.prototype.setRequestHeader = function (name) {
      var s = state.get(this);
      if (s && String(name).toLowerCase() === 'content-type') s.typed = true;
      return setRequestHeader.apply(this, arguments);
    };
    XHR.prototype.send = function (body) {
      var s = state.get(this);
      if (!s || !s.host) return send.apply(this, arguments);
      if (isFormData(body) && holdsBlob(body)) throw new TypeError(REFUSAL);
      if (!isBlob(body)) {
        setRequestHeader.call(this, MARK, MARK_VALUE);
        return send.apply(this, arguments);
      }
      if (!s.async) throw new TypeError(BLOB_REFUSAL);
      var xhr = this;
      body.arrayBuffer().then(function (bytes) {
        if (body.type && !s.typed) setRequestHeader.call(xhr, 'Content-Type', body.type);
        setRequestHeader.call(xhr, MARK, MARK_VALUE);
        send.call(xhr, bytes);
      }).catch(function () {});
    };
  }

  if (navigator.sendBeacon) {
    var sendBeacon = navigator.sendBeacon;
    navigator.sendBeacon = function (url, data) {
      if (toHost(url) && isFormData(data) && holdsBlob(data)) throw new TypeError(REFUSAL);
      if (toHost(url) && isBlob(data)) throw new TypeError(BLOB_REFUSAL);
      return sendBeacon.apply(navigator, arguments);
    };
  }
})();
)JS";

void replaceMarker(std::string& source, const std::string& marker, const char* text) {
  source.replace(source.find(marker), marker.size(), contracts::writeJson(contracts::Json(text)));
}

// A script with the host's texts and the body mark written in.
std::string withTexts(const char* script) {
  std::string source = script;
  for (const auto& [marker, text] :
       {std::pair{"@FORMDATA_REFUSAL@", UserScripts::kFormDataRefusal},
        std::pair{"@BLOB_REFUSAL@", UserScripts::kBlobRefusal},
        std::pair{"@BODY_HEADER@", UserScripts::kBodyHeader},
        std::pair{"@BODY_HEADER_VALUE@", UserScripts::kBodyHeaderValue}}) {
    if (source.find(marker) != std::string::npos) {
      replaceMarker(source, marker, text);
    }
  }
  return source;
}

}  // namespace

const std::vector<UserScript>& UserScripts::all() {
  static const std::vector<UserScript> scripts = {{kStorageShim, true},
                                                  {withTexts(kBridgeShim), true}};
  return scripts;
}

const UserScript& UserScripts::bodyGuard() {
  static const UserScript guard{withTexts(kBodyGuardTemplate), false};
  return guard;
}

}  // namespace vorna::app
