// The main frame never leaves the editor: about:blank, data:, blob: and
// javascript: are tried in turn, and the same document, with its state, is
// still there after each to report.
scenario(async (t) => {
  const editor = location.href;
  window.__stillHere = 'the same document';
  const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
  const targets = [
    'about:blank',
    'data:text/html,<p>replaced</p>',
    URL.createObjectURL(new Blob(['<p>replaced</p>'], { type: 'text/html' })),
    'javascript:"<p>replaced</p>"',
  ];
  for (const target of targets) {
    const scheme = target.slice(0, target.indexOf(':'));
    location.href = target;
    await pause(1500);
    t.equal(location.href, editor, `after ${scheme}: the main frame shows the editor`);
    t.equal(window.__stillHere, 'the same document', `after ${scheme}: it is the same document`);
    t.check(document.getElementById('source') !== null || window.VN !== undefined,
            `after ${scheme}: the editor is there`);
  }
  t.equal(await t.status('index.html'), 200, 'the bridge still answers');
});
