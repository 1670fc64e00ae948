// Keys pressed as a person presses them reach the editor, not the shell's
// menus: typing, Ctrl+Z undoes the keystroke, Ctrl+Shift+Z redoes it. A right
// click shows a menu of editing items only, over the text and elsewhere (where
// the engine would offer Back, Forward and Reload).
scenario(async (t) => {
  await t.open('a.html');
  const original = VN.text();
  VN.select(VN.text().indexOf('</body>'));
  t.input('key', 'q');
  await t.waitFor(() => VN.text() !== original, 'the keystroke to reach the editor');
  t.equal(VN.text(), original.replace('</body>', 'q</body>'), 'the key typed one letter');
  t.input('key', 'ctrl+z');
  await t.waitFor(() => VN.text() === original, 'Ctrl+Z to undo the keystroke');
  t.input('key', 'ctrl+shift+z');
  await t.waitFor(() => VN.text() !== original, 'Ctrl+Shift+Z to redo it');

  t.ask('expect-menu');
  const rightClick = async (selector, what) => {
    const box = document.querySelector(selector).getBoundingClientRect();
    const menu = new Promise((resolve) => document.addEventListener('contextmenu', resolve, { once: true }));
    t.input('click', String(Math.round(box.left + 20)), String(Math.round(box.top + box.height / 2)), '3');
    t.check(await Promise.race([menu.then(() => true), new Promise((r) => setTimeout(() => r(false), 5000))]), `the right click reached ${what}`);
    await new Promise((resolve) => setTimeout(resolve, 300));
    t.input('key', 'Escape');
  };
  // Where the engine offers no menu item left, none opens; over the text, one
  // opens and Escape closes it.
  await rightClick('.statusbar', 'the status bar');
  await rightClick('.cm-content .cm-line', 'the editor');
});
