// The History panel: every version of the open page the host's store keeps,
// by day, one of them beside the current text; and the pages that are gone
// but have versions kept. Nothing here writes: restoring hands the text to
// the editor as an unsaved change, and new pages are created by the app.

import { MergeView } from '@codemirror/merge';
import { EditorView } from '@codemirror/view';
import { clockLabel, describeVersions, groupByDay, sizeLabel } from '../history.js';
import { decodePage } from '../page-text.js';
import { basename, relative } from '../paths.js';
import { $, formatTime, h } from './dom.js';
import { viewerExtensions } from './editor.js';

export class HistoryView {
  /**
   * `host`: api; page() the open page's path or null; root() the folder;
   * current() the editor's text ("\n" breaks); diskFingerprint();
   * restore(page, version); saveAs(text, version, suggestedPath); closed().
   */
  constructor(host) {
    this.dialog = $('history-panel');
    this.host = host;
    this.mode = 'page';
    this.versions = [];
    this.words = [];
    this.pagePath = null;
    this.deleted = [];
    this.selected = null; // {version, page} once its bytes arrived
    this.message = '';
    this.merge = null;
    this.loads = 0;
    this.dialog.addEventListener('close', () => {
      this.dropMerge();
      this.host.closed();
    });
  }

  get isOpen() {
    return this.dialog.open;
  }

  /** Opens on the open page's history, or on the deleted pages when no page is open. */
  async open() {
    const page = this.host.page();
    if (page) await this.showPage(page);
    else await this.showDeleted();
    if (!this.dialog.open) this.dialog.showModal();
  }

  close() {
    if (this.dialog.open) this.dialog.close();
  }

  /** The versions of `path` (a page that exists, or one that is gone). */
  async showPage(path, mode = 'page') {
    const load = ++this.loads;
    let versions = [];
    let message = '';
    try {
      versions = await this.host.api.history(path);
    } catch (e) {
      message = `Could not list the versions: ${e.message}`;
    }
    if (load !== this.loads) return;
    this.mode = mode;
    this.pagePath = path;
    this.versions = versions;
    this.words = describeVersions(versions, mode === 'page' ? this.host.diskFingerprint() : null);
    this.selected = null;
    this.message = message;
    this.render();
  }

  async showDeleted() {
    const load = ++this.loads;
    let pages = [];
    let message = '';
    try {
      pages = await this.host.api.deleted(this.host.root());
    } catch (e) {
      message = `Could not list the deleted pages: ${e.message}`;
    }
    if (load !== this.loads) return;
    this.mode = 'deleted';
    this.pagePath = null;
    this.deleted = pages;
    this.selected = null;
    this.message = message;
    this.render();
  }

  /** Fetches a version's bytes and shows it; resolves to it, or null. */
  async select(id) {
    const index = this.versions.findIndex((v) => v.id === id);
    if (index < 0) return null;
    const version = this.versions[index];
    const load = ++this.loads;
    try {
      const { bytes } = await this.host.api.versionBytes(id);
      if (load !== this.loads) return null;
      const page = decodePage(bytes);
      if (page.kind !== 'text') throw new Error('this version is not text');
      this.selected = { version, words: this.words[index], page, bytes };
      this.message = '';
    } catch (e) {
      if (load !== this.loads) return null;
      this.selected = null;
      this.message = `Could not read that version: ${e.message}`;
    }
    this.render();
    return this.selected;
  }

  /** The selected version as a new file's text: its own bytes when they are UTF-8. */
  selectedText() {
    const { page } = this.selected;
    return (page.bom ? '\uFEFF' : '') + page.raw;
  }

  label(path) {
    const root = this.host.root();
    return (root && relative(root, path)) || basename(path);
  }

  render() {
    this.dropMerge();
    const name = this.mode === 'deleted' ? 'Deleted pages' : `History of ${this.label(this.pagePath)}`;
    const tabs = h('div', { class: 'hv-tabs', role: 'tablist' },
      h('button', {
        type: 'button', class: 'btn btn-small', role: 'tab', id: 'history-tab-page',
        'aria-selected': String(this.mode === 'page'), disabled: !this.host.page() || undefined,
        onclick: () => this.showPage(this.host.page()),
      }, 'This page'),
      h('button', {
        type: 'button', class: 'btn btn-small', role: 'tab', id: 'history-tab-deleted',
        'aria-selected': String(this.mode !== 'page'),
        onclick: () => this.showDeleted(),
      }, 'Deleted pages'));
    const head = h('div', { class: 'cf-head' },
      h('h2', { id: 'history-title' }, name), tabs,
      h('span', { class: 'spacer' }),
      h('button', { type: 'button', class: 'btn', onclick: () => this.close() }, 'Close'));
    const list = this.mode === 'deleted' ? this.deletedList() : this.timeline();
    const main = h('div', { class: 'cf-main hv-main' },
      this.message ? h('div', { class: 'cf-note', role: 'note' }, this.message) : null,
      this.detail());
    const foot = h('div', { class: 'cf-foot' },
      h('span', { class: 'status' }, 'Every version the host displaced, loaded or was handed is kept here, also when another program wrote it.'));
    this.dialog.replaceChildren(head, h('div', { class: 'cf-body' }, list, main), foot);
    if (this.selected && this.mode === 'page') this.showMerge();
  }

