// The sidebar's folder tree: an ARIA tree with one tab stop (the selected
// row), arrow-key navigation, and a context menu from the mouse, the menu key
// or Shift+F10.
//
// Only the rows in view exist in the DOM (plus the focused one), placed at
// their offsets inside a list as tall as all rows together, so a folder of
// thousands of entries costs what a screenful does; rows are reused by path,
// which keeps the focus on a row while the list scrolls.

import { fileKind } from '../paths.js';
import { h, icon } from './dom.js';

const FOLDER = ['M1.5 3.5h4.5l1.5 1.5h7v8.5h-13z'];
const PAGE = ['M3.5 1.5h6l3 3v10h-9z', 'M9.5 1.5v3h3'];
const IMAGE = ['M2 3h12v10H2z', 'M2 11l3.5-3.5 3 3 2-2L14 12'];
const TWISTY = ['M5 3l5 5-5 5'];
const ROW = 26;
const PAD = 6;
const OVERSCAN = 8;

export class TreeView {
  /**
   * `handlers`: open(node), toggle(node), menu(node|null, {x, y}),
   * rename(node), trash(node).
   */
  constructor(list, handlers) {
    this.list = list;
    this.handlers = handlers;
    this.model = null;
    this.selected = null;
    this.openPath = null;
    this.rows = [];
    this.index = new Map();
    this.version = -1;
    this.shown = new Map(); // path -> li
    this.frame = 0;
    list.addEventListener('keydown', (e) => this.onKey(e));
    list.addEventListener('scroll', () => this.schedulePaint());
    list.addEventListener('click', (e) => {
      const row = e.target.closest && e.target.closest('.tree-row');
      const node = row && this.model && this.model.get(row.dataset.path);
      if (!node) return;
      this.select(node.path, true);
      if (node.kind === 'directory') this.handlers.toggle(node);
      else this.handlers.open(node);
    });
    list.addEventListener('focusin', (e) => {
      const row = e.target.closest && e.target.closest('.tree-row');
      if (row && row.dataset.path !== this.selected) this.select(row.dataset.path, false);
    });
    list.addEventListener('contextmenu', (e) => {
      e.preventDefault();
      const row = e.target.closest('.tree-row');
      const node = row && this.model ? this.model.get(row.dataset.path) : null;
      if (node) this.select(node.path, false);
      this.handlers.menu(node, { x: e.clientX, y: e.clientY });
    });
    new ResizeObserver(() => this.schedulePaint()).observe(list);
  }

  setModel(model) {
    this.model = model;
    this.selected = null;
    this.version = -1;
    this.render();
  }

  setOpenPath(path) {
    this.openPath = path;
    if (path) this.selected = path;
    this.render();
    if (path) this.scrollTo(path);
  }

  /** Takes the model's rows anew when it changed, then paints the rows in view. */
  render() {
    if (!this.model) {
      this.shown.clear();
      this.list.replaceChildren();
      return;
    }
    if (this.version !== this.model.version) {
      this.version = this.model.version;
      this.rows = this.model.rows();
      this.index = new Map(this.rows.map((r, i) => [r.node.path, i]));
      this.shown.clear();
      this.list.replaceChildren();
    }
    if (this.rows.length === 0) {
      this.list.replaceChildren(h('li', { class: 'tree-empty', role: 'none' }, this.model.isListed(this.model.root) ? 'This folder is empty.' : 'Loading…'));
      return;
    }
    if (!this.index.has(this.selected)) this.selected = this.rows[0].node.path;
    this.paint();
  }

  schedulePaint() {
    if (this.frame) return;
    this.frame = requestAnimationFrame(() => {
      this.frame = 0;
      if (this.model && this.rows.length) this.paint();
    });
  }

  paint() {
    const top = this.list.scrollTop;
    const first = Math.max(0, Math.floor((top - PAD) / ROW) - OVERSCAN);
    const last = Math.min(this.rows.length, Math.ceil((top + this.list.clientHeight) / ROW) + OVERSCAN);
    const focused = this.list.contains(document.activeElement) ? document.activeElement.dataset.path : null;
    const keep = new Set();
    for (let i = first; i < last; i++) keep.add(this.rows[i].node.path);
    if (focused && this.index.has(focused)) keep.add(focused);
    for (const [path, li] of this.shown) {
      if (!keep.has(path)) {
        li.remove();
        this.shown.delete(path);
      }
    }
    let sizer = this.list.firstElementChild;
    if (!sizer || !sizer.classList.contains('tree-sizer')) {
      sizer = h('li', { class: 'tree-sizer', role: 'none', 'aria-hidden': 'true' });
      this.list.prepend(sizer);
    }
    sizer.style.height = `${this.rows.length * ROW + 2 * PAD}px`;
    for (const path of keep) {
      const i = this.index.get(path);
      const { node, depth } = this.rows[i];
      let li = this.shown.get(path);
      if (!li) {
        li = this.row(node, depth);
        this.shown.set(path, li);
        this.list.append(li);
      }
      this.dress(li, node, i);
    }
  }

