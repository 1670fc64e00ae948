// Chooses the /api transport once per document and routes every /api/ fetch
// through it. Over the scheme every body is re-read as bytes: the engine
// hands a Blob-backed body to the scheme handler as nothing at all, and the
// editor saves pages as Blobs.
(function () {
  'use strict';
  if (window.__vornaBridgeInstalled) return;
  window.__vornaBridgeInstalled = true;
  var savedFetch = window.fetch.bind(window);
  window.__vornaBridgeMode = 'scheme';

  var probeBody = 'vorna-probe-body';
  var probeHeaders = {};
  probeHeaders["@BODY_HEADER@"] = "@BODY_HEADER_VALUE@";
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
