// What the live preview needs that does not depend on the DOM: how long to
// wait after typing before rendering again, and how a page's own references
// are turned into reads of the host's /api/file.

import { resolveReference } from './paths.js';

/**
 * Delay before the preview renders again after an edit. Small pages feel
 * live; a 2 MiB page waits about a second and a half, so a burst of typing
 * costs one render, not one per keystroke.
 */
export function previewDelay(length) {
  return Math.min(2000, 150 + Math.round(length / 1536));
}

/** The URL that reads a workspace file through the host. */
export function fileUrl(origin, path) {
  return `${origin}/api/file?path=${encodeURIComponent(path)}`;
}

/** Rewrites url(...) references in CSS text with `map` (a null result leaves one alone). */
export function rewriteCssUrls(css, map) {
  return css.replace(/url\(\s*(['"]?)([^'")]*)\1\s*\)/g, (whole, quote, ref) => {
    const to = map(ref);
    return to === null ? whole : `url("${to}")`;
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

/** A reference mapper for one page: workspace files become /api/file URLs, everything else is left alone. */
export function referenceMapper({ origin, pageDir, root }) {
  return (ref) => {
    const abs = resolveReference(pageDir, ref, root);
    return abs === null ? null : fileUrl(origin, abs);
  };
}
