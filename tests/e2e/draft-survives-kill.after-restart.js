// After the host was killed: the page opens with the text on disk, the draft
// is offered, restoring it brings the typed text back, and it can be saved.
scenario(async (t) => {
  t.equal((await t.read('a.html')).text.includes('Typed before the host was killed.'), false,
    'the killed host never saved the typed text');
  await t.open('a.html');
  t.check(!VN.text().includes('Typed before the host was killed.'), 'the page opens with the text on disk');
  await t.waitFor(() => VN.draftOffer() && t.banner('draft'), 'the draft to be offered');
  const restore = [...(t.banner('draft') || document).querySelectorAll('button')].find((b) => b.textContent === 'Restore draft');
  t.check(restore, 'the draft banner offers "Restore draft"');
  if (!restore) return;
  restore.click();
  await t.waitFor(() => VN.text().includes('Typed before the host was killed.'), 'the draft to be restored');
  t.equal(VN.dirty(), true, 'the restored text is unsaved');
  t.click('#save-btn');
  await t.waitFor(() => !VN.dirty() && VN.status().text === 'Saved a.html', 'the restored text to be saved');
  t.check((await t.read('a.html')).text.includes('Typed before the host was killed.'), 'the disk holds the restored text');
});
