// The source editor: a plain textarea (native undo, selection, input methods
// and accessibility), a line-number gutter and a find bar.
//
// Pages may be several MiB. The gutter therefore only ever holds the numbers
// of the rows in view, as one text node, and the textarea's value is read at
// most once per frame (small pages) or after a short pause (large ones).

import { $ } from './dom.js';

const LARGE = 256 * 1024;

function countLines(text) {
  let n = 1;
  let i = -1;
  while ((i = text.indexOf('\n', i + 1)) !== -1) n++;
  return n;
}

function lineOf(text, pos) {
  let n = 0;
  let i = -1;
  while ((i = text.indexOf('\n', i + 1)) !== -1 && i < pos) n++;
  return n;
}

export class EditorView {
  /** `onEdit()` on every edit; `onSync(text)` when the exact text has been read. */
  constructor({ onEdit, onSync, onEscape }) {
    this.area = $('source');
    this.gutter = $('gutter-lines');
    this.onEdit = onEdit;
    this.onSync = onSync;
    this.onEscape = onEscape || (() => {});
    this.lines = 1;
    this.length = 0;
    this.frame = 0;
    this.syncTimer = null;
    this.tabEscapes = false;
    this.hitLine = -1;
    this.indentUnit = '  ';
    this.lineHeight = 20;

    this.area.addEventListener('input', () => this.edited());
    this.area.addEventListener('scroll', () => this.paintGutter());
    this.area.addEventListener('keydown', (e) => this.onKey(e));
    this.area.addEventListener('keyup', () => this.paintCursor());
    this.area.addEventListener('click', () => this.paintCursor());
    this.area.addEventListener('focus', () => this.paintCursor());
    new ResizeObserver(() => this.paintGutter()).observe(this.area);
    this.find = new FindBar(this);
  }

  /** Replaces the whole text (opening, reloading); clears undo history. */
  setValue(text, { keepScroll = false } = {}) {
    const top = this.area.scrollTop;
    const left = this.area.scrollLeft;
    this.cancelSync();
    this.area.value = text;
    this.length = text.length;
    this.lines = countLines(text);
    this.indentUnit = /^\t/m.test(text.slice(0, 20000)) && !/^ {2}/m.test(text.slice(0, 20000)) ? '\t' : '  ';
    this.hitLine = -1;
    if (keepScroll) {
      this.area.scrollTop = top;
      this.area.scrollLeft = left;
    } else {
      this.area.scrollTop = 0;
      this.area.scrollLeft = 0;
      this.area.setSelectionRange(0, 0);
    }
    this.paintGutter();
    this.paintCursor();
    this.find.refresh();
  }

  value() {
    return this.area.value;
  }

  setEnabled(on) {
    this.area.disabled = !on;
  }

  setReadOnly(on) {
    this.area.readOnly = on;
  }

  focus() {
    this.area.focus();
  }

  edited() {
    this.onEdit();
    this.hitLine = -1;
    this.cancelSync();
    if (this.length < LARGE) {
      if (!this.frame) this.frame = requestAnimationFrame(() => {
        this.frame = 0;
        this.sync();
      });
    } else {
      this.syncTimer = setTimeout(() => this.sync(), 250);
    }
  }

  cancelSync() {
    if (this.frame) cancelAnimationFrame(this.frame);
    this.frame = 0;
    if (this.syncTimer) clearTimeout(this.syncTimer);
    this.syncTimer = null;
  }

  /** Reads the text now; returns it. */
  sync() {
    this.cancelSync();
    const text = this.area.value;
    this.length = text.length;
    const lines = countLines(text);
    if (lines !== this.lines) {
      this.lines = lines;
      this.paintGutter();
    }
    this.onSync(text);
    this.find.refresh();
    this.paintCursor();
    return text;
  }

