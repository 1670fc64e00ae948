// The conflicts panel: the versions a failed save left behind, side by side,
// a line diff between any two of them, and the user's choice.

import { pickColumns, ROLE_LABELS } from '../conflicts.js';
import { diffLines, diffStats, hunks, splitLines } from '../diff.js';
import { basename } from '../paths.js';
import { $, formatTime, h, shortFingerprint } from './dom.js';

const MAX_DIFF_ROWS = 4000;

export class ConflictsView {
  /** `handlers`: select(conflict), choose(view, candidateId), useCurrent(view), dismiss(view), closed(). */
  constructor(handlers) {
    this.dialog = $('conflicts-panel');
    this.handlers = handlers;
    this.view = null;
    this.list = [];
    this.pair = null;
    this.busy = false;
    this.message = '';
    this.dialog.addEventListener('close', () => this.handlers.closed());
  }

  get isOpen() {
    return this.dialog.open;
  }

  show(list, view, message = '') {
    this.list = list;
    this.view = view;
    this.message = message;
    this.pair = null;
    this.render();
    if (!this.dialog.open) this.dialog.showModal();
  }

  update(view, message = this.message) {
    this.view = view;
    this.message = message;
    this.render();
  }

  setBusy(busy, message = this.message) {
    this.busy = busy;
    this.message = message;
    this.render();
  }

  close() {
    if (this.dialog.open) this.dialog.close();
  }

  versions() {
    const v = this.view;
    if (!v) return [];
    const cols = pickColumns(v.candidates);
    const out = [];
    for (const role of ['base', 'editor', 'disk']) if (cols[role]) out.push(cols[role]);
    // Older versions of a role (a conflict extended by later failed saves) stay reachable.
    for (const c of v.candidates) if (!out.includes(c)) out.push(c);
    if (v.current) out.push(v.current);
    return out;
  }

  label(c) {
    const same = this.view.candidates.filter((x) => x.role === c.role);
    const base = ROLE_LABELS[c.role] || c.role;
    return same.length > 1 && c.role !== 'current' ? `${base} ${same.indexOf(c) + 1}` : base;
  }

  render() {
    const v = this.view;
    if (!v) {
      this.dialog.replaceChildren();
      return;
    }
    const versions = this.versions();
    const columns = versions.slice(0, 4);
    if (!this.pair || !versions.includes(this.pair[0]) || !versions.includes(this.pair[1])) {
      const cols = pickColumns(v.candidates);
      const left = v.current || cols.disk || cols.base || versions[0];
      const right = cols.editor || versions.find((x) => x !== left) || left;
      this.pair = [left, right];
    }
    const head = h('div', { class: 'cf-head' },
      h('h2', { id: 'conflicts-title' }, `Conflict in ${basename(v.conflict.pagePath)}`),
      h('span', { class: 'cf-sub' }, `opened ${formatTime(v.conflict.openedAt)} · ${v.conflict.pagePath}`),
      h('span', { class: 'spacer' }),
      h('button', { type: 'button', class: 'btn', onclick: () => this.close() }, 'Close'));

    const listPane = this.list.length > 1
      ? h('nav', { class: 'cf-list', 'aria-label': 'Open conflicts' }, this.list.map((c) =>
        h('button', {
          type: 'button',
          'aria-current': c.id === v.conflict.id ? 'true' : 'false',
          onclick: () => this.handlers.select(c),
        }, basename(c.pagePath), h('small', { text: formatTime(c.openedAt) }))))
      : null;

    const notes = [];
    if (!v.disk.exists) notes.push('The page no longer exists on disk. Dismiss the conflict, or recreate the page from one of these versions.');
    else if (v.current) notes.push('The page changed on disk after this conflict was recorded. "Disk now" shows what it holds; choosing a version replaces it.');
    if (this.message) notes.push(this.message);

    const cols = h('div', { class: 'cf-columns' }, columns.map((c) => this.column(c)));
    const main = h('div', { class: 'cf-main' },
      notes.map((n) => h('div', { class: 'cf-note', role: 'note' }, n)),
      cols,
      this.diffHead(versions),
      this.diffBody());

    const foot = h('div', { class: 'cf-foot' },
      h('span', { class: 'status', role: 'status' }, this.busy ? 'Working…' : 'Choosing a version writes it to the page. The other versions stay in the recovery store.'),
      h('button', {
        type: 'button', class: 'btn', disabled: this.busy || undefined,
        title: 'Close this page\'s conflicts without writing the page; your text stays in the editor',
        onclick: () => this.handlers.dismiss(v),
      }, 'Dismiss conflict'));

    this.dialog.replaceChildren(head, h('div', { class: 'cf-body' }, listPane, main), foot);
  }

