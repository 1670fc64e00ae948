// Benchmark, not a test: 10 openings of big.html (2 MiB), each timed from the
// moment the host's answer to GET file reached the page to the editor showing
// the page (text in the editor, two frames painted; the preview follows).
const RUNS = 10;

scenario(async (t) => {
  let answered = null;
  const fetchBefore = window.fetch;
  window.fetch = async (resource, init) => {
    const answer = await fetchBefore(resource, init);
    const url = typeof resource === 'string' ? resource : resource.url;
    if (url.startsWith('/api/file?') && (!init || !init.method || init.method === 'GET')) answered = performance.now();
    return answer;
  };
  const samples = [];
  for (let i = 0; i < RUNS; i++) {
    VN.closePage();
    await benchPainted();
    answered = null;
    const opened = await VN.openPage('big.html');
    await benchPainted();
    const shown = performance.now();
    if (!t.check(opened && answered !== null && VN.text().length >= 2000000, `opening ${i + 1} showed big.html`)) break;
    samples.push(Math.round((shown - answered) * 100) / 100);
  }
  window.fetch = fetchBefore;
  t.note('open_ms', samples);
});
