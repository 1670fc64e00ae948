import { test, describe } from 'node:test';
import assert from 'node:assert/strict';
import { createApi } from '../js/api.js';
import { ConflictDesk, pickColumns } from '../js/conflicts.js';
import { FakeHost, sha } from './fake-host.mjs';

const PAGE = '/ws/a.html';

// A conflict made the way the host makes one: the editor saves over a base
// that another program has replaced.
async function conflicted() {
  const host = new FakeHost('/ws', { 'a.html': 'base\n' });
  const api = createApi(host.fetch);
  const loaded = await api.readFile(PAGE);
  host.files.set(PAGE, 'disk\n');
  const err = await api.saveFile(PAGE, 'mine\n', loaded.fingerprint).catch((e) => e);
  return { host, api, desk: new ConflictDesk({ api }), err };
}

describe('conflict desk', () => {
  test('pickColumns takes the latest candidate of each role', () => {
    const cols = pickColumns([
      { id: '1', role: 'base' }, { id: '2', role: 'editor' }, { id: '3', role: 'disk' }, { id: '4', role: 'editor' },
    ]);
    assert.deepEqual([cols.base.id, cols.editor.id, cols.disk.id], ['1', '4', '3']);
  });

  test('a fresh conflict loads every candidate with the 409\'s disk fingerprint; choosing resolves with that fingerprint', async () => {
    const { host, desk, err } = await conflicted();
    await desk.refresh();
    const view = await desk.load(err.body.conflict, { diskFingerprint: err.body.fingerprint });
    assert.deepEqual(view.candidates.map((c) => [c.role, c.text]), [['base', 'base\n'], ['editor', 'mine\n'], ['disk', 'disk\n']]);
    assert.equal(view.disk.fingerprint, sha('disk\n'));
    assert.equal(view.current, null);
    assert.equal(host.log('GET', 'stat').length, 0);
    const mine = view.candidates.find((c) => c.role === 'editor');
    const result = await desk.choose(view, mine.id);
    assert.equal(host.log('POST', 'resolve')[0].query.disk, sha('disk\n'));
    assert.equal(result.fingerprint, sha('mine\n'));
    assert.equal(host.files.get(PAGE), 'mine\n');
    assert.equal(desk.open.length, 0);
  });

  test('a conflict from an earlier session looks at the disk; a disk holding none of the candidates is shown as well', async () => {
    const { host, desk } = await conflicted();
    host.files.set(PAGE, 'changed again\n');
    const [conflict] = await desk.refresh();
    const view = await desk.load(conflict);
    assert.equal(view.disk.fingerprint, sha('changed again\n'));
    assert.equal(view.current.text, 'changed again\n');
  });

  test('when the disk moved after the panel was shown, resolve writes nothing and the view catches up', async () => {
    const { host, desk, err } = await conflicted();
    await desk.refresh();
    const view = await desk.load(err.body.conflict, { diskFingerprint: err.body.fingerprint });
    host.files.set(PAGE, 'newest\n');
    const base = view.candidates.find((c) => c.role === 'base');
    const failure = await desk.choose(view, base.id).catch((e) => e);
    assert.equal(failure.status, 409);
    assert.equal(failure.message, 'stale');
    assert.equal(host.files.get(PAGE), 'newest\n');
    assert.equal(view.disk.fingerprint, sha('newest\n'));
    assert.equal(view.current.text, 'newest\n');
    await desk.choose(view, base.id);
    assert.equal(host.files.get(PAGE), 'base\n');
  });

  test('a page that no longer exists cannot be resolved, only dismissed', async () => {
    const { host, desk } = await conflicted();
    host.files.delete(PAGE);
    const [conflict] = await desk.refresh();
    const view = await desk.load(conflict);
    assert.equal(view.disk.exists, false);
    await assert.rejects(desk.choose(view, view.candidates[0].id), /no longer exists/);
    assert.equal(host.log('POST', 'resolve').length, 0);
    const answer = await desk.dismiss(view);
    assert.equal(answer.closed, 1);
    assert.equal(desk.open.length, 0);
  });

  test('a candidate whose bytes are gone is marked, the others still load', async () => {
    const { host, desk, err } = await conflicted();
    host.payloads.delete(err.body.conflict.candidates[0].id);
    await desk.refresh();
    const view = await desk.load(err.body.conflict, { diskFingerprint: err.body.fingerprint });
    assert.equal(view.candidates[0].missing, true);
    assert.match(view.candidates[0].error, /no candidate/);
    assert.equal(view.candidates[1].text, 'mine\n');
  });
});
