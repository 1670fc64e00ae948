// Bytes the user did not touch come back as they were. A page with CRLF line
// endings, typed into and saved, keeps CRLF on every line. A page in Latin-1
// is shown read-only and never written with replacement characters: not by
// typing, not by saving, not as a draft; only after "Convert to UTF-8 and
// edit" is it saved, as UTF-8.
const bytesOf = async (t, page) => new Uint8Array(await (await fetch(`/api/file?path=${encodeURIComponent(t.path(page))}`)).arrayBuffer());
const latin = (bytes) => Array.from(bytes, (b) => String.fromCharCode(b)).join('');
const holdsReplacement = (b) => b.some((x, i) => x === 0xef && b[i + 1] === 0xbf && b[i + 2] === 0xbd);
const typeAndSave = async (t, page, text) => {
  t.type(text, '</body>');
  await t.waitFor(() => VN.dirty(), 'typing to mark the page dirty');
  t.click('#save-btn');
  await t.waitFor(() => !VN.dirty() && VN.status().text === `Saved ${page}`, `the save of ${page} to finish`);
};

scenario(async (t) => {
  const crlf = latin(await bytesOf(t, 'crlf.html'));
  await t.open('crlf.html');
  t.equal(VN.format().eol, 'CRLF', 'the status bar shows CRLF');
  await typeAndSave(t, 'crlf.html', '  <p>Typed in the editor.</p>\n');
  const after = latin(await bytesOf(t, 'crlf.html'));
  t.equal(after, crlf.replace('</body>', '  <p>Typed in the editor.</p>\r\n</body>'), 'the saved bytes are the old ones with the typed line, in CRLF');
  t.equal((after.match(/\r\n/g) || []).length, (after.match(/\n/g) || []).length, 'no line lost its CR');

  const original = await bytesOf(t, 'latin1.html');
  await t.open('latin1.html');
  t.check(VN.text().includes('Le café est ouvert.'), 'the page shows é, read as Windows-1252');
  t.same(VN.format(), { encoding: 'windows-1252', bom: false, eol: 'LF', readOnly: true }, 'the page is read-only');
  t.check(t.banner('encoding'), 'a banner explains why');
  t.type('typed ', '</body>');
  t.equal(VN.dirty(), false, 'typing does not change a read-only page');
  const refused = await VN.save();
  t.equal(refused.ok, false, 'saving is refused');
  await new Promise((resolve) => setTimeout(resolve, 1200));
  t.same([...(await bytesOf(t, 'latin1.html'))], [...original], 'the disk keeps the Latin-1 bytes');
  t.same((await VN.api.drafts()).filter((d) => d.pagePath === t.path('latin1.html')), [], 'no draft was written');

  const convert = [...t.banner('encoding').querySelectorAll('button')].find((b) => b.textContent === 'Convert to UTF-8 and edit');
  t.check(convert, 'the banner offers "Convert to UTF-8 and edit"');
  if (!convert) return;
  convert.click();
  t.equal(VN.format().readOnly, false, 'the converted page can be edited');
  await typeAndSave(t, 'latin1.html', '  <p>Déjà converti.</p>\n');
  const saved = await bytesOf(t, 'latin1.html');
  t.equal(holdsReplacement(saved), false, 'the saved page holds no U+FFFD');
  t.equal(new TextDecoder('utf-8', { fatal: true }).decode(saved).includes('Le café est ouvert.</p>\n  <p>Déjà converti.</p>'), true,
    'the page is now UTF-8 with every character kept');
});