  column(c) {
    const meta = c.role === 'current'
      ? `on disk now · ${shortFingerprint(c.fingerprint)}`
      : `${formatTime(c.capturedAt)} · ${c.byteCount} bytes · ${shortFingerprint(c.fingerprint)}`;
    const use = c.role === 'current'
      ? () => this.handlers.useCurrent(this.view)
      : () => this.handlers.choose(this.view, c.id);
    const useLabel = c.role === 'current' ? 'Keep disk' : `Use ${this.label(c).toLowerCase()}`;
    return h('section', { class: 'cf-col', 'aria-label': this.label(c) },
      h('div', { class: 'cf-col-head' },
        h('div', {}, h('strong', { text: this.label(c) }), h('br'), h('small', { text: meta })),
        h('button', {
          type: 'button', class: `btn btn-small${c.role === 'editor' ? ' btn-primary' : ''}`,
          disabled: this.busy || c.missing || undefined, onclick: use,
        }, useLabel)),
      h('pre', { class: 'cf-text', tabindex: '0', 'aria-label': `${this.label(c)} text` },
        c.missing ? `(not available: ${c.error})` : c.text));
  }

  diffHead(versions) {
    const select = (side) => {
      const s = h('select', { 'aria-label': side === 0 ? 'Compare from' : 'Compare to' },
        versions.map((c, i) => h('option', { value: String(i), selected: c === this.pair[side] || undefined }, this.label(c))));
      s.addEventListener('change', () => {
        this.pair[side] = versions[Number(s.value)];
        this.render();
      });
      return s;
    };
    const [a, b] = this.pair;
    if (!this.cached || this.cached.a !== a || this.cached.b !== b) {
      this.cached = { a, b, script: diffLines(splitLines(a.text), splitLines(b.text)) };
    }
    const script = this.script = this.cached.script;
    const { added, removed } = diffStats(script);
    return h('div', { class: 'cf-diff-head' },
      h('strong', {}, 'Changes'), select(0), h('span', {}, '→'), select(1),
      h('span', { class: 'cf-stats' }, `${removed} removed, ${added} added`));
  }

  diffBody() {
    const pre = h('div', { class: 'cf-diff', tabindex: '0', 'aria-label': 'Line differences' });
    const groups = hunks(this.script, 3);
    if (groups.length === 0) {
      pre.append(h('div', { class: 'same-all' }, 'These two versions are identical.'));
      return pre;
    }
    let rows = 0;
    for (const g of groups) {
      if (rows > MAX_DIFF_ROWS) {
        pre.append(h('div', { class: 'hunk' }, 'More changes are not shown.'));
        break;
      }
      pre.append(h('div', { class: 'hunk' }, `Line ${g.aStart + 1} → ${g.bStart + 1}`));
      for (const e of g.lines) {
        rows++;
        const cls = e.op === '+' ? 'ln add' : e.op === '-' ? 'ln del' : 'ln';
        const no = e.op === '+' ? e.b + 1 : e.a + 1;
        pre.append(h('div', { class: cls },
          h('span', { class: 'no' }, `${e.op === '=' ? ' ' : e.op} ${no}`),
          h('span', { class: 'tx' }, e.text)));
      }
    }
    return pre;
  }
}
