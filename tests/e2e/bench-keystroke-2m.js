// Benchmark, not a test: 10 single keystrokes in big.html (2 MiB), each timed
// to the preview showing the changed page (the frame's load after the new
// document was set, and a painted frame). The preview deliberately waits
// longer after an edit of a large page, so that waiting is part of the figure.
const RUNS = 10;
const painted = () => new Promise((resolve) => requestAnimationFrame(() => requestAnimationFrame(resolve)));

scenario(async (t) => {
  await t.open('big.html');
  const frame = document.getElementById('preview');
  await t.waitFor(() => {
    const shown = frame.contentDocument;
    return frame.srcdoc.length > 2 * 1024 * 1024 && shown && shown.readyState === 'complete'
      && shown.body && shown.body.textContent.includes('A long page');
  }, 'the first preview of big.html');
  const samples = [];
  for (let i = 0; i < RUNS; i++) {
    const before = frame.srcdoc.length;
    // Only the load of a document that holds the keystroke counts.
    const loaded = new Promise((resolve) => {
      const seen = () => {
        if (frame.srcdoc.length === before) return;
        frame.removeEventListener('load', seen);
        resolve();
      };
      frame.addEventListener('load', seen);
    });
    const start = performance.now();
    t.type('x', '</body>');
    await loaded;
    await painted();
    const took = performance.now() - start;
    if (!t.equal(frame.srcdoc.length, before + 1, `keystroke ${i + 1} reached the preview`)) break;
    samples.push(Math.round(took * 100) / 100);
  }
  t.note('keystroke_ms', samples);
});
