// Benchmark, not a test: 10 openings of the History panel on a page with 200
// versions kept, each timed from the call to the panel listing all of them,
// painted (two frames).
const RUNS = 10;
const VERSIONS = 200;

scenario(async (t) => {
  await t.open('index.html');
  const page = t.path('index.html');
  // Drafts are versions like any other; the load above kept the first one.
  for (let n = (await VN.api.history(page)).length; n < VERSIONS; n++) {
    await VN.api.putDraft(page, `<!DOCTYPE html><title>Home</title><p>Draft ${n}</p>\n`, VN.base());
  }
  const samples = [];
  for (let i = 0; i < RUNS; i++) {
    VN.history.close();
    await benchPainted();
    const started = performance.now();
    await VN.history.open();
    await benchPainted();
    const took = performance.now() - started;
    const listed = document.querySelectorAll('#history-panel .hv-entry').length;
    if (!t.check(listed === VERSIONS, `opening ${i + 1} listed ${VERSIONS} versions (${listed})`)) break;
    samples.push(Math.round(took * 100) / 100);
  }
  VN.history.close();
  t.note('open_ms', samples);
});
