import { test, describe } from 'node:test';
import assert from 'node:assert/strict';
import { createApi } from '../js/api.js';
import { DRAFT_THROTTLE_MS, NotTextError, Session } from '../js/session.js';
import { FakeHost, FakeTimers, settle, sha } from './fake-host.mjs';

const PAGE = '/ws/a.html';

// A session with PAGE open; `draft` ({ text, base }) is stored before the open.
async function setup({ files = { 'a.html': '<p>one</p>\n' }, textSource, draft } = {}) {
  const host = new FakeHost('/ws', files);
  if (draft) host.answer('PUT', 'draft', { path: PAGE }, { 'x-vn-base': draft.base }, draft.text);
  const timers = new FakeTimers();
  const events = [];
  const session = new Session({ api: createApi(host.fetch), timers, textSource, onChange: (kind, detail) => events.push({ kind, ...detail }) });
  await session.open(PAGE);
  await settle();
  host.requests.length = 0;
  return { host, timers, session, events, kinds: () => events.map((e) => e.kind) };
}

describe('base tracking', () => {
  test('typing during a save leaves the page dirty against the saved version', async () => {
    const { host, session } = await setup();
    session.setText('<p>saved</p>');
    const release = host.hold('PUT', 'file');
    const saving = session.save();
    session.setText('<p>saved and more</p>');
    release();
    await saving;
    assert.equal(session.base, sha('<p>saved</p>'));
    assert.equal(session.dirty, true);
  });

  test('a second save requested while one is in flight runs after it with the new base', async () => {
    const { host, session } = await setup();
    session.setText('x1');
    const release = host.hold('PUT', 'file');
    const first = session.save();
    session.setText('x2');
    const second = session.save();
    release();
    await first;
    await second;
    await settle();
    const puts = host.log('PUT', 'file');
    assert.equal(puts.length, 2);
    assert.equal(puts[1].headers['x-vn-base'], sha('x1'));
    assert.equal(host.files.get(PAGE), 'x2');
    assert.equal(session.dirty, false);
  });

  test('a failed save keeps the text dirty and reports the host error', async () => {
    const { host, session, events } = await setup();
    session.setText('mine');
    host.failNext('PUT', 'file', 507, 'recovery store unavailable: disk full');
    const result = await session.save();
    assert.equal(result.ok, false);
    assert.equal(session.dirty, true);
    assert.equal(session.base, sha('<p>one</p>\n'));
    assert.equal(events.find((e) => e.kind === 'error').error.message, 'recovery store unavailable: disk full');
  });
});

test('the dirty marker: editing back to the saved text clears it, and then no draft is stored and a save sends nothing', async () => {
  const { host, timers, session, kinds } = await setup();
  session.setText('<p>changed</p>\n');
  assert.equal(session.dirty, true);
  session.setText('<p>one</p>\n');
  assert.equal(session.dirty, false);
  assert.deepEqual(kinds().filter((k) => k === 'dirty').length, 2);
  await timers.advance(DRAFT_THROTTLE_MS * 2);
  assert.equal((await session.save()).unchanged, true);
  assert.equal(host.requests.length, 0);
});

