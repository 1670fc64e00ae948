// The live preview: a sandboxed iframe (no allow-scripts, so the page's
// scripts never run; "allow-same-origin" lets the editor reach into the frame).
// A page is shown once through srcdoc; after that every edit patches the shown
// document in place, so a keystroke costs a parse and a diff (morphdom), not a
// reload with every stylesheet and image, and the scroll position stays. Typing
// inside a run of text costs less still: that one text node changes.
//
// The document gets a <base> in the page's folder under the host's
// path-shaped workspace URLs, so relative references, and those inside
// stylesheets, resolve by themselves. Links to workspace files lead the frame
// to a marker address that the editor turns into opening that file.

import morphdom from 'morphdom';
import { dirname, fileKind } from '../paths.js';
import {
  isRootRelative, linkTarget, markerTarget, openMarker, rewriteCssUrls, rewriteSrcset, rootRelativeUrl,
  textEdit, workspacePathOf, workspaceUrl,
} from '../preview-doc.js';

// Elements that may load a root-relative reference ("/css/a.css"); relative
// ones resolve against the <base> by themselves.
const ROOTED = ['src', 'href', 'poster', 'data'].map((attr) => `[${attr}^="/"]:not(a, area)`).join(', ');

// An update quicker than this runs at once, before the next frame.
const QUICK_MS = 8;

