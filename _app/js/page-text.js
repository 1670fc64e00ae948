// How a file's bytes become the editor's text and how the text becomes bytes
// again. The rule: what the user did not touch is written back exactly as it
// was read.
//
// - UTF-8 is decoded with a fatal decoder. A file that is not valid UTF-8 is
//   shown as Windows-1252 (every byte maps to one character, so nothing is
//   lost) and stays read-only until the user converts it; it is never written
//   with replacement characters.
// - A file holding NUL bytes is not text; it is not opened for editing.
// - A byte-order mark is taken off the text and put back when writing.
// - The editor's document always separates lines with "\n". The file's most
//   common ending is the page's ending; every line break that had another one
//   carries a LineEnding mark over its "\n" in the document. The marks map
//   through edits with the text, so an untouched line keeps its own ending and
//   a line typed anew takes the page's.

import { RangeSet, RangeValue, StateEffect, StateField } from '@codemirror/state';

export const ENDINGS = { lf: '\n', crlf: '\r\n', cr: '\r' };
const LABELS = { lf: 'LF', crlf: 'CRLF', cr: 'CR' };
const BOM = '\uFEFF';

class LineEnding extends RangeValue {
  constructor(eol) {
    super();
    this.eol = eol;
  }

  eq(other) {
    return other.eol === this.eol;
  }
}
// A mark covers exactly one "\n": text inserted at either edge stays outside
// it, and deleting the break empties the mark, which then goes away.
LineEnding.prototype.startSide = 1;
LineEnding.prototype.endSide = -1;
const MARKS = Object.fromEntries(Object.keys(ENDINGS).map((eol) => [eol, new LineEnding(eol)]));

/** The text with its line breaks unified to "\n", the page's ending, and the breaks that differ. */
export function splitEndings(raw, fallback = 'lf') {
  if (!raw.includes('\r')) {
    return { text: raw, eol: raw.includes('\n') ? 'lf' : fallback, odd: RangeSet.empty, counts: { lf: countOf(raw, '\n'), crlf: 0, cr: 0 } };
  }
  const breaks = [];
  const counts = { lf: 0, crlf: 0, cr: 0 };
  const re = /\r\n|\r|\n/g;
  let shift = 0;
  for (let m; (m = re.exec(raw)) !== null;) {
    const eol = m[0] === '\n' ? 'lf' : m[0] === '\r' ? 'cr' : 'crlf';
    counts[eol]++;
    breaks.push({ at: m.index - shift, eol });
    shift += m[0].length - 1;
  }
  const first = breaks.length ? breaks[0].eol : fallback;
  const eol = Object.keys(counts).reduce((best, e) => (counts[e] > counts[best] ? e : best), first);
  const odd = breaks.filter((b) => b.eol !== eol).map((b) => MARKS[b.eol].range(b.at, b.at + 1));
  return { text: raw.replace(/\r\n?/g, '\n'), eol, odd: RangeSet.of(odd), counts };
}

function countOf(text, ch) {
  let n = 0;
  for (let i = text.indexOf(ch); i !== -1; i = text.indexOf(ch, i + 1)) n++;
  return n;
}

/** The document's text with every line break written with its own ending. */
export function joinEndings(doc, eol, odd) {
  const sep = ENDINGS[eol];
  if (odd.size === 0) return doc.sliceString(0, doc.length, sep);
  let out = '';
  let from = 0;
  for (const cursor = odd.iter(); cursor.value !== null; cursor.next()) {
    const at = cursor.from;
    if (cursor.to !== at + 1 || at < from || doc.sliceString(at, at + 1) !== '\n') continue;
    out += doc.sliceString(from, at, sep) + ENDINGS[cursor.value.eol];
    from = at + 1;
  }
  return out + doc.sliceString(from, doc.length, sep);
}

const utf8 = new TextDecoder('utf-8', { fatal: true, ignoreBOM: true });
const windows1252 = new TextDecoder('windows-1252');

/**
 * Decodes a file. `{kind: 'binary'}` for a file with NUL bytes; otherwise
 * `{kind: 'text', encoding: 'utf-8' | 'windows-1252', bom, raw, text, eol,
 * odd, counts}`: `raw` as the file has it (without the BOM), `text` in the
 * editor's form (see splitEndings).
 */
export function decodePage(bytes) {
  const data = bytes instanceof Uint8Array ? bytes : new Uint8Array(bytes);
  if (data.indexOf(0) !== -1) return { kind: 'binary' };
  let raw;
  let encoding = 'utf-8';
  try {
    raw = utf8.decode(data);
  } catch {
    raw = windows1252.decode(data);
    encoding = 'windows-1252';
  }
  const bom = encoding === 'utf-8' && raw.startsWith(BOM);
  if (bom) raw = raw.slice(1);
  return { kind: 'text', encoding, bom, raw, ...splitEndings(raw) };
}

/** The page as the host stores it: BOM, then the text with its endings. */
export function encodePage(doc, { bom, eol, odd }) {
  return (bom ? BOM : '') + joinEndings(doc, eol, odd);
}

/** Text handed in by a script (window.VN.setText) read like a file's text. */
export function readText(text, fallbackEol) {
  const bom = text.startsWith(BOM);
  return { bom, ...splitEndings(bom ? text.slice(1) : text, fallbackEol) };
}

/** "LF", "CRLF", "CR", or "Mixed (CRLF)" when some lines end otherwise. */
export function endingLabel(eol, odd) {
  return odd.size ? `Mixed (${LABELS[eol]})` : LABELS[eol];
}

export function encodingLabel({ encoding, bom }) {
  if (encoding === 'windows-1252') return 'Windows-1252 (read-only)';
  return bom ? 'UTF-8 with BOM' : 'UTF-8';
}

// ---- in the editor's state ----

/** Replaces the page's format: {eol, bom, odd}. Undoing the edit restores the old one. */
export const setPageFormat = StateEffect.define();

/** The page's ending, its byte-order mark and the marks of odd endings, mapped through every edit. */
export const pageFormat = StateField.define({
  create: () => ({ eol: 'lf', bom: false, odd: RangeSet.empty }),
  update(format, tr) {
    for (const effect of tr.effects) if (effect.is(setPageFormat)) return effect.value;
    return tr.docChanged && format.odd.size ? { ...format, odd: format.odd.map(tr.changes) } : format;
  },
});

/** The page's bytes as text, from an editor state holding `pageFormat`. */
export function encodeState(state) {
  return encodePage(state.doc, state.field(pageFormat));
}

/**
 * The smallest change that turns `doc` into `text` (the common start and end
 * kept), so that replacing a page's text keeps the view and undoes cheaply.
 */
export function changeTo(doc, text) {
  const old = doc.toString();
  let start = 0;
  const max = Math.min(old.length, text.length);
  while (start < max && old.charCodeAt(start) === text.charCodeAt(start)) start++;
  let end = 0;
  while (end < max - start && old.charCodeAt(old.length - 1 - end) === text.charCodeAt(text.length - 1 - end)) end++;
  return { from: start, to: old.length - end, insert: text.slice(start, text.length - end) };
}
