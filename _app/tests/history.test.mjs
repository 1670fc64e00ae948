import { test, describe } from 'node:test';
import assert from 'node:assert/strict';
import { describeVersions, groupByDay, sizeLabel } from '../js/history.js';

const v = (kind, fingerprint, capturedAt = '2026-01-01T00:00:00Z') => ({ kind, fingerprint, capturedAt, id: `${kind}-${fingerprint}` });

describe('history in the user\'s words', () => {
  test('loads, saves and drafts are told apart by the versions around them', () => {
    // Newest first, as GET history answers: load A, draft B, save B (A moved
    // out), draft C, save C with the disk then changed by another program,
    // reloaded as D; a last draft E that was never saved.
    const history = [
      v('pendingEditorBytes', 'E'),
      v('displacedExpected', 'D'),
      v('displacedExpected', 'B'),
      v('pendingEditorBytes', 'C'),
      v('pendingEditorBytes', 'C'),
      v('displacedExpected', 'A'),
      v('pendingEditorBytes', 'B'),
      v('pendingEditorBytes', 'B'),
      v('displacedExpected', 'A'),
    ];
    assert.deepEqual(describeVersions(history, 'D'), [
      'your draft', 'as loaded', 'before your save', 'your save', 'your draft',
      'before your save', 'your save', 'your save', 'as loaded',
    ]);
    // What is on disk now was saved, even with nothing displaced after it.
    assert.equal(describeVersions([v('pendingEditorBytes', 'E')], 'E')[0], 'your save');
  });

  test('days group runs of versions in local time, newest first', () => {
    const now = new Date(2026, 4, 20, 9, 30);
    const at = (d, h) => ({ capturedAt: new Date(2026, 4, d, h).toISOString() });
    const groups = groupByDay([at(20, 8), at(20, 0), at(19, 23), at(3, 12), { capturedAt: 'garbage' }], now);
    assert.deepEqual(groups.map((g) => [g.label.startsWith('Sunday') ? 'Sunday…' : g.label, g.items.map((i) => i.index)]),
      [['Today', [0, 1]], ['Yesterday', [2]], ['Sunday…', [3]], ['Unknown day', [4]]]);
    assert.match(groups[2].label, /3/);
    assert.doesNotMatch(groups[2].label, /2026/);
    assert.match(groupByDay([{ capturedAt: new Date(2025, 0, 2).toISOString() }], now)[0].label, /2025/);
  });

  test('sizes', () => {
    assert.deepEqual([1, 900, 1536, 20480, 3 * 1024 * 1024].map(sizeLabel), ['1 byte', '900 bytes', '1.5 KB', '20 KB', '3.0 MB']);
  });
});
