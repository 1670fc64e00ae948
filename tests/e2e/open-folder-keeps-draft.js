// Open… of another folder while the page has unsaved text: the host waits
// for the page's draft before it switches the bridge, and the draft is offered
// when the page is opened again.
scenario(async (t) => {
  await t.open('a.html');
  t.type('  <p>Typed before switching folders.</p>\n', '</body>');
  await t.waitFor(() => VN.dirty(), 'typing to mark the page dirty');
  t.handOver(t.path('sub'), 'open-folder-keeps-draft.in-sub');
});