describe('drafts while typing', () => {
  test('continuous typing stores a draft within a second of any keystroke, with the base, and none once it stops', async () => {
    let current = '';
    const { host, timers, session } = await setup({ textSource: () => current });
    for (let i = 1; i <= 12; i++) {
      current = 'a'.repeat(i);
      session.edited(true);
      await timers.advance(DRAFT_THROTTLE_MS / 4);
    }
    await timers.advance(DRAFT_THROTTLE_MS * 5);
    const drafts = host.log('PUT', 'draft');
    assert.deepEqual(drafts.map((d) => d.body.length), [4, 8, 12]);
    assert.equal(drafts[0].headers['x-vn-base'], sha('<p>one</p>\n'));
  });

  test('a successful save discards the draft, after any draft write still under way', async () => {
    const { host, timers, session } = await setup();
    session.setText('typed');
    const release = host.hold('PUT', 'draft');
    await timers.advance(DRAFT_THROTTLE_MS);
    await session.save();
    release();
    await settle();
    const order = host.requests.map((r) => `${r.method} ${r.op}`);
    assert.deepEqual(order, ['PUT draft', 'PUT file', 'DELETE draft']);
    assert.equal(host.drafts.every((d) => d.discarded), true);
    assert.equal(timers.pending, 0);
  });

  test('an edit reported by the editor arms the throttle, which reads the exact text then', async () => {
    let current = 'x';
    const { host, timers, session } = await setup({ files: { 'a.html': 'x' }, textSource: () => current });
    current = 'x\r\ny';
    session.edited(true);
    assert.equal(session.dirty, true);
    await timers.advance(DRAFT_THROTTLE_MS);
    assert.equal(host.log('PUT', 'draft')[0].body, 'x\r\ny');
  });

  test('flush, the host\'s question before the editor goes, stores unsaved text at once, after a save under way', async () => {
    const { host, session } = await setup();
    session.setText('saving');
    const release = host.hold('PUT', 'file');
    session.save();
    session.setText('saving and more');
    const flushed = session.flush();
    release();
    await flushed;
    assert.deepEqual(host.requests.map((r) => `${r.method} ${r.op}`), ['PUT file', 'PUT draft']);
    assert.equal(host.log('PUT', 'draft')[0].body, 'saving and more');
  });
});

test('a file with NUL bytes is not opened', async () => {
  const host = new FakeHost('/ws', { 'a.html': Buffer.from('a\0b', 'latin1') });
  const session = new Session({ api: createApi(host.fetch), timers: new FakeTimers() });
  await assert.rejects(session.open(PAGE), NotTextError);
  assert.equal(session.path, null);
});

describe('drafts found when opening', () => {
  const withDraft = (text, base) => setup({ files: { 'a.html': 'disk' }, draft: { text, base } });

  test('a draft typed over an older version keeps that base, so saving it meets the newer disk as a conflict', async () => {
    const { host, session } = await withDraft('draft text', sha('older'));
    await session.restoreDraft();
    assert.equal(session.base, sha('older'));
    const result = await session.save();
    assert.ok(result.conflict);
    assert.equal(host.files.get(PAGE), 'disk');
  });

  test('a draft equal to the disk is dropped without an offer', async () => {
    const { host, events } = await withDraft('disk', sha('disk'));
    assert.equal(events.some((e) => e.kind === 'draft-offer'), false);
    assert.deepEqual(host.drafts.map((d) => d.discarded), [true]);
  });

  test('discarding the offer deletes the draft and keeps the disk text', async () => {
    const { host, session } = await withDraft('draft text', sha('disk'));
    await session.discardDraftOffer();
    assert.equal(host.log('DELETE', 'draft').length, 1);
    assert.equal(session.draftOffer, null);
    assert.equal(session.dirty, false);
  });
});

describe('conflicts on save', () => {
  test('a 409 keeps the text and base and reports the record and the disk fingerprint', async () => {
    const { host, session, events } = await setup();
    host.files.set(PAGE, 'someone else');
    session.setText('mine');
    const result = await session.save();
    assert.equal(result.ok, false);
    assert.equal(session.text, 'mine');
    assert.equal(session.dirty, true);
    assert.equal(session.base, sha('<p>one</p>\n'));
    const { conflict } = events.find((e) => e.kind === 'conflict');
    assert.equal(conflict.diskFingerprint, sha('someone else'));
    assert.deepEqual(conflict.record.candidates.map((c) => c.role), ['base', 'editor', 'disk']);
  });

  test('a conflict the host could not record still reports its error text', async () => {
    const { host, session } = await setup();
    host.failNext('PUT', 'file', 409, 'conflict', { kind: 'externalVersion', fingerprint: sha('d'), conflict_error: 'recovery store unavailable: x' });
    session.setText('mine');
    const result = await session.save();
    assert.equal(result.conflict.record, null);
    assert.equal(result.conflict.error, 'recovery store unavailable: x');
  });

  test('choosing the editor candidate keeps typing done since; another candidate loads the page from disk', async () => {
    const { host, session } = await setup();
    session.setText('mine plus more');
    await session.adoptResolution({ fingerprint: sha('mine'), text: 'mine', keepEditorText: true });
    assert.equal(session.text, 'mine plus more');
    assert.equal(session.base, sha('mine'));
    assert.equal(session.dirty, true);
    host.files.set(PAGE, 'theirs');
    await session.adoptResolution({ fingerprint: sha('theirs'), text: 'theirs', keepEditorText: false });
    assert.equal(session.text, 'theirs');
    assert.equal(session.base, sha('theirs'));
    assert.equal(session.dirty, false);
  });
});

