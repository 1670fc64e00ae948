// A write by another program reaches the page as a change event and a clean
// page follows the disk; the host's own save is not reported back. The
// marker written afterwards shows that every event before it has arrived.
const theirs = '<!DOCTYPE html><html><body><p>Written by another program.</p></body></html>';

scenario(async (t) => {
  await t.open('a.html');
  t.ask('write', 'a.html', theirs);
  const event = await t.waitFor(() => VN.events().find((e) => e.path === t.path('a.html')), 'a change event for a.html');
  if (event) {
    t.equal(event.type, 'changed', 'the event is a change');
    t.check(['modified', 'created'].includes(event.kind), `the event says the page changed (${event.kind})`);
  }
  await t.waitFor(() => VN.text() === theirs, 'the clean page to follow the disk');
  t.equal(VN.dirty(), false, 'following the disk leaves the page clean');
  t.equal(VN.base(), (await t.read('a.html')).fingerprint, 'the base follows the disk');

  const seen = VN.events().length;
  t.type('<p>Saved by the host itself.</p>', '</body>');
  await t.waitFor(() => !document.getElementById('save-btn').disabled, 'Save to be enabled');
  t.click('#save-btn');
  await t.waitFor(() => !VN.dirty() && VN.status().text === 'Saved a.html', 'the save to finish');
  t.ask('write', 'marker.txt', 'written after the save');
  await t.waitFor(() => VN.events().some((e) => e.path === t.path('marker.txt')), 'the marker\'s event');
  const echoes = VN.events().slice(seen).filter((e) => e.path === t.path('a.html'));
  t.same(echoes, [], 'the host\'s own save produced no event for a.html');
  t.equal(VN.disk(), null, 'the page is not flagged as changed on disk');
  t.check((await t.read('a.html')).text.includes('Saved by the host itself.'), 'the save reached the disk');
});
