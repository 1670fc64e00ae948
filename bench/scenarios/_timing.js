// Prepended, after tests/e2e/_common.js, to every benchmark scenario here:
// SelfTestBench gathers both into one scenario folder for the host.

/** Resolves once the page has painted twice more. */
function benchPainted() {
  return new Promise((resolve) => requestAnimationFrame(() => requestAnimationFrame(resolve)));
}

/**
 * Types `runs` single keystrokes at the end of `page`'s body, each timed from
 * the keystroke to the preview's document holding it, painted; notes the
 * times as "keystroke_ms".
 */
async function benchKeystrokes(t, page, runs) {
  await t.open(page);
  const frame = document.getElementById('preview');
  const tail = () => {
    const body = frame.contentDocument && frame.contentDocument.body;
    return body && body.lastChild && body.lastChild.nodeType === Node.TEXT_NODE ? body.lastChild.nodeValue : '';
  };
  await t.waitFor(() => frame.contentDocument && frame.contentDocument.readyState === 'complete' && frame.contentDocument.body
    && frame.contentDocument.body.childElementCount > 2, `the first preview of ${page}`);
  // The cursor goes before </body> once; each keystroke then types there.
  const plain = window.VN.text().replace(/\r\n?/g, '\n');
  window.VN.select(plain.indexOf('</body>'));
  await benchPainted();
  const samples = [];
  for (let i = 1; i <= runs; i++) {
    const typed = 'x'.repeat(i);
    const shown = new Promise((resolve) => {
      const check = () => {
        if (!tail().trimEnd().endsWith(typed)) return false;
        observer.disconnect();
        resolve();
        return true;
      };
      const observer = new MutationObserver(check);
      observer.observe(frame.contentDocument.documentElement, { childList: true, characterData: true, subtree: true });
    });
    const start = performance.now();
    document.execCommand('insertText', false, 'x');
    const reached = await Promise.race([shown.then(() => true), new Promise((r) => setTimeout(() => r(false), 10000))]);
    await benchPainted();
    const took = performance.now() - start;
    if (!t.check(reached, `keystroke ${i} reached the preview`)) break;
    samples.push(Math.round(took * 100) / 100);
    // A pause between keystrokes: each is timed on its own, not in a burst.
    await new Promise((resolve) => setTimeout(resolve, 250));
  }
  t.note('keystroke_ms', samples);
  // The reference on the same machine in the same run: two painted frames of
  // the page with nothing to do.
  const idle = [];
  for (let i = 0; i < runs; i++) {
    const start = performance.now();
    await benchPainted();
    idle.push(Math.round((performance.now() - start) * 100) / 100);
  }
  t.note('idle_frames_ms', idle);
}
