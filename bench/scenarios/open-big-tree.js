// Benchmark, not a test: with a folder of 5,000 entries expanded in the tree,
// 20 openings of a 6 KB page, each timed from the call to the page shown in
// the editor (two frames painted).
const RUNS = 20;

scenario(async (t) => {
  await VN.expand('many');
  await benchPainted();
  t.check(VN.entries().length > 5000, 'the big folder is expanded');
  const samples = [];
  for (let i = 0; i < RUNS; i++) {
    const page = i % 2 === 0 ? 'page.html' : 'other.html';
    const started = performance.now();
    const opened = await VN.openPage(page);
    await benchPainted();
    if (!t.check(opened && VN.path() === t.path(page), `opening ${i + 1} showed ${page}`)) break;
    samples.push(Math.round((performance.now() - started) * 100) / 100);
  }
  t.note('open_page_ms', samples);
});