  row(node, depth) {
    const isDir = node.kind === 'directory';
    const kind = isDir ? 'directory' : fileKind(node.name);
    const li = h('li', { class: 'tree-row', role: 'treeitem', 'aria-level': depth + 1, title: node.path, 'data-path': node.path },
      h('span', { class: 'tree-twisty' }, isDir ? icon(TWISTY) : null),
      icon(isDir ? FOLDER : kind === 'image' ? IMAGE : PAGE, { className: 'tree-icon' }),
      h('span', { class: 'tree-name' }, node.name));
    li.style.paddingLeft = `${6 + depth * 14}px`;
    if (isDir) li.querySelector('.tree-icon').style.color = '#5b7bd5';
    return li;
  }

  dress(li, node, i) {
    li.style.top = `${PAD + i * ROW}px`;
    li.classList.toggle('is-open', node.path === this.openPath);
    li.setAttribute('aria-selected', node.path === this.selected ? 'true' : 'false');
    li.setAttribute('aria-posinset', String(i + 1));
    li.setAttribute('aria-setsize', String(this.rows.length));
    if (node.kind === 'directory') li.setAttribute('aria-expanded', String(Boolean(node.expanded)));
    li.tabIndex = node.path === this.selected ? 0 : -1;
  }

  select(path, focus) {
    this.selected = path;
    if (focus) this.scrollTo(path);
    this.paint();
    if (focus) this.focusRow(path);
  }

  /** Scrolls the list so that the row of `path` is in view. */
  scrollTo(path) {
    const i = this.index.get(path);
    if (i === undefined) return;
    const y = PAD + i * ROW;
    if (y < this.list.scrollTop) this.list.scrollTop = y - PAD;
    else if (y + ROW > this.list.scrollTop + this.list.clientHeight) this.list.scrollTop = y + ROW + PAD - this.list.clientHeight;
  }

  focusRow(path) {
    this.scrollTo(path);
    this.paint();
    const li = this.shown.get(path);
    if (li) li.focus({ preventScroll: true });
  }

  focus() {
    if (this.selected) this.focusRow(this.selected);
  }

  selectedNode() {
    return this.selected && this.model ? this.model.get(this.selected) : null;
  }

  onKey(e) {
    if (!this.model || this.rows.length === 0) return;
    const index = this.index.get(this.selected) ?? 0;
    const { node, depth } = this.rows[index];
    const go = (i) => this.select(this.rows[Math.max(0, Math.min(this.rows.length - 1, i))].node.path, true);
    const page = Math.max(1, Math.floor(this.list.clientHeight / ROW) - 1);
    switch (e.key) {
      case 'ArrowDown': go(index + 1); break;
      case 'ArrowUp': go(index - 1); break;
      case 'PageDown': go(index + page); break;
      case 'PageUp': go(index - page); break;
      case 'Home': go(0); break;
      case 'End': go(this.rows.length - 1); break;
      case 'ArrowRight':
        if (node.kind === 'directory') {
          if (!node.expanded) this.handlers.toggle(node);
          else if (this.rows[index + 1] && this.rows[index + 1].depth > depth) go(index + 1);
        }
        break;
      case 'ArrowLeft':
        if (node.kind === 'directory' && node.expanded) this.handlers.toggle(node);
        else {
          for (let i = index - 1; i >= 0; i--) {
            if (this.rows[i].depth < depth) {
              go(i);
              break;
            }
          }
        }
        break;
      case 'Enter':
      case ' ':
        if (node.kind === 'directory') this.handlers.toggle(node);
        else this.handlers.open(node);
        break;
      case 'F2': this.handlers.rename(node); break;
      case 'Delete': this.handlers.trash(node); break;
      case 'ContextMenu': this.openMenuFor(node); break;
      case 'F10':
        if (!e.shiftKey) return;
        this.openMenuFor(node);
        break;
      default: return;
    }
    e.preventDefault();
  }

  openMenuFor(node) {
    this.focusRow(node.path);
    const li = this.shown.get(node.path);
    const rect = li ? li.getBoundingClientRect() : { left: 20, bottom: 60 };
    this.handlers.menu(node, { x: rect.left + 24, y: rect.bottom });
  }
}
