// A page's history as the host's store keeps it, in the user's words: what
// each retained version was, and the days they fall on.
//
// The store names why it kept a copy, not what it was to the user. Two of its
// kinds each cover two moments, told apart by the other versions:
// - displacedExpected is a load checkpoint (bytes seen for the first time) or
//   the version a save moved out (bytes the history already held);
// - pendingEditorBytes is the editor's text, kept before a save wrote it or as
//   a draft: it was saved when a save moved the page's old version out right
//   after it was kept, or when those bytes were on disk later, or are now.

export const KIND_WORDS = {
  displacedExpected: 'before your save',
  displacedExternal: 'changed by another program',
  pendingEditorBytes: 'your draft',
  editorBytesWithdrawn: 'conflict: your version',
};

const AS_LOADED = 'as loaded';
const SAVED = 'your save';
const ON_DISK_KINDS = new Set(['displacedExpected', 'displacedExternal']);

/**
 * The words for each version of `versions` (newest first, as GET history
 * answers), given the fingerprint of the page on disk now (or null).
 */
export function describeVersions(versions, diskFingerprint = null) {
  const words = new Array(versions.length);
  // Walking from the oldest: which bytes the history already held.
  const seen = new Set();
  for (let i = versions.length - 1; i >= 0; i--) {
    const v = versions[i];
    words[i] = KIND_WORDS[v.kind] || v.kind;
    if (v.kind === 'displacedExpected' && v.fingerprint && !seen.has(v.fingerprint)) words[i] = AS_LOADED;
    if (v.fingerprint) seen.add(v.fingerprint);
  }
  // Walking from the newest: which bytes were on disk afterwards.
  const laterOnDisk = new Set(diskFingerprint ? [diskFingerprint] : []);
  for (let i = 0; i < versions.length; i++) {
    const v = versions[i];
    const savedNext = i > 0 && versions[i - 1].kind === 'displacedExpected';
    if (v.kind === 'pendingEditorBytes' && (savedNext || laterOnDisk.has(v.fingerprint))) words[i] = SAVED;
    if (ON_DISK_KINDS.has(v.kind) && v.fingerprint) laterOnDisk.add(v.fingerprint);
  }
  return words;
}

function dayKey(date) {
  return `${date.getFullYear()}-${date.getMonth() + 1}-${date.getDate()}`;
}

/** "Today", "Yesterday", or the date, in the user's time zone. */
export function dayLabel(date, now = new Date()) {
  if (dayKey(date) === dayKey(now)) return 'Today';
  const yesterday = new Date(now.getFullYear(), now.getMonth(), now.getDate() - 1);
  if (dayKey(date) === dayKey(yesterday)) return 'Yesterday';
  return date.toLocaleDateString(undefined, {
    weekday: 'long', day: 'numeric', month: 'long',
    year: date.getFullYear() === now.getFullYear() ? undefined : 'numeric',
  });
}

/**
 * Versions in runs of one local day each, in the order given:
 * [{label, items: [{version, index}]}]; `index` is the version's place in `versions`.
 */
export function groupByDay(versions, now = new Date()) {
  const groups = [];
  let key = null;
  versions.forEach((version, index) => {
    const date = new Date(version.capturedAt);
    const k = Number.isNaN(date.getTime()) ? 'unknown' : dayKey(date);
    if (k !== key) {
      key = k;
      groups.push({ label: k === 'unknown' ? 'Unknown day' : dayLabel(date, now), items: [] });
    }
    groups[groups.length - 1].items.push({ version, index });
  });
  return groups;
}

export function sizeLabel(bytes) {
  if (!(bytes >= 1024)) return bytes === 1 ? '1 byte' : `${bytes} bytes`;
  if (bytes < 1024 * 1024) return `${(bytes / 1024).toFixed(bytes < 10240 ? 1 : 0)} KB`;
  return `${(bytes / (1024 * 1024)).toFixed(1)} MB`;
}

// One formatter for every entry: making one per call costs the panel more
// than everything else it does.
let clock = null;

export function clockLabel(iso) {
  const date = new Date(iso);
  if (Number.isNaN(date.getTime())) return String(iso || '');
  clock = clock || new Intl.DateTimeFormat(undefined, { hour: '2-digit', minute: '2-digit', second: '2-digit' });
  return clock.format(date);
}
