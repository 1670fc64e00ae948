// Runs in every frame, so that no frame can hand the engine a Blob-backed
// body for the host's scheme, and marks every body it let through: the host
// reads no body without the mark. Objects may come from another frame's
// realm, so types are told by their tag rather than by instanceof. Targets
// resolve against the document's base URL, as the engine resolves them (an
// about:srcdoc frame takes its parent's); one that cannot be resolved is
// treated as the host's.
(function () {
  'use strict';
  if (window.__vornaBodyGuard) return;
  Object.defineProperty(window, '__vornaBodyGuard', { value: true });
  var REFUSAL = "@FORMDATA_REFUSAL@";
  var BLOB_REFUSAL = "@BLOB_REFUSAL@";
  var MARK = "@BODY_HEADER@";
  var MARK_VALUE = "@BODY_HEADER_VALUE@";

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
