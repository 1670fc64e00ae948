// Open a page, edit it in the source editor and save it with the Save button,
// then read it back: from the host, in the reopened editor and in the preview.
scenario(async (t) => {
  await t.open('a.html');
  t.check(VN.text().includes('Original text of page A.'), 'a.html opens with its text from disk');
  const loadedBase = VN.base();
  t.equal((await t.read('a.html')).fingerprint, loadedBase, 'the base is the fingerprint of the version on disk');

  t.type('  <p>Saved through the editor.</p>\n', '</body>');
  await t.waitFor(() => VN.dirty() && !document.getElementById('save-btn').disabled,
    'typing to mark the page dirty and enable Save');
  t.check(!document.getElementById('dirty-dot').hidden, 'the dirty marker shows');
  t.click('#save-btn');
  await t.waitFor(() => !VN.dirty() && VN.status().text === 'Saved a.html', 'the save to finish');
  t.check(VN.base() !== loadedBase, 'the base moves on with the save');

  const disk = await t.read('a.html');
  t.equal(disk.fingerprint, VN.base(), 'the disk holds the version the editor now starts from');
  t.check(disk.text.includes('  <p>Saved through the editor.</p>\n</body>'), 'the disk holds the typed text where it was typed');
  t.check(disk.text.includes('Original text of page A.'), 'the rest of the page is kept');

  VN.closePage();
  t.equal(VN.path(), null, 'the page closes');
  await t.open('a.html');
  t.equal(VN.text(), disk.text, 'the reopened page shows the saved text');
  t.equal(VN.dirty(), false, 'the reopened page is clean');
  await t.waitFor(() => VN.previewDocument().includes('Saved through the editor.'), 'the preview to show the saved text');

  await VN.idle();
  const drafts = await VN.api.drafts();
  t.same(drafts.filter((d) => d.pagePath === t.path('a.html')), [], 'no draft of a.html is left once its save went through');
});