describe('outside changes', () => {
  test('a dirty page is flagged, not replaced; reload replaces the edits, keep editing keeps the old base', async () => {
    const { host, session } = await setup();
    session.setText('mine');
    host.files.set(PAGE, 'theirs');
    await session.externalChange({ type: 'changed', kind: 'modified', path: PAGE, fingerprint: sha('theirs') });
    assert.deepEqual(session.disk, { state: 'modified', fingerprint: sha('theirs') });
    assert.equal(session.text, 'mine');
    session.keepEditing();
    assert.equal(session.disk, null);
    assert.equal(session.base, sha('<p>one</p>\n'));
    await session.reload({ discard: true });
    assert.equal(session.text, 'theirs');
    assert.equal(session.dirty, false);
  });

  test('an event carrying the fingerprint the editor holds is ignored; without one a dirty page asks stat first', async () => {
    const { host, session } = await setup();
    session.setText('mine');
    await session.externalChange({ type: 'changed', kind: 'modified', path: PAGE, fingerprint: session.base });
    assert.equal(session.disk, null);
    assert.equal(host.requests.length, 0);
    await session.externalChange({ type: 'changed', kind: 'modified', path: PAGE });
    assert.equal(host.log('GET', 'stat').length, 1);
    assert.equal(session.disk, null);
  });

  test('an event arriving while a save is in flight is judged against the saved version', async () => {
    const { host, session } = await setup();
    session.setText('mine');
    const releasePut = host.hold('PUT', 'file');
    const releaseGet = host.hold('GET', 'file');
    const saving = session.save();
    // Another program writes right after our save; its event overtakes our answer.
    await session.externalChange({ type: 'changed', kind: 'modified', path: PAGE, fingerprint: sha('theirs') });
    releasePut();
    await saving;
    host.files.set(PAGE, 'theirs');
    releaseGet();
    await settle();
    assert.equal(session.text, 'theirs');
    assert.equal(session.base, sha('theirs'));
  });

  test('typing while a reload is being read wins over the reload', async () => {
    const { host, session } = await setup();
    host.files.set(PAGE, 'theirs');
    const release = host.hold('GET', 'file');
    const change = session.externalChange({ type: 'changed', kind: 'modified', path: PAGE, fingerprint: sha('theirs') });
    await settle();
    session.setText('typed meanwhile');
    release();
    await change;
    assert.equal(session.text, 'typed meanwhile');
    assert.equal(session.disk.state, 'modified');
  });

  test('removing the page or a folder above it flags the page as removed, and it can be written again as a new file', async () => {
    const { host, session } = await setup();
    session.setText('keep me');
    await session.externalChange({ type: 'changed', kind: 'removed', path: '/ws/a.html.bak' });
    assert.equal(session.disk, null);
    host.files.delete(PAGE);
    await session.externalChange({ type: 'changed', kind: 'removed', path: PAGE });
    assert.equal(session.disk.state, 'removed');
    const result = await session.recreate();
    assert.equal(result.ok, true);
    assert.equal(host.files.get(PAGE), 'keep me');
    assert.equal(session.base, sha('keep me'));
    assert.equal(session.disk, null);
    await session.externalChange({ type: 'changed', kind: 'removed', path: '/ws' });
    assert.equal(session.disk.state, 'removed');
  });
});

test('an open superseded by a later one does not take over', async () => {
  const host = new FakeHost('/ws', { 'a.html': 'A', 'b.html': 'B' });
  const session = new Session({ api: createApi(host.fetch), timers: new FakeTimers() });
  const release = host.hold('GET', 'file');
  const first = session.open('/ws/a.html');
  await settle();
  release();
  const second = session.open('/ws/b.html');
  assert.equal(await first, false);
  assert.equal(await second, true);
  assert.equal(session.path, '/ws/b.html');
  assert.equal(session.text, 'B');
});
