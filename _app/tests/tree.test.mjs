import { test, describe } from 'node:test';
import assert from 'node:assert/strict';
import { createApi } from '../js/api.js';
import { TreeController, TreeModel } from '../js/tree.js';
import { FakeHost, FakeTimers } from './fake-host.mjs';

const names = (model, dir = model.root) => (model.get(dir).children || []).map((p) => model.get(p).name);

async function setup() {
  const host = new FakeHost('/ws', { 'a.html': '', 'page2.html': '', 'sub/x.html': '', 'sub/deep/y.html': '' });
  const timers = new FakeTimers();
  const changes = [];
  const tree = new TreeController({ api: createApi(host.fetch), root: '/ws', timers, onChange: (c) => changes.push(c) });
  await tree.list('/ws');
  host.requests.length = 0;
  return { host, timers, tree, model: tree.model, changes };
}

describe('tree model', () => {
  test('a new listing keeps the state of entries that are still there and drops the rest', () => {
    const model = new TreeModel('/ws');
    model.setListing('/ws', [{ name: 'sub', kind: 'directory' }, { name: 'old.html', kind: 'file' }]);
    model.get('/ws/sub').expanded = true;
    model.setListing('/ws/sub', [{ name: 'x.html', kind: 'file' }]);
    model.setListing('/ws', [{ name: 'new.html', kind: 'file' }, { name: 'sub', kind: 'directory' }]);
    assert.equal(model.get('/ws/sub').expanded, true);
    assert.deepEqual(names(model, '/ws/sub'), ['x.html']);
    assert.equal(model.get('/ws/old.html'), null);
    assert.equal(model.count(), 3);
    // An entry that turned from file into folder loses its old state.
    model.setListing('/ws', [{ name: 'sub', kind: 'file' }]);
    assert.equal(model.get('/ws/sub').kind, 'file');
    assert.equal(model.get('/ws/sub/x.html'), null);
  });

  test('rows show the children of expanded folders only, depth first', () => {
    const model = new TreeModel('/ws');
    model.setListing('/ws', [{ name: 'a', kind: 'directory' }, { name: 'b.html', kind: 'file' }]);
    model.setListing('/ws/a', [{ name: 'c.html', kind: 'file' }]);
    assert.deepEqual(model.rows().map((r) => r.node.name), ['a', 'b.html']);
    model.get('/ws/a').expanded = true;
    assert.deepEqual(model.rows().map((r) => [r.node.name, r.depth]), [['a', 0], ['c.html', 1], ['b.html', 0]]);
    assert.deepEqual(model.entries().map((e) => e.path), ['/ws/a', '/ws/a/c.html', '/ws/b.html']);
  });

  test('insert puts a name where the host would list it (digits by value, case ignored)', () => {
    const model = new TreeModel('/ws');
    model.setListing('/ws', [{ name: 'page2.html', kind: 'file' }, { name: 'page10.html', kind: 'file' }]);
    model.insert('/ws/Page3.html', 'file');
    assert.deepEqual(names(model), ['page2.html', 'Page3.html', 'page10.html']);
    assert.equal(model.insert('/ws/unlisted/x.html', 'file'), false);
  });

  test('moving a folder carries its listed subtree and expanded state', () => {
    const model = new TreeModel('/ws');
    model.setListing('/ws', [{ name: 'a', kind: 'directory' }, { name: 'z', kind: 'directory' }]);
    model.setListing('/ws/a', [{ name: 'c.html', kind: 'file' }]);
    model.get('/ws/a').expanded = true;
    model.move('/ws/a', '/ws/m');
    assert.deepEqual(names(model), ['m', 'z']);
    assert.equal(model.get('/ws/m').expanded, true);
    assert.deepEqual(names(model, '/ws/m'), ['c.html']);
    assert.equal(model.get('/ws/m/c.html').path, '/ws/m/c.html');
    assert.equal(model.get('/ws/a/c.html'), null);
  });
});

describe('tree controller and change events', () => {
  test('a removal is applied at once, with everything below it', async () => {
    const { tree, model } = await setup();
    await tree.toggle('/ws/sub');
    tree.handleChange({ type: 'changed', kind: 'removed', path: '/ws/sub' });
    assert.equal(model.get('/ws/sub'), null);
    assert.equal(model.get('/ws/sub/x.html'), null);
    assert.deepEqual(names(model), ['a.html', 'page2.html']);
  });

  test('a burst of creations relists the folder once, after a short pause', async () => {
    const { host, timers, tree, model } = await setup();
    host.write('/ws/b.html', '');
    host.dirs.add('/ws/newdir');
    tree.handleChange({ type: 'changed', kind: 'created', path: '/ws/b.html' });
    tree.handleChange({ type: 'changed', kind: 'created', path: '/ws/newdir' });
    tree.handleChange({ type: 'changed', kind: 'renamed', path: '/ws/b.html' });
    assert.equal(host.log('GET', 'list').length, 0);
    await timers.advance(1000);
    assert.equal(host.log('GET', 'list').length, 1);
    assert.deepEqual(names(model), ['a.html', 'b.html', 'newdir', 'page2.html', 'sub']);
    assert.equal(model.get('/ws/newdir').kind, 'directory');
  });

  test('events in folders never listed, outside the workspace, or modifying known files cost nothing', async () => {
    const { host, timers, tree } = await setup();
    tree.handleChange({ type: 'changed', kind: 'created', path: '/ws/sub/deep/z.html' });
    tree.handleChange({ type: 'changed', kind: 'created', path: '/elsewhere/z.html' });
    tree.handleChange({ type: 'changed', kind: 'modified', path: '/ws/a.html' });
    tree.handleChange({ type: 'changed', kind: 'modified', path: '/ws' });
    await timers.advance(1000);
    assert.equal(host.log('GET', 'list').length, 0);
  });

  test('a modification of an unknown entry is treated as a missed creation', async () => {
    const { host, timers, tree, model } = await setup();
    host.write('/ws/late.html', '');
    tree.handleChange({ type: 'changed', kind: 'modified', path: '/ws/late.html' });
    await timers.advance(1000);
    assert.ok(model.get('/ws/late.html'));
  });

  test('a folder that vanished before its relisting leaves the tree', async () => {
    const { host, timers, tree, model } = await setup();
    await tree.toggle('/ws/sub');
    for (const f of [...host.files.keys()]) if (f.startsWith('/ws/sub/')) host.files.delete(f);
    host.dirs.delete('/ws/sub');
    host.dirs.delete('/ws/sub/deep');
    tree.handleChange({ type: 'changed', kind: 'created', path: '/ws/sub/new.html' });
    await timers.advance(1000);
    assert.equal(model.get('/ws/sub'), null);
  });
});
