// The preview loads what a page's stylesheets import, shows a change of such
// a file on disk, scrolls to fragments, and opens the workspace files it
// links to in the editor: .htm pages like .html ones, text files as text.
// Typing shows in the preview, in a run of text and as new markup.
scenario(async (t) => {
  const frame = document.getElementById('preview');
  const doc = () => frame.contentDocument;
  const color = () => frame.contentWindow.getComputedStyle(doc().querySelector('h2')).color;
  const shown = (id) => t.waitFor(() => doc() && doc().readyState === 'complete' && doc().getElementById(id), `the preview to show #${id}`);
  await t.open('styled.html');
  await shown('end');
  await t.waitFor(() => color() === 'rgb(1, 2, 3)', 'the stylesheet imported by the linked one to apply');

  doc().getElementById('to-end').click();
  await t.waitFor(() => frame.contentWindow.scrollY > 1000, 'a link to #end to scroll there');

  t.ask('write', 'css/base.css', 'h2 { color: rgb(9, 8, 7); }');
  await t.waitFor(() => doc().querySelector('h2') && color() === 'rgb(9, 8, 7)', 'the changed stylesheet to show');

  doc().getElementById('to-part').click();
  await t.waitFor(() => VN.path() === t.path('sub/part.htm'), 'the .htm link to open its page');
  await shown('part');
  await t.waitFor(() => frame.contentWindow.scrollY > 1000, 'the preview to scroll to #part');

  await t.open('styled.html');
  await shown('to-notes');
  doc().getElementById('to-notes').click();
  await t.waitFor(() => VN.path() === t.path('notes.txt'), 'the link to notes.txt to open it in the editor');
  t.check(VN.text().length > 0, 'the editor shows notes.txt');

  await t.open('styled.html');
  await shown('to-end');
  const paragraph = () => doc().getElementById('to-end').parentNode.textContent;
  t.type(' Typed', '.</p>');
  await t.waitFor(() => paragraph().endsWith('the end Typed.'), 'text typed after a link to show');
  t.type('<em id="typed">em</em>', '.</p>');
  await t.waitFor(() => doc().getElementById('typed') && paragraph().endsWith('the end Typedem.'), 'markup typed to show');
  t.type('!', '</a>, <a id="to-part"');
  await t.waitFor(() => paragraph().startsWith('Notes!, a part'), 'text typed inside a link to show');
});
