// Shared by every scenario; the host runs it before the scenario's own text.
// scenario(async (t) => { ... }) reports once with window.__e2eDone({ ok,
// failures, checks, ... }), "ok" first so a runner can tell the verdict from the
// start of the line. t's checks record a failure naming `what` instead of
// throwing; waitFor resolves to the probe's first truthy value or null after
// recording a time-out; ask/input/restartWith/handOver are requests to the
// runner or host (restart and hand-over only when nothing failed).

function scenario(body) {
  const failures = [];
  const notes = {};
  let checks = 0;
  let handOver = null;
  let openNext = null;
  const show = (value) => {
    try {
      return JSON.stringify(value);
    } catch (e) {
      return String(value);
    }
  };
  const folder = () => window.VN.folder();

  const t = {
    check(condition, what) {
      checks++;
      if (!condition) failures.push(what);
      return Boolean(condition);
    },
    equal(actual, expected, what, alike = actual === expected) {
      return t.check(alike, `${what}: expected ${show(expected)}, got ${show(actual)}`);
    },
    same(actual, expected, what) {
      return t.equal(actual, expected, what, show(actual) === show(expected));
    },
    async waitFor(probe, what, ms = 15000) {
      const end = Date.now() + ms;
      for (;;) {
        const value = await Promise.resolve().then(probe).catch(() => null);
        if (value) return value;
        if (Date.now() > end) {
          failures.push(`timed out waiting for ${what}`);
          return null;
        }
        await new Promise((resolve) => setTimeout(resolve, 40));
      }
    },
    ask(action, ...words) {
      window.__e2eSay([action, ...words].join(' '));
    },
    restartWith(name, signal = 'KILL') {
      handOver = { name, signal };
    },
    handOver(path, name) {
      openNext = { open: path, then: name };
    },
    input(...words) {
      t.ask('input', ...words);
    },
    note(key, value) {
      notes[key] = value;
    },
    path(relative) {
      return relative.startsWith('/') ? relative : `${folder()}/${relative}`;
    },
    /** The page's bytes as the host serves them: {status, text, fingerprint, error}. */
    async read(relative) {
      const answer = await fetch(`/api/file?path=${encodeURIComponent(t.path(relative))}`, { cache: 'no-store' });
      const text = await answer.text();
      let error = null;
      if (!answer.ok) {
        try {
          error = JSON.parse(text).error;
        } catch (e) {
          error = text;
        }
      }
      return { status: answer.status, text, fingerprint: answer.headers.get('X-VN-Fingerprint'), error };
    },
    async status(relative) {
      return (await t.read(relative)).status;
    },
    async open(relative) {
      const opened = await window.VN.openPage(relative);
      t.check(opened === true && window.VN.path() === t.path(relative), `${relative} opens in the editor`);
      return opened;
    },
    /**
     * Types into the source editor as a keystroke does (the engine's
     * insertText command), before `where` (or at the end).
     */
    type(text, where = null) {
      const plain = window.VN.text().replace(/^\uFEFF/, '').replace(/\r\n?/g, '\n');
      const at = where === null ? plain.length : plain.indexOf(where);
      if (at < 0) throw new Error(`no "${where}" in the editor's text`);
      window.VN.select(at);
      if (!document.execCommand('insertText', false, text)) throw new Error('the editor refused insertText');
    },
    click(selector) {
      const element = document.querySelector(selector);
      if (!element) throw new Error(`nothing matches ${selector}`);
      if (element.disabled) throw new Error(`${selector} is disabled`);
      element.click();
    },
    banner(id) {
      return document.querySelector(`#banners [data-id="${id}"]`);
    },
  };

  (async () => {
    try {
      await body(t);
    } catch (e) {
      failures.push(`the scenario threw: ${e && e.stack ? e.stack : e}`);
    }
    if (handOver !== null && failures.length === 0) {
      t.ask(handOver.signal === 'TERM' ? 'term-and-restart' : 'kill-and-restart', handOver.name);
      return;
    }
    if (openNext !== null && failures.length === 0) {
      window.webkit.messageHandlers.vornaE2E.postMessage(openNext);
      return;
    }
    window.__e2eDone({ ok: failures.length === 0, failures, checks, ...notes });
  })();
}
