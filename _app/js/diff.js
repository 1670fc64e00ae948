// Line diff (Myers' O(ND) shortest edit script) for the conflicts panel.
//
// Pages can be large and two candidates can be far apart, so the search is
// bounded: common leading and trailing lines are stripped first, and when the
// middle needs more than `maxEdits` edits it is reported as one replaced
// block. The result is still a correct edit script, only not a minimal one.

export function splitLines(text) {
  if (text === '') return [];
  const lines = text.split('\n');
  // A final newline ends the last line; it does not start an empty one.
  if (lines[lines.length - 1] === '') lines.pop();
  return lines;
}

/**
 * Edit script turning `a` into `b` (arrays of lines). Each entry is
 * {op: '=', '-' or '+', a: index in a or -1, b: index in b or -1, text}.
 */
export function diffLines(a, b, { maxEdits = 4000 } = {}) {
  let start = 0;
  while (start < a.length && start < b.length && a[start] === b[start]) start++;
  let endA = a.length;
  let endB = b.length;
  while (endA > start && endB > start && a[endA - 1] === b[endB - 1]) {
    endA--;
    endB--;
  }
  const out = [];
  for (let i = 0; i < start; i++) out.push({ op: '=', a: i, b: i, text: a[i] });
  middle(a, b, start, endA, start, endB, maxEdits, out);
  for (let i = endA, j = endB; i < a.length; i++, j++) out.push({ op: '=', a: i, b: j, text: a[i] });
  return out;
}

function replaced(a, b, a0, a1, b0, b1, out) {
  for (let i = a0; i < a1; i++) out.push({ op: '-', a: i, b: -1, text: a[i] });
  for (let j = b0; j < b1; j++) out.push({ op: '+', a: -1, b: j, text: b[j] });
}

function middle(a, b, a0, a1, b0, b1, maxEdits, out) {
  const n = a1 - a0;
  const m = b1 - b0;
  if (n === 0 || m === 0) {
    replaced(a, b, a0, a1, b0, b1, out);
    return;
  }
  const max = Math.min(n + m, maxEdits);
  const offset = max + 1;
  const v = new Int32Array(2 * max + 3);
  const trace = [];
  let found = -1;
  for (let d = 0; d <= max && found < 0; d++) {
    // Only the diagonals -d..d matter at step d; keep just those for the walk back.
    trace.push(v.slice(offset - d - 1, offset + d + 2));
    for (let k = -d; k <= d; k += 2) {
      let x;
      if (k === -d || (k !== d && v[offset + k - 1] < v[offset + k + 1])) x = v[offset + k + 1];
      else x = v[offset + k - 1] + 1;
      let y = x - k;
      while (x < n && y < m && a[a0 + x] === b[b0 + y]) {
        x++;
        y++;
      }
      v[offset + k] = x;
      if (x >= n && y >= m) {
        found = d;
        break;
      }
    }
  }
  if (found < 0) {
    replaced(a, b, a0, a1, b0, b1, out);
    return;
  }
  // Walk back from (n, m) through the saved frontiers.
  const steps = [];
  let x = n;
  let y = m;
  for (let d = found; d > 0; d--) {
    const saved = trace[d];
    const at = (k) => saved[k + d + 1];
    const k = x - y;
    const prevK = k === -d || (k !== d && at(k - 1) < at(k + 1)) ? k + 1 : k - 1;
    const prevX = at(prevK);
    const prevY = prevX - prevK;
    while (x > prevX && y > prevY) {
      x--;
      y--;
      steps.push({ op: '=', a: a0 + x, b: b0 + y, text: a[a0 + x] });
    }
    if (x === prevX) {
      y--;
      steps.push({ op: '+', a: -1, b: b0 + y, text: b[b0 + y] });
    } else {
      x--;
      steps.push({ op: '-', a: a0 + x, b: -1, text: a[a0 + x] });
    }
  }
  while (x > 0 && y > 0) {
    x--;
    y--;
    steps.push({ op: '=', a: a0 + x, b: b0 + y, text: a[a0 + x] });
  }
  for (let i = steps.length - 1; i >= 0; i--) out.push(steps[i]);
}

/**
 * Groups an edit script into hunks with `context` unchanged lines around each
 * change, so a view shows the changes of a long page and not the whole page.
 * Each hunk is {lines: [...entries], aStart, bStart} (0-based).
 */
export function hunks(script, context = 3) {
  const changed = [];
  script.forEach((e, i) => {
    if (e.op !== '=') changed.push(i);
  });
  const result = [];
  let i = 0;
  while (i < changed.length) {
    let from = Math.max(0, changed[i] - context);
    let to = Math.min(script.length, changed[i] + context + 1);
    i++;
    while (i < changed.length && changed[i] - context <= to) {
      to = Math.min(script.length, changed[i] + context + 1);
      i++;
    }
    const lines = script.slice(from, to);
    result.push({ lines, aStart: firstIndex(script, from, 'a'), bStart: firstIndex(script, from, 'b') });
  }
  return result;
}

function firstIndex(script, from, side) {
  for (let i = from; i < script.length; i++) if (script[i][side] >= 0) return script[i][side];
  for (let i = from - 1; i >= 0; i--) if (script[i][side] >= 0) return script[i][side] + 1;
  return 0;
}

export function diffStats(script) {
  let added = 0;
  let removed = 0;
  for (const e of script) {
    if (e.op === '+') added++;
    else if (e.op === '-') removed++;
  }
  return { added, removed };
}
