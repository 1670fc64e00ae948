// Unsaved edits are handed to the host as a draft; then the host is killed.
// The scenario after the restart checks that the draft is offered.
scenario(async (t) => {
  await t.open('a.html');
  t.type('  <p>Typed before the host was killed.</p>\n', '</body>');
  await t.waitFor(() => VN.dirty(), 'typing to mark the page dirty');
  // The editor stores a draft after a pause in typing; wait until the host holds it.
  const draft = await t.waitFor(async () => (await VN.api.drafts()).find((d) => d.pagePath === t.path('a.html')),
    'the host to hold a draft of a.html');
  if (draft) {
    t.equal(draft.baseFingerprint, VN.base(), 'the draft names the version it was typed over');
  }
  t.restartWith('draft-survives-kill.after-restart');
});
