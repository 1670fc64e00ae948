// What the live preview needs that does not depend on the DOM: the URLs under
// which the host serves workspace files to the preview, and how a page's links
// and root-relative references are pointed at them.
//
// Workspace files are served under path-shaped URLs
// (vorna://app/workspace/home/ann/site/css/main.css), so the engine resolves
// a page's relative references, and those inside its stylesheets (@import,
// url(), fonts), by itself: the preview only gives the document a <base> in
// the page's folder.

import { isWithin, normalize, resolveReference } from './paths.js';

const PREFIX = '/workspace';
const MARKER = 'about:blank#vorna-open=';

/** The URL under which the host serves the workspace file at `path`. */
export function workspaceUrl(origin, path) {
  return origin + PREFIX + normalize(path).split('/').map(encodeURIComponent).join('/');
}

/** The workspace path a URL of workspaceUrl() names, or null. */
export function workspacePathOf(url, origin) {
  const start = origin + PREFIX + '/';
  if (typeof url !== 'string' || !url.startsWith(start)) return null;
  try {
    return normalize(decodeURIComponent(url.slice(start.length - 1).replace(/[?#].*$/s, '')));
  } catch {
    return null;
  }
}

/** A reference written from the workspace's root ("/css/a.css", not "//host/a.css"). */
export function isRootRelative(ref) {
  return typeof ref === 'string' && /^\s*\/(?!\/)/.test(ref);
}

/** Where a root-relative reference points: the same path under the workspace. */
export function rootRelativeUrl(origin, root, ref) {
  const trimmed = ref.trim();
  const cut = trimmed.search(/[?#]/);
  const path = cut < 0 ? trimmed : trimmed.slice(0, cut);
  const tail = cut < 0 ? '' : trimmed.slice(cut);
  let decoded = path;
  try {
    decoded = decodeURIComponent(path);
  } catch {
    // left as written
  }
  return workspaceUrl(origin, normalize(root + '/' + decoded)) + tail;
}

/**
 * A link in the page to a workspace file: {path, fragment} (fragment without
 * "#", or ''), or null for links elsewhere and fragment-only links.
 */
export function linkTarget(pageDir, href, root) {
  if (typeof href !== 'string' || href.trim().startsWith('#')) return null;
  const path = resolveReference(pageDir, href, root);
  if (path === null || !isWithin(path, root)) return null;
  const hash = href.indexOf('#');
  return { path, fragment: hash < 0 ? '' : href.slice(hash + 1) };
}

/**
 * Where a link to a workspace file sends the preview frame: a blank page whose
 * address names the file, so the editor opens the file instead of the frame
 * showing it raw (the frame runs no script that could do it).
 */
export function openMarker({ path, fragment }) {
  return MARKER + encodeURIComponent(fragment ? `${path}#${fragment}` : path);
}

/** The {path, fragment} of an openMarker() address, or null. */
export function markerTarget(href) {
  if (typeof href !== 'string' || !href.startsWith(MARKER)) return null;
  let target;
  try {
    target = decodeURIComponent(href.slice(MARKER.length));
  } catch {
    return null;
  }
  const hash = target.indexOf('#');
  return hash < 0 ? { path: target, fragment: '' } : { path: target.slice(0, hash), fragment: target.slice(hash + 1) };
}

/** Rewrites url(...) and @import "…" references in CSS text with `map` (a null result leaves one alone). */
export function rewriteCssUrls(css, map) {
  return css.replace(/url\(\s*(['"]?)([^'")]*)\1\s*\)|(@import\s+)(['"])([^'"]*)\4/g, (whole, quote, ref, at, q, imported) => {
    const to = map(ref === undefined ? imported : ref);
    if (to === null) return whole;
    return ref === undefined ? `${at}"${to}"` : `url("${to}")`;
  });
}

/** Rewrites the candidates of a srcset attribute. */
export function rewriteSrcset(srcset, map) {
  return srcset
    .split(',')
    .map((part) => {
      const m = part.trim().match(/^(\S+)(\s+.*)?$/);
      if (!m) return part.trim();
      const to = map(m[1]);
      return (to === null ? m[1] : to) + (m[2] || '');
    })
    .join(', ');
}

// Elements whose content is not parsed as markup, or not shown as text nodes
// where the source has it.
const OPAQUE = /^<(script|style|textarea|title|xmp|iframe|noembed|noframes|noscript|plaintext|template|pre|listing)\b/i;
const ATTRIBUTE = `\\s+[^\\s"'>/=]+(?:\\s*=\\s*(?:"[^"]*"|'[^']*'|[^\\s"'=<>\`]+))?`;
const PLAIN_TAG = new RegExp(`^<(?:[a-zA-Z][^\\s/>]*(?:${ATTRIBUTE})*\\s*/?|/[a-zA-Z][^\\s/>]*\\s*)>$`);
const NOT_TEXT = /[<>&\0\r]/;

/** Where `a` and `b` first differ, and how much of their ends they share after that. */
function changedSpan(a, b) {
  let start = 0;
  const shorter = Math.min(a.length, b.length);
  // Chunks first: string comparison is native, a character loop is not.
  for (let step = 4096; step >= 1; step >>= 4) {
    while (start + step <= shorter && a.slice(start, start + step) === b.slice(start, start + step)) start += step;
  }
  let end = 0;
  const room = shorter - start;
  for (let step = 4096; step >= 1; step >>= 4) {
    while (end + step <= room && a.slice(a.length - end - step, a.length - end) === b.slice(b.length - end - step, b.length - end)) end += step;
  }
  return { start, aEnd: a.length - end, bEnd: b.length - end };
}

/**
 * An edit from `before` to `after` that only changes the characters of one
 * run of text between two tags: {from, to}, the run before and after it; null
 * when the edit may touch markup, or the run is not shown as one text node of
 * its own (entities, raw text, whitespace-only runs, runs that occur twice).
 */
export function textEdit(before, after) {
  if (before === after) return null;
  const { start, aEnd, bEnd } = changedSpan(before, after);
  if (NOT_TEXT.test(before.slice(start, aEnd)) || NOT_TEXT.test(after.slice(start, bEnd))) return null;
  const open = before.lastIndexOf('<', start - 1);
  const close = before.indexOf('>', open);
  if (open < 0 || close < 0 || close >= start) return null;
  const tag = before.slice(open, close + 1);
  if (!PLAIN_TAG.test(tag) || OPAQUE.test(tag)) return null;
  const next = before.indexOf('<', aEnd);
  if (next < 0) return null;
  const from = before.slice(close + 1, next);
  const to = after.slice(close + 1, next + bEnd - aEnd);
  if (NOT_TEXT.test(from) || !from.trim() || !to.trim()) return null;
  const marked = `>${from}<`;
  const first = before.indexOf(marked);
  if (before.indexOf(marked, first + 1) >= 0) return null;
  return { from, to };
}