  paintGutter() {
    const digits = String(this.lines).length;
    if (digits !== this.digits) {
      this.digits = digits;
      this.gutter.parentElement.style.width = `${Math.max(3, digits) * 8 + 28}px`;
    }
    const lh = this.lineHeight;
    const top = this.area.scrollTop;
    const padTop = 8;
    const first = Math.max(0, Math.floor((top - padTop) / lh));
    const count = Math.ceil(this.area.clientHeight / lh) + 2;
    const last = Math.min(this.lines, first + count);
    let out = '';
    for (let n = first + 1; n <= last; n++) out += (n === first + 1 ? '' : '\n') + n;
    if (this.hitLine >= first && this.hitLine < last) {
      // The line of the current find match stands out in the gutter, since the
      // textarea shows no selection while the find field has focus.
      const before = out.split('\n');
      this.gutter.replaceChildren();
      before.forEach((num, i) => {
        const line = first + i;
        if (i) this.gutter.append('\n');
        if (line === this.hitLine) {
          const mark = document.createElement('span');
          mark.className = 'hit';
          mark.textContent = num;
          this.gutter.append(mark);
        } else this.gutter.append(num);
      });
    } else this.gutter.textContent = out;
    this.gutter.style.transform = `translateY(${padTop + first * lh - top}px)`;
  }

  paintCursor() {
    const pos = $('cursor-pos');
    if (this.area.disabled || document.activeElement !== this.area) return;
    const at = this.area.selectionStart;
    const text = this.area.value;
    const line = lineOf(text, at);
    const col = at - (text.lastIndexOf('\n', at - 1) + 1);
    pos.textContent = `Ln ${line + 1}, Col ${col + 1}`;
  }

  /** Selects [start, end) and scrolls it into view without taking focus. */
  reveal(start, end, { focus = false } = {}) {
    const text = this.area.value;
    const line = lineOf(text, start);
    this.area.setSelectionRange(start, end);
    const lh = this.lineHeight;
    const target = 8 + line * lh;
    if (target < this.area.scrollTop + lh || target > this.area.scrollTop + this.area.clientHeight - 2 * lh) {
      this.area.scrollTop = Math.max(0, target - this.area.clientHeight / 3);
    }
    const col = start - (text.lastIndexOf('\n', start - 1) + 1);
    const charWidth = 7.6;
    const x = 12 + col * charWidth;
    if (x < this.area.scrollLeft || x > this.area.scrollLeft + this.area.clientWidth - 40) {
      this.area.scrollLeft = Math.max(0, x - this.area.clientWidth / 3);
    }
    this.hitLine = line;
    this.paintGutter();
    if (focus) this.area.focus();
  }

  insert(text) {
    // execCommand keeps the edit on the textarea's own undo stack.
    if (!document.execCommand('insertText', false, text)) {
      this.area.setRangeText(text, this.area.selectionStart, this.area.selectionEnd, 'end');
      this.area.dispatchEvent(new Event('input', { bubbles: true }));
    }
  }

  onKey(e) {
    if (e.key === 'Escape') {
      this.tabEscapes = true;
      this.onEscape();
      return;
    }
    if (e.key === 'Tab' && !e.ctrlKey && !e.altKey && !e.metaKey) {
      if (this.tabEscapes) {
        this.tabEscapes = false;
        return;
      }
      e.preventDefault();
      this.indent(e.shiftKey);
      return;
    }
    this.tabEscapes = false;
    if (e.key === 'Enter' && !e.ctrlKey && !e.metaKey && !e.altKey && !e.shiftKey) {
      const text = this.area.value;
      const at = this.area.selectionStart;
      const lineStart = text.lastIndexOf('\n', at - 1) + 1;
      const indent = /^[ \t]*/.exec(text.slice(lineStart, Math.min(at, lineStart + 400)))[0];
      if (indent) {
        e.preventDefault();
        this.insert('\n' + indent);
      }
    }
  }

