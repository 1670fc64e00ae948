// The picture of the History panel in the README: the home page saved three
// times, then edited further, and the version first loaded beside the current
// text.
const edit = async (t, from, to) => {
  VN.setText(VN.text().replace(from, to));
  await t.waitFor(() => VN.dirty(), 'the edit to mark the page dirty');
  t.check((await VN.save()).ok, `saving "${to}"`);
};

scenario(async (t) => {
  await t.open('index.html');
  await edit(t, '<li>Rye and caraway</li>', '<li>Rye and caraway</li>\n        <li>Olive focaccia</li>');
  await edit(t, 'Cardamom buns (Saturday only)', 'Cardamom buns (Saturday and Sunday)');
  await edit(t, '7:00 to 14:00', '7:00 to 15:00');
  VN.setText(VN.text().replace('Bread baked', 'Bread and buns baked'));
  await VN.storeDraft();
  await VN.history.open();
  const first = VN.history.versions().find((v) => v.words === 'as loaded');
  if (!t.check(first, 'the loaded version is listed')) return;
  document.querySelector(`#history-panel .hv-entry[data-id="${first.id}"]`).click();
  await t.waitFor(() => VN.history.shown(), 'the comparison');
  await new Promise((resolve) => requestAnimationFrame(() => requestAnimationFrame(resolve)));
});
