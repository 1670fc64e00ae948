// The sidebar's folder tree: an ARIA tree with one tab stop (the selected
// row), arrow-key navigation, and a context menu from the mouse, the menu key
// or Shift+F10.

import { fileKind } from '../paths.js';
import { h, icon } from './dom.js';

const FOLDER = ['M1.5 3.5h4.5l1.5 1.5h7v8.5h-13z'];
const PAGE = ['M3.5 1.5h6l3 3v10h-9z', 'M9.5 1.5v3h3'];
const IMAGE = ['M2 3h12v10H2z', 'M2 11l3.5-3.5 3 3 2-2L14 12'];
const TWISTY = ['M5 3l5 5-5 5'];

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
    list.addEventListener('keydown', (e) => this.onKey(e));
    list.addEventListener('focusin', (e) => {
      const row = e.target.closest && e.target.closest('.tree-row');
      if (row && row.dataset.path !== this.selected) this.select(row.dataset.path, false);
    });
    list.addEventListener('contextmenu', (e) => {
      e.preventDefault();
      const row = e.target.closest('.tree-row');
      const node = row ? this.model.get(row.dataset.path) : null;
      if (node) this.select(node.path, false);
      this.handlers.menu(node, { x: e.clientX, y: e.clientY });
    });
  }

  setModel(model) {
    this.model = model;
    this.selected = null;
    this.render();
  }

  setOpenPath(path) {
    this.openPath = path;
    if (path) this.selected = path;
    this.render();
  }

  render() {
    if (!this.model) {
      this.list.replaceChildren();
      return;
    }
    const focusedPath = this.list.contains(document.activeElement) ? document.activeElement.dataset.path : null;
    this.rows = this.model.rows();
    if (this.rows.length === 0) {
      this.list.replaceChildren(h('li', { class: 'tree-empty', role: 'none' }, this.model.isListed(this.model.root) ? 'This folder is empty.' : 'Loading…'));
      return;
    }
    if (!this.rows.some((r) => r.node.path === this.selected)) this.selected = this.rows[0].node.path;
    const items = this.rows.map(({ node, depth }) => this.row(node, depth));
    this.list.replaceChildren(...items);
    if (focusedPath) this.focusRow(this.rows.some((r) => r.node.path === focusedPath) ? focusedPath : this.selected);
  }

  row(node, depth) {
    const isDir = node.kind === 'directory';
    const kind = isDir ? 'directory' : fileKind(node.name);
    const li = h('li', {
      class: `tree-row${node.path === this.openPath ? ' is-open' : ''}`,
      role: 'treeitem',
      'aria-level': depth + 1,
      'aria-selected': node.path === this.selected ? 'true' : 'false',
      'aria-expanded': isDir ? String(Boolean(node.expanded)) : undefined,
      tabindex: node.path === this.selected ? '0' : '-1',
      title: node.path,
      'data-path': node.path,
    },
    h('span', { class: 'tree-twisty' }, isDir ? icon(TWISTY) : null),
    icon(isDir ? FOLDER : kind === 'image' ? IMAGE : PAGE, { className: 'tree-icon' }),
    h('span', { class: 'tree-name' }, node.name));
    li.style.paddingLeft = `${6 + depth * 14}px`;
    if (isDir) li.querySelector('.tree-icon').style.color = '#5b7bd5';
    li.addEventListener('click', () => {
      this.select(node.path, true);
      if (isDir) this.handlers.toggle(node);
      else this.handlers.open(node);
    });
    return li;
  }

  select(path, focus) {
    this.selected = path;
    for (const el of this.list.querySelectorAll('.tree-row')) {
      const on = el.dataset.path === path;
      el.setAttribute('aria-selected', on ? 'true' : 'false');
      el.tabIndex = on ? 0 : -1;
    }
    if (focus) this.focusRow(path);
  }

  focusRow(path) {
    const el = [...this.list.querySelectorAll('.tree-row')].find((r) => r.dataset.path === path);
    if (el) {
      el.focus();
      el.scrollIntoView({ block: 'nearest' });
    }
  }

  focus() {
    if (this.selected) this.focusRow(this.selected);
  }

  selectedNode() {
    return this.selected && this.model ? this.model.get(this.selected) : null;
  }

  onKey(e) {
    if (!this.model || this.rows.length === 0) return;
    const index = Math.max(0, this.rows.findIndex((r) => r.node.path === this.selected));
    const { node, depth } = this.rows[index];
    const go = (i) => this.select(this.rows[Math.max(0, Math.min(this.rows.length - 1, i))].node.path, true);
    switch (e.key) {
      case 'ArrowDown': go(index + 1); break;
      case 'ArrowUp': go(index - 1); break;
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
    const el = [...this.list.querySelectorAll('.tree-row')].find((r) => r.dataset.path === node.path);
    const rect = el ? el.getBoundingClientRect() : { left: 20, bottom: 60 };
    this.handlers.menu(node, { x: rect.left + 24, y: rect.bottom });
  }
}
