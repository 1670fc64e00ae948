// Path helpers for absolute POSIX paths as the host sends them on the wire.
// Nothing here touches the DOM, so the tree, the session and the preview
// rewriting share one notion of "the same path".

export function normalize(path) {
  const parts = [];
  for (const part of String(path).split('/')) {
    if (part === '' || part === '.') continue;
    if (part === '..') parts.pop();
    else parts.push(part);
  }
  return '/' + parts.join('/');
}

export function join(dir, name) {
  return normalize(dir + '/' + name);
}

export function dirname(path) {
  const p = normalize(path);
  const i = p.lastIndexOf('/');
  return i <= 0 ? '/' : p.slice(0, i);
}

export function basename(path) {
  const p = normalize(path);
  return p.slice(p.lastIndexOf('/') + 1);
}

export function extname(name) {
  const base = basename(name);
  const i = base.lastIndexOf('.');
  return i <= 0 ? '' : base.slice(i + 1).toLowerCase();
}

export function samePath(a, b) {
  if (a == null || b == null) return false;
  return normalize(a) === normalize(b);
}

/** True when `path` is `root` itself or lies below it. */
export function isWithin(path, root) {
  const p = normalize(path);
  const r = normalize(root);
  return p === r || p.startsWith(r === '/' ? '/' : r + '/');
}

/** `path` relative to `root` ('' for the root itself), or null when outside. */
export function relative(root, path) {
  if (!isWithin(path, root)) return null;
  const p = normalize(path);
  const r = normalize(root);
  return p === r ? '' : p.slice(r === '/' ? 1 : r.length + 1);
}

/** Moves `path` from under `from` to under `to` (a rename of `from` or an ancestor). */
export function rebase(path, from, to) {
  const rel = relative(from, path);
  if (rel === null) return path;
  return rel === '' ? normalize(to) : join(to, rel);
}

// Same ordering rules the host uses for listings: case ignored, digit runs by
// value, so page2 sorts before page10.
const collator = new Intl.Collator(undefined, { numeric: true, sensitivity: 'base' });
export function naturalCompare(a, b) {
  return collator.compare(a, b);
}

const HTML = new Set(['html', 'htm']);
const TEXT = new Set([
  'html', 'htm', 'md', 'markdown', 'css', 'js', 'mjs', 'json', 'txt', 'svg', 'xml',
  'csv', 'yml', 'yaml', 'toml', 'ini', 'sh', 'py', 'ts', 'map', 'webmanifest', '',
]);
const IMAGE = new Set(['png', 'jpg', 'jpeg', 'gif', 'webp', 'svg', 'avif', 'ico']);

/** How the editor treats a file: 'page' (source + live preview), 'text', 'image' or 'other'. */
export function fileKind(name) {
  const ext = extname(name);
  if (HTML.has(ext)) return 'page';
  if (ext === 'svg') return 'text';
  if (IMAGE.has(ext)) return 'image';
  if (TEXT.has(ext)) return 'text';
  return 'other';
}

const SCHEME = /^[a-zA-Z][a-zA-Z0-9+.-]*:/;

/**
 * Resolves a reference written in a page (src, href, url()) to the absolute
 * path of a workspace file. External references (any scheme, protocol-
 * relative, fragment-only, empty) and references that climb out of the
 * workspace give null, so a preview never asks the host for anything else.
 * A root-relative reference ("/style.css") is taken relative to the workspace.
 */
export function resolveReference(pageDir, ref, root) {
  if (typeof ref !== 'string') return null;
  let r = ref.trim();
  if (r === '' || r.startsWith('#') || r.startsWith('//') || SCHEME.test(r)) return null;
  r = r.replace(/[?#].*$/s, '');
  if (r === '') return null;
  try {
    r = decodeURIComponent(r);
  } catch {
    return null;
  }
  const start = r.startsWith('/') ? root : pageDir;
  // normalize() clamps ".." at "/", so check containment on the raw walk.
  const parts = normalize(start).split('/').filter(Boolean);
  const floor = normalize(root).split('/').filter(Boolean).length;
  for (const part of r.split('/')) {
    if (part === '' || part === '.') continue;
    if (part === '..') {
      if (parts.length <= floor) return null;
      parts.pop();
    } else parts.push(part);
  }
  const abs = '/' + parts.join('/');
  return isWithin(abs, root) ? abs : null;
}
