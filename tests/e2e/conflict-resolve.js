// Another program writes the page while it has unsaved edits; saving then
// meets a stale base and becomes a conflict with base, editor and disk
// candidates, which is resolved in the conflicts panel by keeping the
// editor's version.
const theirs = '<!DOCTYPE html><html><body><p>Theirs, written by another program.</p></body></html>';

scenario(async (t) => {
  await t.open('a.html');
  const loadedBase = VN.base();
  t.type('  <p>Mine, typed in the editor.</p>\n', '</body>');
  await t.waitFor(() => VN.dirty(), 'typing to mark the page dirty');

  t.ask('write', 'a.html', theirs);
  await t.waitFor(() => VN.disk() && VN.disk().state === 'modified', 'the outside write to be flagged');
  t.check(t.banner('disk'), 'the "changed on disk" banner shows');
  t.check(VN.text().includes('Mine, typed in the editor.'), 'the edits stay in the editor');

  await t.waitFor(() => !document.getElementById('save-btn').disabled, 'Save to be enabled');
  t.click('#save-btn');
  const conflict = await t.waitFor(() => VN.conflict(), 'the save to become a conflict');
  if (!conflict) return;
  t.check(conflict.record !== null, 'the conflict was recorded');
  const candidates = conflict.record ? conflict.record.candidates : [];
  t.same(candidates.map((c) => c.role).sort(), ['base', 'disk', 'editor'], 'the conflict keeps base, editor and disk');
  const base = candidates.find((c) => c.role === 'base');
  t.equal(base && base.fingerprint, loadedBase, 'the base candidate is the version the editor loaded');
  t.equal(conflict.diskFingerprint, (await t.read('a.html')).fingerprint, 'the answer names the version on disk');
  t.equal((await t.read('a.html')).text, theirs, 'the disk keeps the other program\'s version');

  const panel = document.getElementById('conflicts-panel');
  await t.waitFor(() => panel.open && panel.querySelector('section[aria-label="Mine"] button'), 'the conflicts panel to show the versions');
  const text = (label) => {
    const pre = panel.querySelector(`section[aria-label="${label}"] pre`);
    return pre ? pre.textContent : '';
  };
  t.check(text('Base').includes('Original text of page A.'), 'the panel shows the base text');
  t.check(text('Mine').includes('Mine, typed in the editor.'), 'the panel shows the editor\'s text');
  t.check(text('Disk').includes('Theirs, written by another program.'), 'the panel shows the disk\'s text');

  t.click('#conflicts-panel section[aria-label="Mine"] button');
  await t.waitFor(() => !panel.open && VN.conflict() === null, 'the conflict to be resolved');
  const disk = await t.read('a.html');
  t.check(disk.text.includes('Mine, typed in the editor.'), 'the page on disk now holds the editor\'s version');
  t.equal(VN.base(), disk.fingerprint, 'the editor starts from the resolved version');
  t.equal(VN.dirty(), false, 'nothing is left unsaved');
  t.same(await VN.conflicts(), [], 'no conflict is left open');
});
