// Text typed 200 ms before SIGTERM, too soon for the draft that typing
// stores, is stored because the host asks the page for it before it ends.
scenario(async (t) => {
  await t.open('a.html');
  t.type('  <p>Typed just before SIGTERM.</p>\n', '</body>');
  await t.waitFor(() => VN.dirty(), 'typing to mark the page dirty');
  await new Promise((resolve) => setTimeout(resolve, 200));
  t.restartWith('draft-before-sigterm.after-restart', 'TERM');
});