  timeline() {
    const nav = h('nav', { class: 'cf-list hv-list', 'aria-label': 'Versions' });
    if (this.mode === 'gone') {
      nav.append(h('button', { type: 'button', class: 'hv-back', onclick: () => this.showDeleted() }, '‹ Deleted pages'));
    }
    if (this.versions.length === 0) nav.append(h('p', { class: 'hv-empty' }, 'No versions of this page are kept yet.'));
    for (const group of groupByDay(this.versions)) {
      nav.append(h('h3', { class: 'hv-day' }, group.label));
      for (const { version, index } of group.items) {
        nav.append(h('button', {
          type: 'button', class: 'hv-entry', 'data-id': version.id,
          'aria-current': String(this.selected !== null && this.selected.version.id === version.id),
          title: formatTime(version.capturedAt),
          onclick: () => this.select(version.id),
        },
        h('span', { class: 'hv-time' }, clockLabel(version.capturedAt)),
        h('span', { class: 'hv-kind' }, this.words[index]),
        h('small', {}, sizeLabel(version.byteCount))));
      }
    }
    return nav;
  }

  deletedList() {
    const nav = h('nav', { class: 'cf-list hv-list', 'aria-label': 'Deleted pages' });
    if (this.deleted.length === 0) nav.append(h('p', { class: 'hv-empty' }, 'No deleted pages have versions kept.'));
    for (const page of this.deleted) {
      nav.append(h('button', {
        type: 'button', class: 'hv-entry', 'data-path': page.path,
        onclick: () => this.showPage(page.path, 'gone'),
      },
      h('span', { class: 'hv-kind' }, this.label(page.path)),
      h('small', {}, `${page.count} ${page.count === 1 ? 'version' : 'versions'} · last ${formatTime(page.newestCapturedAt)}`)));
    }
    return nav;
  }

  detail() {
    if (this.mode === 'deleted') {
      return h('div', { class: 'hv-hint' }, 'Choose a deleted page to see the versions kept of it, and bring one back.');
    }
    if (!this.selected) {
      const hint = this.mode === 'gone' ? 'Choose a version to see it and bring the page back.' : 'Choose a version to compare it with the current text.';
      return h('div', { class: 'hv-hint' }, this.versions.length ? hint : '');
    }
    const { version, words } = this.selected;
    const gone = this.mode === 'gone';
    const actions = gone
      ? [h('button', { type: 'button', class: 'btn btn-primary', id: 'history-bring-back', onclick: () => this.host.saveAs(this.selectedText(), version, this.pagePath) }, 'Bring the page back')]
      : [h('button', {
        type: 'button', class: 'btn btn-primary', id: 'history-restore',
        title: 'Put this version into the editor as an unsaved change; saving writes it',
        onclick: () => this.host.restore(this.selected.page, version),
      }, 'Restore')];
    actions.push(h('button', {
      type: 'button', class: 'btn', id: 'history-save-as',
      onclick: () => this.host.saveAs(this.selectedText(), version, null),
    }, 'Open as a new page…'));
    const head = h('div', { class: 'cf-diff-head' },
      h('strong', {}, `${words} · ${formatTime(version.capturedAt)} · ${sizeLabel(version.byteCount)}`),
      h('span', { class: 'spacer' }), ...actions);
    const sides = gone ? null : h('div', { class: 'hv-sides' }, h('span', {}, 'This version'), h('span', {}, 'Current text'));
    const body = gone
      ? h('pre', { class: 'cf-text', tabindex: '0', 'aria-label': 'Text of this version' }, this.selected.page.text)
      : h('div', { class: 'hv-merge', id: 'history-merge' });
    return h('div', { class: 'hv-detail' }, head, sides, body);
  }

  showMerge() {
    const parent = this.dialog.querySelector('#history-merge');
    // Wrapped, so that both sides of a long line are seen without scrolling each.
    const extensions = [viewerExtensions(this.pagePath), EditorView.lineWrapping];
    this.merge = new MergeView({
      a: { doc: this.selected.page.text, extensions },
      b: { doc: this.host.current(), extensions },
      parent,
      gutter: true,
      collapseUnchanged: { margin: 3, minSize: 6 },
      // A page far from the current text is shown as changed blocks rather
      // than costing the panel a long pause.
      diffConfig: { scanLimit: 2000, timeout: 300 },
    });
  }

  dropMerge() {
    if (this.merge) this.merge.destroy();
    this.merge = null;
  }

  /** The merge view's two texts, for scripts: {version, current}. */
  shown() {
    if (!this.merge) return null;
    return { version: this.merge.a.state.doc.toString(), current: this.merge.b.state.doc.toString() };
  }
}
