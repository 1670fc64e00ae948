// A page with CRLF line endings, typed into and saved, keeps CRLF on every
// line; what was not typed comes back byte for byte.
const bytesOf = async (t, page) => new Uint8Array(await (await fetch(`/api/file?path=${encodeURIComponent(t.path(page))}`)).arrayBuffer());
const latin = (bytes) => Array.from(bytes, (b) => String.fromCharCode(b)).join('');

scenario(async (t) => {
  const before = latin(await bytesOf(t, 'crlf.html'));
  await t.open('crlf.html');
  t.equal(VN.format().eol, 'CRLF', 'the status bar shows CRLF');
  t.type('  <p>Typed in the editor.</p>\n', '</body>');
  await t.waitFor(() => VN.dirty(), 'typing to mark the page dirty');
  t.click('#save-btn');
  await t.waitFor(() => !VN.dirty() && VN.status().text === 'Saved crlf.html', 'the save to finish');
  const after = latin(await bytesOf(t, 'crlf.html'));
  t.equal(after, before.replace('</body>', '  <p>Typed in the editor.</p>\r\n</body>'), 'the saved bytes are the old ones with the typed line, in CRLF');
  t.equal((after.match(/\r\n/g) || []).length, (after.match(/\n/g) || []).length, 'no line lost its CR');
});
