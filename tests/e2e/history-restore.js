// Three saves, then another program writes the page. In the History panel the
// first saved version is restored into the editor and saved: the disk holds
// it again, and the history now also lists the version that save displaced.
const theirs = '<!DOCTYPE html><html><body><p>Written by another program.</p></body></html>';

scenario(async (t) => {
  await t.open('a.html');
  const saved = [];
  for (let i = 1; i <= 3; i++) {
    t.type(`  <p>Saved text ${i}.</p>\n`, '</body>');
    await t.waitFor(() => VN.dirty(), `typing ${i} to mark the page dirty`);
    const result = await VN.save();
    t.check(result.ok, `save ${i} succeeds`);
    saved.push({ text: VN.text(), fingerprint: result.fingerprint });
  }
  t.ask('write', 'a.html', theirs);
  await t.waitFor(() => VN.text() === theirs, 'the outside write to reach the editor');

  t.click('#history-btn');
  const panel = document.getElementById('history-panel');
  await t.waitFor(() => panel.open && panel.querySelector('.hv-entry'), 'the History panel to list versions');
  const first = VN.history.versions().find((v) => v.fingerprint === saved[0].fingerprint && v.words === 'your save');
  if (!t.check(first, 'the first save is listed as one')) return;
  panel.querySelector(`.hv-entry[data-id="${first.id}"]`).click();
  const shown = await t.waitFor(() => VN.history.shown(), 'the version to be shown beside the current text');
  t.same(shown, { version: saved[0].text, current: theirs }, 'the comparison shows that version and the current text');

  t.click('#history-restore');
  await t.waitFor(() => !panel.open && VN.dirty(), 'the restore to become an unsaved change');
  t.equal(VN.text(), saved[0].text, 'the editor holds the first saved version');
  t.equal((await t.read('a.html')).text, theirs, 'restoring alone writes nothing');
  t.click('#save-btn');
  await t.waitFor(() => !VN.dirty() && VN.status().text === 'Saved a.html', 'the save to finish');
  t.equal((await t.read('a.html')).text, saved[0].text, 'the disk holds the first saved version');

  await VN.history.open();
  const displaced = await t.waitFor(() => VN.history.versions().find((v) => v.words === 'before your save' && v.byteCount === theirs.length), 'the displaced version in the history');
  t.check(displaced && (await (await fetch(`/api/version?id=${encodeURIComponent(displaced.id)}`)).text()) === theirs, 'the history holds the version the restore displaced');
  VN.history.close();
});
