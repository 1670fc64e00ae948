import { test } from 'node:test';
import assert from 'node:assert/strict';
import { EditorState } from '@codemirror/state';
import { decodePage, encodeState, encodingLabel, endingLabel, pageFormat, readText } from '../js/page-text.js';

const bytes = (...parts) => Buffer.concat(parts.map((p) => (typeof p === 'string' ? Buffer.from(p, 'latin1') : Buffer.from(p))));
const utf8 = (text) => Buffer.from(text, 'utf8');

// What the editor shows for a file's bytes, and the bytes a save writes after
// one edit (`at` an offset of the shown text, `insert` typed there). What the
// edit did not touch must come back byte for byte.
const TABLE = [
  { name: 'LF', file: bytes('<p>a</p>\n<p>b</p>\n'), shows: '<p>a</p>\n<p>b</p>\n', eol: 'LF', encoding: 'UTF-8',
    at: 9, insert: 'X', saved: bytes('<p>a</p>\nX<p>b</p>\n') },
  { name: 'CRLF, a typed line break takes the page\'s ending', file: bytes('a\r\nb\r\nc\r\n'), shows: 'a\nb\nc\n', eol: 'CRLF', encoding: 'UTF-8',
    at: 2, insert: 'X\n', saved: bytes('a\r\nX\r\nb\r\nc\r\n') },
  { name: 'CR', file: bytes('a\rb\r'), shows: 'a\nb\n', eol: 'CR', encoding: 'UTF-8',
    at: 3, insert: '!', saved: bytes('a\rb!\r') },
  { name: 'mixed: every line keeps its own ending', file: bytes('a\r\nb\nc\r\nd\re'), shows: 'a\nb\nc\nd\ne', eol: 'Mixed (CRLF)', encoding: 'UTF-8',
    at: 4, insert: 'X', saved: bytes('a\r\nb\nXc\r\nd\re') },
  { name: 'byte-order mark', file: bytes([0xef, 0xbb, 0xbf], 'a\n'), shows: 'a\n', eol: 'LF', encoding: 'UTF-8 with BOM',
    at: 1, insert: 'b', saved: bytes([0xef, 0xbb, 0xbf], 'ab\n') },
  { name: 'no final newline', file: bytes('a\r\nb'), shows: 'a\nb', eol: 'CRLF', encoding: 'UTF-8',
    at: 3, insert: 'c', saved: bytes('a\r\nbc') },
  { name: 'UTF-8 text', file: utf8('café ✓\n'), shows: 'café ✓\n', eol: 'LF', encoding: 'UTF-8',
    at: 6, insert: '!', saved: utf8('café ✓!\n') },
  { name: 'Latin-1: read-only until converted, then written as UTF-8', file: bytes('caf\xe9\r\n'), shows: 'café\n', eol: 'CRLF',
    encoding: 'Windows-1252 (read-only)', at: 4, insert: '!', saved: utf8('café!\r\n') },
  { name: 'NUL bytes: not text', file: bytes('a\0b'), shows: null },
];

for (const row of TABLE) {
  test(`fidelity: ${row.name}`, () => {
    const page = decodePage(row.file);
    if (row.shows === null) {
      assert.deepEqual(page, { kind: 'binary' });
      return;
    }
    assert.equal(page.text, row.shows);
    assert.equal(endingLabel(page.eol, page.odd), row.eol);
    assert.equal(encodingLabel(page), row.encoding);
    const state = EditorState.create({ doc: page.text, extensions: [pageFormat.init(() => page)] });
    const untouched = Buffer.from(encodeState(state), page.encoding === 'utf-8' ? 'utf8' : 'latin1');
    assert.deepEqual(untouched, row.file, 'the text read back unchanged is the file');
    const edited = state.update({ changes: { from: row.at, insert: row.insert } }).state;
    const saved = utf8(encodeState(edited));
    assert.deepEqual(saved, row.saved);
    assert.equal(saved.includes(Buffer.from([0xef, 0xbf, 0xbd])), false, 'no replacement character');
  });
}

test('deleting a line break drops its own ending; the lines around keep theirs', () => {
  const page = decodePage(bytes('a\nb\r\nc\nd'));
  const state = EditorState.create({ doc: page.text, extensions: [pageFormat.init(() => page)] });
  const joined = state.update({ changes: { from: 3, to: 4 } }).state;
  assert.equal(encodeState(joined), 'a\nbc\nd');
  const replaced = state.update({ changes: { from: 0, to: state.doc.length, insert: 'x\ny' } }).state;
  assert.equal(encodeState(replaced), 'x\ny', 'a whole new text takes the page\'s ending');
});

test('text from a script keeps its own endings and byte-order mark', () => {
  const read = readText('\uFEFFa\r\nb\nc', 'lf');
  assert.equal(read.bom, true);
  const state = EditorState.create({ doc: read.text, extensions: [pageFormat.init(() => read)] });
  assert.equal(encodeState(state), '\uFEFFa\r\nb\nc');
});
