import { test, describe } from 'node:test';
import assert from 'node:assert/strict';
import { diffLines, diffStats, hunks, splitLines } from '../js/diff.js';

function apply(a, script) {
  const out = [];
  let ai = 0;
  for (const e of script) {
    if (e.op === '=') {
      assert.equal(a[ai], e.text);
      assert.equal(e.a, ai);
      out.push(a[ai++]);
    } else if (e.op === '-') {
      assert.equal(a[ai], e.text);
      ai++;
    } else out.push(e.text);
  }
  assert.equal(ai, a.length);
  return out;
}

function lcs(a, b) {
  const dp = Array.from({ length: a.length + 1 }, () => new Array(b.length + 1).fill(0));
  for (let i = a.length - 1; i >= 0; i--) {
    for (let j = b.length - 1; j >= 0; j--) dp[i][j] = a[i] === b[j] ? dp[i + 1][j + 1] + 1 : Math.max(dp[i + 1][j], dp[i][j + 1]);
  }
  return dp[0][0];
}

// Deterministic pseudo-random lines, so a failure reproduces.
function rng(seed) {
  let s = seed >>> 0;
  return () => ((s = (s * 1664525 + 1013904223) >>> 0) / 2 ** 32);
}

describe('line diff', () => {
  test('splitLines treats a final newline as ending the last line', () => {
    assert.deepEqual(splitLines(''), []);
    assert.deepEqual(splitLines('a\nb\n'), ['a', 'b']);
    assert.deepEqual(splitLines('a\n\n'), ['a', '']);
  });

  test('random edits: the script rebuilds the target and is as short as the LCS allows', () => {
    const next = rng(7);
    for (let round = 0; round < 200; round++) {
      const alphabet = 1 + Math.floor(next() * 5);
      const line = () => String.fromCharCode(97 + Math.floor(next() * alphabet));
      const a = Array.from({ length: Math.floor(next() * 14) }, line);
      const b = Array.from({ length: Math.floor(next() * 14) }, line);
      const script = diffLines(a, b);
      assert.deepEqual(apply(a, script), b, `round ${round}`);
      const { added, removed } = diffStats(script);
      const common = lcs(a, b);
      assert.equal(removed, a.length - common, `round ${round}`);
      assert.equal(added, b.length - common, `round ${round}`);
    }
  });

  test('past the edit budget the middle becomes one replaced block, still correct', () => {
    const a = Array.from({ length: 300 }, (_, i) => `a${i}`);
    const b = Array.from({ length: 300 }, (_, i) => `b${i}`);
    a.unshift('same');
    b.unshift('same');
    const script = diffLines(a, b, { maxEdits: 10 });
    assert.deepEqual(apply(a, script), b);
    assert.equal(script[0].op, '=');
  });

  test('a one-line change in a 50,000-line page is found without touching the rest', () => {
    const a = Array.from({ length: 50000 }, (_, i) => `<p>line ${i}</p>`);
    const b = a.slice();
    b[25000] = '<p>changed</p>';
    const { added, removed } = diffStats(diffLines(a, b));
    assert.deepEqual({ added, removed }, { added: 1, removed: 1 });
  });
});

test('changes closer than twice the context share a hunk; far ones get their own; identical texts have none', () => {
  const a = Array.from({ length: 40 }, (_, i) => `l${i}`);
  const b = a.slice();
  b[5] = 'x';
  b[9] = 'y';
  b[30] = 'z';
  const groups = hunks(diffLines(a, b), 3);
  assert.equal(groups.length, 2);
  assert.equal(groups[0].aStart, 2);
  assert.equal(groups[1].aStart, 27);
  assert.equal(groups[1].lines.filter((e) => e.op === '=').length, 6);
  assert.deepEqual(hunks(diffLines(['a'], ['a'])), []);
});
