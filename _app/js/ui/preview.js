// The live preview: a sandboxed iframe fed through srcdoc. The sandbox has no
// allow-scripts, so the page's scripts never run; "allow-same-origin" only
// lets the editor keep the scroll position and see where a followed link led.
// (WebKit runs no listener at all inside such a frame, not even the editor's.)
//
// srcdoc documents resolve relative URLs against the editor's own address,
// so the document gets <base href="about:srcdoc"> (unresolvable: nothing
// relative loads by accident) and its workspace references are rewritten to
// reads of /api/file. Anything else (http, data, …) is left as written; the
// host decides what may load.

import { dirname, fileKind } from '../paths.js';
import { previewDelay, referenceMapper, rewriteCssUrls, rewriteSrcset } from '../preview-doc.js';

const RESOURCE_ATTRS = [
  ['img', 'src'], ['link', 'href'], ['script', 'src'], ['source', 'src'], ['video', 'src'],
  ['video', 'poster'], ['audio', 'src'], ['track', 'src'], ['iframe', 'src'], ['embed', 'src'],
  ['object', 'data'], ['input', 'src'], ['image', 'href'], ['use', 'href'],
];

function escapeHtml(s) {
  return s.replace(/[&<>"]/g, (c) => ({ '&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;' })[c]);
}

export function buildPreviewDocument(html, { pagePath, root, origin }) {
  const map = referenceMapper({ origin, pageDir: dirname(pagePath), root });
  const doc = new DOMParser().parseFromString(html, 'text/html');
  for (const el of doc.querySelectorAll('base, meta[http-equiv="refresh" i]')) el.remove();
  for (const [tag, attr] of RESOURCE_ATTRS) {
    for (const el of doc.getElementsByTagName(tag)) {
      const value = el.getAttribute(attr);
      if (value === null) continue;
      const to = map(value);
      if (to !== null) el.setAttribute(attr, to);
    }
  }
  for (const el of doc.querySelectorAll('[srcset]')) el.setAttribute('srcset', rewriteSrcset(el.getAttribute('srcset'), map));
  for (const el of doc.querySelectorAll('style')) el.textContent = rewriteCssUrls(el.textContent, map);
  for (const el of doc.querySelectorAll('[style]')) el.setAttribute('style', rewriteCssUrls(el.getAttribute('style'), map));
  for (const a of doc.querySelectorAll('a[href], area[href]')) {
    // A link to a workspace file navigates the frame to that file's read URL;
    // the frame's load handler then opens pages in the editor. No script runs
    // in the frame for that, so it works under the sandbox.
    const href = a.getAttribute('href');
    if (href.trim().startsWith('#')) continue;
    const to = map(href);
    if (to !== null) a.setAttribute('href', to);
  }
  const base = doc.createElement('base');
  base.setAttribute('href', 'about:srcdoc');
  doc.head.prepend(base);
  return (doc.doctype ? '<!DOCTYPE html>\n' : '') + doc.documentElement.outerHTML;
}

export class Preview {
  constructor(frame, { onOpenPage, onNote }) {
    this.frame = frame;
    this.onOpenPage = onOpenPage;
    this.onNote = onNote || (() => {});
    this.timer = null;
    this.scroll = null;
    this.visible = true;
    this.source = null;
    frame.addEventListener('load', () => this.loaded());
  }

  setVisible(on) {
    this.visible = on;
    if (on && this.source) this.renderNow();
  }

  /** What to render: `read()` returns the current text; called when the timer fires. */
  setSource(source) {
    this.source = source;
    this.cancel();
    this.scroll = null;
    this.renderNow();
  }

  clear() {
    this.cancel();
    this.source = null;
    this.frame.srcdoc = '<!DOCTYPE html><html><body></body></html>';
    this.onNote('');
  }

  cancel() {
    if (this.timer) clearTimeout(this.timer);
    this.timer = null;
  }

  /** The text changed; render after a pause that grows with the page. */
  changed(length) {
    if (!this.source || !this.visible) return;
    this.cancel();
    this.timer = setTimeout(() => {
      this.timer = null;
      this.renderNow();
    }, previewDelay(length));
  }

  renderNow() {
    this.cancel();
    if (!this.source || !this.visible) return;
    const { kind, read, pagePath, root, origin, url } = this.source;
    this.rememberScroll();
    let doc;
    if (kind === 'page') {
      const started = performance.now();
      try {
        doc = buildPreviewDocument(read(), { pagePath, root, origin });
      } catch (e) {
        doc = `<!DOCTYPE html><p style="font:13px system-ui;color:#c0352b;padding:16px">The preview failed: ${escapeHtml(String(e && e.message))}</p>`;
      }
      const spent = performance.now() - started;
      this.onNote(spent > 250 ? 'Large page: the preview follows after a pause' : '');
    } else if (kind === 'image') {
      doc = `<!DOCTYPE html><html><body style="margin:0;display:flex;align-items:center;justify-content:center;min-height:100vh;background:#f6f7f9">
<img src="${escapeHtml(url)}" alt="" style="max-width:92%;max-height:92vh;box-shadow:0 2px 10px rgba(0,0,0,.12);background:#fff"></body></html>`;
      this.onNote('');
    } else {
      doc = `<!DOCTYPE html><html><body style="font:13px system-ui,sans-serif;color:#667085;display:flex;align-items:center;justify-content:center;min-height:90vh;margin:0">
<p>${escapeHtml(this.source.message || 'No preview for this kind of file.')}</p></body></html>`;
      this.onNote('');
    }
    this.frame.srcdoc = doc;
  }

  rememberScroll() {
    try {
      const win = this.frame.contentWindow;
      if (win && win.document && win.document.body) this.scroll = { x: win.scrollX, y: win.scrollY };
    } catch {
      this.scroll = null;
    }
  }

  loaded() {
    let win;
    try {
      win = this.frame.contentWindow;
      if (!win || !win.document) return;
    } catch {
      return;
    }
    let href = '';
    try {
      href = win.location.href;
    } catch {
      return;
    }
    const prefix = `${this.source && this.source.origin}/api/file?path=`;
    if (this.source && href.startsWith(prefix)) {
      // A followed link: open the page it led to in the editor.
      const path = decodeURIComponent(href.slice(prefix.length).split('#')[0].split('&')[0]);
      if (fileKind(path) === 'page') {
        this.onOpenPage(path);
        return;
      }
    }
    if (this.scroll && href === 'about:srcdoc') {
      try {
        win.scrollTo(this.scroll.x, this.scroll.y);
      } catch {
        // a frame that navigated away cannot be scrolled from here
      }
    }
  }
}
