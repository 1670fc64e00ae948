// Back in the first folder: the page offers the draft with the typed text.
scenario(async (t) => {
  await t.waitFor(() => VN.path() === t.path('a.html'), 'a.html to be open');
  await t.waitFor(() => VN.draftOffer() && t.banner('draft'), 'the draft to be offered');
  await VN.restoreDraft();
  t.check(VN.text().includes('Typed before switching folders.'), 'the draft holds the typed text');
});
