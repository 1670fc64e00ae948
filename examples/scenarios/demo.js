// The picture `make run` takes without a display: the site's home page open
// in the editor, with its preview.
scenario(async (t) => {
  const pages = VN.entries().filter((e) => e.kind === 'file' && /\.html?$/i.test(e.name));
  const page = pages.find((e) => e.name === 'index.html') || pages[0];
  t.check(page, 'the folder holds a page');
  if (!page) return;
  await t.open(page.path);
  await t.waitFor(() => {
    const frame = document.getElementById('preview');
    const body = frame && frame.contentDocument && frame.contentDocument.body;
    return body && body.textContent.trim().length > 0;
  }, 'the preview to show the page');
  await new Promise((resolve) => requestAnimationFrame(() => requestAnimationFrame(resolve)));
  t.note('page', page.name);
});