  indent(outdent) {
    const area = this.area;
    const text = area.value;
    const start = area.selectionStart;
    const end = area.selectionEnd;
    const unit = this.indentUnit;
    const multi = text.slice(start, end).includes('\n');
    if (!multi && !outdent) {
      this.insert(unit);
      return;
    }
    const from = text.lastIndexOf('\n', start - 1) + 1;
    // A selection ending at the start of a line does not take that line along.
    const to = end > start && text[end - 1] === '\n' ? end - 1 : end;
    const block = text.slice(from, to);
    const lines = block.split('\n');
    let firstDelta = 0;
    const changed = lines.map((line, i) => {
      if (!outdent) {
        if (i === 0) firstDelta = unit.length;
        return line.length ? unit + line : line;
      }
      const m = /^(\t| {1,2})/.exec(line);
      const cut = m ? m[0].length : 0;
      if (i === 0) firstDelta = -cut;
      return line.slice(cut);
    });
    const replacement = changed.join('\n');
    if (replacement === block) return;
    area.setSelectionRange(from, to);
    this.insert(replacement);
    const newStart = Math.max(from, start + firstDelta);
    if (multi) area.setSelectionRange(newStart, from + replacement.length + (end - to));
    else area.setSelectionRange(newStart, newStart);
  }
}

class FindBar {
  constructor(editor) {
    this.editor = editor;
    this.bar = $('findbar');
    this.input = $('find-input');
    this.count = $('find-count');
    this.caseBox = $('find-case');
    this.matches = [];
    this.current = -1;
    this.input.addEventListener('input', () => this.search(true));
    this.caseBox.addEventListener('change', () => this.search(true));
    this.input.addEventListener('keydown', (e) => {
      if (e.key === 'Enter') {
        e.preventDefault();
        this.step(e.shiftKey ? -1 : 1);
      } else if (e.key === 'Escape') {
        e.preventDefault();
        this.close();
      }
    });
    $('find-next').addEventListener('click', () => this.step(1));
    $('find-prev').addEventListener('click', () => this.step(-1));
    $('find-close').addEventListener('click', () => this.close());
  }

  get isOpen() {
    return !this.bar.hidden;
  }

  open() {
    this.bar.hidden = false;
    const area = this.editor.area;
    const selected = area.value.slice(area.selectionStart, area.selectionEnd);
    if (selected && !selected.includes('\n') && selected.length < 200) this.input.value = selected;
    this.input.focus();
    this.input.select();
    this.search(false);
  }

  close() {
    this.bar.hidden = true;
    this.matches = [];
    this.editor.hitLine = -1;
    this.editor.paintGutter();
    this.editor.focus();
  }

  /** Re-runs the search after the text changed, keeping the position. */
  refresh() {
    if (this.isOpen) this.search(false, false);
  }

  search(jump, reveal = true) {
    const needle = this.input.value;
    const text = this.editor.area.value;
    this.matches = [];
    if (needle) {
      const cased = this.caseBox.checked;
      const hay = cased ? text : text.toLowerCase();
      const n = cased ? needle : needle.toLowerCase();
      let i = hay.indexOf(n);
      while (i !== -1 && this.matches.length < 10000) {
        this.matches.push(i);
        i = hay.indexOf(n, i + n.length);
      }
    }
    const from = this.editor.area.selectionStart;
    this.current = this.matches.length ? Math.max(0, this.matches.findIndex((m) => m >= from)) : -1;
    if (jump && this.current >= 0 && reveal) this.show();
    this.paintCount();
  }

  step(dir) {
    if (!this.matches.length) this.search(false);
    if (!this.matches.length) return;
    this.current = (this.current + dir + this.matches.length) % this.matches.length;
    this.show();
    this.paintCount();
  }

  show() {
    const at = this.matches[this.current];
    this.editor.reveal(at, at + this.input.value.length);
  }

  paintCount() {
    const needle = this.input.value;
    this.input.classList.toggle('no-match', Boolean(needle) && this.matches.length === 0);
    if (!needle) this.count.textContent = '';
    else if (!this.matches.length) this.count.textContent = 'No matches';
    else this.count.textContent = `${this.current + 1} of ${this.matches.length}${this.matches.length >= 10000 ? '+' : ''}`;
  }
}
