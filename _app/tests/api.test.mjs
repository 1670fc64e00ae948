import { test, describe } from 'node:test';
import assert from 'node:assert/strict';
import { ApiError, createApi } from '../js/api.js';

function recorder(respond = () => new Response('{}', { status: 200 })) {
  const calls = [];
  const fetch = async (url, init) => {
    calls.push({ url, init });
    return respond(url, init);
  };
  return { calls, api: createApi(fetch) };
}

describe('requests', () => {
  test('paths are percent-encoded so that "+", spaces and "&" survive the query', async () => {
    const { calls, api } = recorder(() => new Response('[]'));
    await api.list('/My Site/a+b&c');
    assert.equal(calls[0].url, '/api/list?path=%2FMy%20Site%2Fa%2Bb%26c');
  });

  test('a save sends the text as a string body with the base header; a create sends no base', async () => {
    const { calls, api } = recorder();
    await api.saveFile('/ws/a.html', 'text', 'abc');
    await api.createFile('/ws/b.html', 'new');
    assert.equal(calls[0].init.method, 'PUT');
    assert.equal(typeof calls[0].init.body, 'string');
    assert.deepEqual(calls[0].init.headers, { 'X-VN-Base': 'abc' });
    assert.equal(calls[1].init.headers, undefined);
  });

  test('a save without a base is refused before it could turn into a create', async () => {
    const { calls, api } = recorder();
    await assert.rejects(api.saveFile('/ws/a.html', 'text', ''), ApiError);
    assert.equal(calls.length, 0);
  });

  test('a draft carries the base only when there is one', async () => {
    const { calls, api } = recorder();
    await api.putDraft('/ws/a.html', 't', 'abc');
    await api.putDraft('/ws/a.html', 't', null);
    assert.deepEqual(calls[0].init.headers, { 'X-VN-Base': 'abc' });
    assert.equal(calls[1].init.headers, undefined);
  });
});

describe('answers', () => {
  test('a file read gives the bytes as stored, with fingerprint and mtime', async () => {
    const stored = Buffer.from('\uFEFFcaf\xe9', 'latin1');
    const { api } = recorder(() => new Response(stored, { headers: { 'X-VN-Fingerprint': 'fp', 'X-QX-Mtime': '1063' } }));
    const file = await api.readFile('/ws/a.html');
    assert.deepEqual(Buffer.from(file.bytes), stored);
    assert.equal(file.fingerprint, 'fp');
    assert.equal(file.mtimeMs, 1063);
  });

  test('an error answer becomes an ApiError with the host\'s "error" text', async () => {
    const { api } = recorder(() => new Response('{"error":"not found: /ws/x.html"}', { status: 404 }));
    const err = await api.readFile('/ws/x.html').catch((e) => e);
    assert.ok(err instanceof ApiError);
    assert.equal(err.status, 404);
    assert.equal(err.message, 'not found: /ws/x.html');
  });

  test('503 is the no-workspace state and a 409 with "conflict" is a conflict', async () => {
    const { api } = recorder((url) => url.includes('list')
      ? new Response('{"error":"no workspace open"}', { status: 503 })
      : new Response('{"error":"conflict","kind":"externalVersion","fingerprint":"d"}', { status: 409 }));
    const none = await api.list('/').catch((e) => e);
    assert.equal(none.noWorkspace, true);
    const conflict = await api.saveFile('/ws/a', 'x', 'b').catch((e) => e);
    assert.equal(conflict.isConflict, true);
    assert.equal(conflict.body.fingerprint, 'd');
    const exists = new ApiError(409, 'exists', { error: 'exists' });
    assert.equal(exists.isConflict, false);
  });

  test('an answer that is not JSON, or a transport failure, still gives a readable error', async () => {
    const { api } = recorder(() => new Response('<html>oops', { status: 500 }));
    assert.equal((await api.stat('/ws').catch((e) => e)).message, 'GET stat failed with status 500');
    const broken = createApi(async () => { throw new TypeError('Load failed'); });
    const err = await broken.stat('/ws').catch((e) => e);
    assert.equal(err.status, 0);
    assert.match(err.message, /Load failed/);
  });
});
