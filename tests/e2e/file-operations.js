// Create, rename and trash through the editor, a rename onto a page refused;
// a document handed to the desktop.
scenario(async (t) => {
  const created = await VN.newPage('fresh.html');
  t.equal(created.ok, true, 'a new page is created');
  t.equal(VN.path(), t.path('fresh.html'), 'the new page opens in the editor');
  const fresh = await t.read('fresh.html');
  t.equal(fresh.status, 200, 'the new page is on disk');
  t.check(fresh.text.includes('<h1>Fresh</h1>'), 'the new page starts from the page template');
  t.check(VN.entries().some((e) => e.path === t.path('fresh.html')), 'the new page is listed in the tree');

  const renamed = await VN.rename('fresh.html', 'renamed.html');
  t.equal(renamed.ok, true, 'the page is renamed');
  t.equal(VN.path(), t.path('renamed.html'), 'the open page follows the rename');
  t.equal(await t.status('fresh.html'), 404, 'the old name is gone');
  t.equal((await t.read('renamed.html')).text, fresh.text, 'the renamed page keeps its text');
  const clash = await VN.rename('renamed.html', 'index.html');
  t.same([clash.ok, clash.status, clash.error], [false, 409, 'destination exists'], 'renaming onto an existing page is refused');

  const trashed = await VN.trash('renamed.html');
  t.equal(trashed.ok, true, 'the page is moved to the trash');
  t.equal(VN.path(), null, 'the trashed page is closed');
  t.equal(await t.status('renamed.html'), 404, 'the trashed page is gone from the workspace');
  t.check(!VN.entries().some((e) => e.path === t.path('renamed.html')), 'the trashed page is no longer listed');
  t.ask('check-trashed', 'renamed.html');

  const notes = await VN.openExternally('notes.txt');
  t.same([notes.ok, notes.dryRun], [true, true], 'opening a document goes to the desktop (a dry run here)');
});