function escapeHtml(s) {
  return s.replace(/[&<>"]/g, (c) => ({ '&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;' })[c]);
}

/** The page's HTML as the preview shows it: a parsed document, not yet attached. */
export function previewDocument(html, { pagePath, root, origin }) {
  const doc = new DOMParser().parseFromString(html, 'text/html');
  const pageDir = dirname(pagePath);
  const fromRoot = (ref) => (isRootRelative(ref) ? rootRelativeUrl(origin, root, ref) : null);
  for (const el of doc.querySelectorAll('base, meta[http-equiv="refresh" i]')) el.remove();
  // Selectors, not a walk over every element: a long page has tens of
  // thousands of them, and only a few ever need a change.
  for (const el of doc.querySelectorAll('a[href], area[href]')) {
    const href = el.getAttribute('href');
    if (href.trim().startsWith('#')) {
      // The <base> would send a fragment-only link to the folder.
      el.setAttribute('href', `about:srcdoc${href.trim()}`);
    } else {
      const target = linkTarget(pageDir, href, root);
      if (target) {
        el.setAttribute('href', openMarker(target));
        el.removeAttribute('target');
      }
    }
  }
  for (const el of doc.querySelectorAll(ROOTED)) {
    for (const attr of ['src', 'href', 'poster', 'data']) {
      const value = el.getAttribute(attr);
      if (isRootRelative(value)) el.setAttribute(attr, fromRoot(value));
    }
  }
  for (const el of doc.querySelectorAll('[srcset]')) el.setAttribute('srcset', rewriteSrcset(el.getAttribute('srcset'), (r) => fromRoot(r)));
  for (const el of doc.querySelectorAll('style')) el.textContent = rewriteCssUrls(el.textContent, fromRoot);
  for (const el of doc.querySelectorAll('[style*="url("]')) el.setAttribute('style', rewriteCssUrls(el.getAttribute('style'), fromRoot));
  const base = doc.createElement('base');
  base.setAttribute('href', `${workspaceUrl(origin, pageDir)}/`);
  doc.head.prepend(base);
  return doc;
}

/** The child indices from `doc`'s root element down to `node`. */
function pathOf(node) {
  const path = [];
  for (; node.parentNode && node.parentNode.nodeType === Node.ELEMENT_NODE; node = node.parentNode) {
    path.push(Array.prototype.indexOf.call(node.parentNode.childNodes, node));
  }
  return path.reverse();
}

/**
 * Changes the run `from` of text to `to` in `parsed` and in `shown`, the
 * document made from it. The run may have merged with its neighbours into
 * one text node (whitespace after </body> does), so it is looked for inside
 * text nodes: false, with nothing changed, unless it occurs exactly once in
 * all of them and `shown` has that node too.
 */
function patchText(shown, parsed, { from, to }) {
  const walker = parsed.createTreeWalker(parsed.documentElement, NodeFilter.SHOW_TEXT);
  let found = null;
  let at = -1;
  for (let node = walker.nextNode(); node; node = walker.nextNode()) {
    const i = node.nodeValue.indexOf(from);
    if (i < 0) continue;
    if (found || node.nodeValue.indexOf(from, i + 1) >= 0) return false;
    found = node;
    at = i;
  }
  if (!found) return false;
  let twin = shown.documentElement;
  for (const i of pathOf(found)) twin = twin && twin.childNodes[i];
  const value = found.nodeValue;
  if (!twin || twin.nodeType !== Node.TEXT_NODE || twin.nodeValue !== value) return false;
  found.nodeValue = twin.nodeValue = value.slice(0, at) + to + value.slice(at + from.length);
  return true;
}

function serialize(doc) {
  return (doc.doctype ? '<!DOCTYPE html>\n' : '') + doc.documentElement.outerHTML;
}

export class Preview {
  /** `onOpenLink(path, fragment)` when a link in the page leads to a workspace file. */
  constructor(frame, { onOpenLink, onNote }) {
    this.frame = frame;
    this.onOpenLink = onOpenLink;
    this.onNote = onNote || (() => {});
    this.timer = null;
    this.visible = true;
    this.source = null;
    this.shown = null; // the html the frame's document shows, once loaded
    this.parsed = null; // the detached document the shown one was made from
    this.loading = false;
    this.scroll = null;
    this.fragment = '';
    this.earliest = 0; // no update starts before this time
    this.used = null; // {html, paths} of the files the shown document uses
    this.cost = 0; // how long the last render or update took, in ms
    this.queued = false;
    this.frames = 0; // counts the renders asked for by setSource; only the last one runs
    frame.addEventListener('load', () => this.loaded());
  }

  setVisible(on) {
    this.visible = on;
    if (on && this.source) this.render();
  }

  /**
   * What to show. A page: {kind: 'page', read, pagePath, root, origin}, where
   * `read()` gives the current text; an image: {kind: 'image', url}; else a
   * {message}. `fragment` is scrolled to once shown.
   */
  setSource(source, { fragment = '' } = {}) {
    this.source = source;
    this.fragment = fragment;
    this.scroll = null;
    this.cancel();
    // The editor shows the page first; the preview follows once that is
    // painted, so a large page's preview never holds up its text.
    this.shown = null;
    this.loading = true;
    const frames = ++this.frames;
    requestAnimationFrame(() => requestAnimationFrame(() => {
      this.timer = setTimeout(() => {
        this.timer = null;
        if (frames === this.frames) this.render();
      }, 0);
    }));
  }

  clear() {
    this.cancel();
    this.frames++;
    this.source = null;
    this.shown = null;
    this.frame.srcdoc = '<!DOCTYPE html><html><body></body></html>';
    this.onNote('');
  }

  /** Drops a showing still waiting for its frames; render() brings it back. */
  forgo() {
    this.cancel();
    this.frames++;
  }

  cancel() {
    if (this.timer) clearTimeout(this.timer);
    this.timer = null;
  }

  /**
   * The text changed. A quick update runs before the next frame, so the edit
   * shows in the editor and the preview together; a slow one (a large page)
   * runs after the editor had its frame, and never sooner after the last one
   * than that one took, so the preview takes at most half the time while
   * someone types.
   */
  changed() {
    if (!this.source || !this.visible || this.timer || this.queued) return;
    const wait = Math.max(0, this.earliest - performance.now());
    if (wait === 0 && this.cost < QUICK_MS) {
      this.queued = true;
      queueMicrotask(() => {
        this.queued = false;
        this.update();
      });
      return;
    }
    this.timer = setTimeout(() => {
      this.timer = null;
      this.update();
    }, wait);
  }

  /** Shows the source afresh: a new document, every file it uses loaded again. */
  render() {
    this.cancel();
    this.frames++;
    if (!this.source || !this.visible) return;
    const { kind } = this.source;
    let doc;
    if (kind === 'page') {
      const started = performance.now();
      const html = this.source.read();
      this.rememberScroll();
      try {
        this.parsed = previewDocument(html, this.source);
        doc = serialize(this.parsed);
        this.cost = performance.now() - started;
        this.shown = html;
      } catch (e) {
        doc = `<!DOCTYPE html><p style="font:13px system-ui;color:#c0352b;padding:16px">The preview failed: ${escapeHtml(String(e && e.message))}</p>`;
        this.shown = null;
      }
    } else if (kind === 'image') {
      this.shown = null;
      doc = `<!DOCTYPE html><html><body style="margin:0;display:flex;align-items:center;justify-content:center;min-height:100vh;background:#f6f7f9">
<img src="${escapeHtml(this.source.url)}" alt="" style="max-width:92%;max-height:92vh;box-shadow:0 2px 10px rgba(0,0,0,.12);background:#fff"></body></html>`;
    } else {
      this.shown = null;
      doc = `<!DOCTYPE html><html><body style="font:13px system-ui,sans-serif;color:#667085;display:flex;align-items:center;justify-content:center;min-height:90vh;margin:0">
<p>${escapeHtml(this.source.message || 'No preview for this kind of file.')}</p></body></html>`;
    }
    this.onNote('');
    this.loading = true;
    this.used = null;
    this.frame.srcdoc = doc;
  }

  /** Patches the shown document to the current text. */
  update() {
    if (!this.source || !this.visible || this.source.kind !== 'page') return;
    const shownDoc = this.document();
    if (this.loading || !shownDoc || this.shown === null) {
      if (!this.loading) this.render();
      return; // loaded() catches up with the text
    }
    const started = performance.now();
    const html = this.source.read();
    if (html === this.shown) return;
    try {
      const edit = textEdit(this.shown, html);
      if (!(edit && this.parsed && patchText(shownDoc, this.parsed, edit))) {
        const next = previewDocument(html, this.source);
        // morphdom moves nodes out of what it is given; `next` stays whole.
        morphdom(shownDoc.documentElement, next.documentElement.cloneNode(true), {
          onBeforeElUpdated: (from, to) => !from.isEqualNode(to),
        });
        this.parsed = next;
      }
      this.shown = html;
    } catch {
      this.render();
      return;
    }
    this.cost = performance.now() - started;
    this.earliest = performance.now() + this.cost;
    this.onNote(this.cost > 150 ? 'Large page: the preview follows after a pause' : '');
  }

  document() {
    try {
      const doc = this.frame.contentDocument;
      return doc && doc.documentElement ? doc : null;
    } catch {
      return null;
    }
  }

  rememberScroll() {
    try {
      const win = this.frame.contentWindow;
      if (win && win.document && win.document.body && !this.fragment) this.scroll = { x: win.scrollX, y: win.scrollY };
    } catch {
      this.scroll = null;
    }
  }

  /**
   * Workspace paths of the files the shown page uses: what its elements load,
   * its stylesheets with those they import, and what their rules reference
   * (images, fonts).
   */
  usedFiles() {
    // Kept until the document changes: a burst of change events costs one look.
    if (this.used && this.used.html === this.shown) return this.used.paths;
    const doc = this.document();
    const used = new Set();
    if (!doc || !this.source) return used;
    const urls = [];
    for (const el of doc.querySelectorAll('link[href], [src], video[poster], object[data]')) {
      urls.push(el.href || el.src || el.poster || el.data);
    }
    const sheets = [...doc.styleSheets];
    while (sheets.length) {
      const sheet = sheets.pop();
      if (sheet.href) urls.push(sheet.href);
      let rules = [];
      try {
        rules = sheet.cssRules;
      } catch {
        continue;
      }
      for (const rule of rules) {
        if (rule.styleSheet) sheets.push(rule.styleSheet);
        for (const m of rule.cssText.matchAll(/url\(\s*(['"]?)([^'")]*)\1\s*\)/g)) {
          try {
            urls.push(new URL(m[2], sheet.href || doc.baseURI).href);
          } catch {
            // not a URL
          }
        }
      }
    }
    for (const url of urls) {
      const path = workspacePathOf(url, this.source.origin);
      if (path) used.add(path);
    }
    if (!this.loading) this.used = { html: this.shown, paths: used };
    return used;
  }

  /** A workspace file changed on disk; shows the page afresh when it uses that file. */
  fileChanged(path) {
    if (!this.source || this.source.kind !== 'page' || fileKind(path) === 'page') return false;
    if (!this.usedFiles().has(path)) return false;
    this.render();
    return true;
  }

  loaded() {
    let href = '';
    try {
      href = this.frame.contentWindow.location.href;
    } catch {
      return;
    }
    const target = markerTarget(href);
    if (target) {
      this.onOpenLink(target.path, target.fragment);
      return;
    }
    if (href !== 'about:srcdoc') {
      // The frame went somewhere on its own (a form, a refresh): back to the page.
      this.render();
      return;
    }
    this.loading = false;
    const doc = this.document();
    if (doc && this.fragment) {
      const el = doc.getElementById(this.fragment) || doc.getElementsByName(this.fragment)[0];
      if (el) el.scrollIntoView();
      this.fragment = '';
    } else if (doc && this.scroll) {
      this.frame.contentWindow.scrollTo(this.scroll.x, this.scroll.y);
    }
    if (this.source && this.source.kind === 'page' && this.shown !== null && this.source.read() !== this.shown) this.changed();
  }
}
