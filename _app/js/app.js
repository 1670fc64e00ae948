// The editor application: wires the folder tree, the page session, the
// conflicts desk and the views together, and publishes the members the host
// reads (window.QX, window.VN, window.vornaHost, window.VNHost).

import { createApi } from './api.js';
import { ConflictDesk } from './conflicts.js';
import { encodingLabel } from './page-text.js';
import { basename, dirname, fileKind, isWithin, join, normalize, rebase, relative, samePath } from './paths.js';
import { workspaceUrl } from './preview-doc.js';
import { NotTextError, Session } from './session.js';
import { TreeController } from './tree.js';
import { clearBanners, hideBanner, showBanner } from './ui/banners.js';
import { ConflictsView } from './ui/conflicts-view.js';
import { checkName, choiceDialog, promptDialog } from './ui/dialogs.js';
import { HistoryView } from './ui/history-view.js';
import { $, formatTime } from './ui/dom.js';
import { SourceEditor } from './ui/editor.js';
import { showMenu } from './ui/menu.js';
import { Preview } from './ui/preview.js';
import { TreeView } from './ui/tree-view.js';

const NEW_PAGE = (title) => `<!DOCTYPE html>
<html lang="en">
<head>
  <meta charset="utf-8">
  <meta name="viewport" content="width=device-width, initial-scale=1">
  <title>${title}</title>
</head>
<body>
  <h1>${title}</h1>
  <p></p>
</body>
</html>
`;

function titleOf(name) {
  const stem = name.replace(/\.[^.]+$/, '').replace(/[-_]+/g, ' ').trim() || 'Untitled';
  return (stem[0].toUpperCase() + stem.slice(1)).replace(/[<>&]/g, '');
}

// Editing commands the host's menus send; the focused text field runs them
// itself, the source editor otherwise.
const FIELD_COMMANDS = { undo: 'undo', redo: 'redo', selectAll: 'selectAll', delete: 'delete' };

export class App {
  constructor({ api = createApi(), location = window.location } = {}) {
    this.api = api;
    this.origin = location.origin && location.origin !== 'null' ? location.origin : `${location.protocol}//${location.host}`;
    this.root = null;
    this.tree = null;
    this.kind = null; // the open file's kind: 'page', 'text', 'image', 'other' or null
    this.openFile = null; // path of the open file, also when it is not editable
    this.statusState = { text: '', tone: 'info' };
    this.events = [];

    this.session = new Session({
      api,
      onChange: (kind, detail) => this.onSession(kind, detail),
      textSource: () => (this.editable() ? this.editor.encoded() : null),
    });
    this.desk = new ConflictDesk({ api });

    this.editor = new SourceEditor($('editor'), {
      onEdit: (dirty) => {
        this.session.edited(dirty);
        this.preview.changed();
      },
      onCursor: () => {
        if (this.editable()) $('cursor-pos').textContent = this.editor.cursorLabel();
      },
      onWrap: (on) => $('wrap-btn').setAttribute('aria-pressed', String(on)),
    });
    this.preview = new Preview($('preview'), {
      onOpenLink: (path, fragment) => this.followLink(path, fragment),
      onNote: (note) => {
        $('preview-note').textContent = note;
      },
    });
    this.treeView = new TreeView($('tree'), {
      open: (node) => this.openPage(node.path),
      toggle: (node) => this.toggleFolder(node),
      menu: (node, at) => this.contextMenu(node, at),
      rename: (node) => this.renameEntry(node),
      trash: (node) => this.trashEntry(node),
    });
    this.conflictsView = new ConflictsView({
      select: (c) => this.showConflict(c),
      choose: (view, id) => this.chooseCandidate(view, id),
      useCurrent: (view) => this.keepDisk(view),
      dismiss: (view) => this.dismissConflict(view),
      closed: () => this.editor.focus(),
    });
    this.historyView = new HistoryView({
      api,
      page: () => (this.editable() && this.session.path) || null,
      root: () => this.root,
      current: () => this.editor.text(),
      diskFingerprint: () => this.session.base,
      restore: (page, version) => this.restoreVersion(page, version),
      saveAs: (text, version, path) => this.saveVersionAs(text, version, path),
      closed: () => this.editor.focus(),
    });

    this.publish();
    this.bindChrome();
  }

  // ---- members the host reads ----

  publish() {
    const app = this;
    window.QX = {
      S: {
        dirHandle: null,
        get files() {
          return app.tree ? app.tree.model.entries() : [];
        },
      },
    };
    window.VNHost = { state: { surveyed: 0, folder: null, page: null, dirty: false, saving: false } };
    window.vornaHost = {
      emit: (change) => this.hostChange(change),
      command: (name) => this.command(name),
      // The host calls this before the editor goes away (closing, quitting,
      // another folder, a signal) and waits for it: unsaved text is then a draft.
      flush: () => this.session.flush().then(() => true, () => false),
    };
    window.VN = this.scriptingApi();
  }

  syncHostState() {
    const s = window.VNHost.state;
    s.folder = this.root;
    s.page = this.openFile;
    s.dirty = this.session.dirty;
    s.saving = Boolean(this.session.saving);
    if (this.tree) s.surveyed = this.tree.model.count();
  }

  // ---- start-up ----

  async start(params) {
    const folder = params.get('path');
    const page = params.get('open');
    if (!folder) {
      this.showEmpty();
      return;
    }
    await this.openWorkspace(normalize(folder), page);
  }

  showEmpty(title = 'Open a folder of pages', text = 'Choose a folder of HTML pages, or one page, and it opens here with a live preview.') {
    this.root = null;
    this.tree = null;
    this.treeView.setModel(null);
    $('empty-title').textContent = title;
    $('empty-text').textContent = text;
    $('empty-state').hidden = false;
    $('panes').hidden = true;
    $('no-page').hidden = true;
    $('folder-name').textContent = 'No folder';
    $('crumb-folder').textContent = '';
    $('new-page-btn').disabled = true;
    $('new-folder-btn').disabled = true;
    this.updateChrome();
  }

  async openWorkspace(folder, page) {
    this.root = folder;
    this.tree = new TreeController({
      api: this.api,
      root: folder,
      onChange: ({ error }) => {
        if (error) this.error('Could not list a folder', error);
        this.treeView.render();
        this.syncHostState();
      },
    });
    $('empty-state').hidden = true;
    $('folder-name').textContent = basename(folder) || folder;
    $('crumb-folder').textContent = basename(folder) || folder;
    $('new-page-btn').disabled = false;
    $('new-folder-btn').disabled = false;
    this.treeView.setModel(this.tree.model);
    try {
      await this.tree.list(folder);
    } catch (e) {
      if (e.noWorkspace) this.showEmpty('No folder is open', 'The host has no folder open. Choose one to start editing.');
      else {
        this.showEmpty('This folder could not be opened', e.message);
        this.error('Could not open the folder', e);
      }
      return;
    }
    window.QX.S.dirHandle = folder;
    this.syncHostState();
    this.showNoPage();
    this.status(`Opened ${basename(folder) || folder}`);
    if (page) await this.openPage(join(folder, page), { interactive: false });
    await this.refreshConflicts({ announce: true });
  }

  showNoPage() {
    $('panes').hidden = true;
    $('no-page').hidden = false;
  }

  // ---- chrome ----

  bindChrome() {
    $('open-folder').addEventListener('click', () => this.requestOpenFolder());
    $('empty-open').addEventListener('click', () => this.requestOpenFolder());
    $('save-btn').addEventListener('click', () => this.save());
    $('find-btn').addEventListener('click', () => this.command('find'));
    $('wrap-btn').addEventListener('click', () => this.editor.toggleWrap());
    $('cursor-pos').addEventListener('click', () => this.command('gotoLine'));
    $('preview-btn').addEventListener('click', () => this.togglePreview());
    $('conflicts-btn').addEventListener('click', () => this.showConflicts());
    $('history-btn').addEventListener('click', () => this.showHistory());
    $('new-page-btn').addEventListener('click', () => this.newPage(this.targetFolder()));
    $('new-folder-btn').addEventListener('click', () => this.newFolder(this.targetFolder()));
    // Clicking a toolbar button leaves the focus where the user was typing.
    for (const button of document.querySelectorAll('.toolbar .btn, .statusbar button')) {
      button.addEventListener('mousedown', (e) => {
        if (this.editor.hasFocus) e.preventDefault();
      });
    }
    document.addEventListener('keydown', (e) => this.onKey(e));
    // Leaving the editor hands unsaved text to the host at once; the host
    // also asks for it (window.vornaHost.flush) and waits before it goes.
    window.addEventListener('pagehide', () => {
      if (this.session.dirty) this.session.storeDraft();
    });
  }

  onKey(e) {
    if (e.defaultPrevented) return;
    const mod = e.ctrlKey || e.metaKey;
    const key = e.key.toLowerCase();
    if (!mod || e.altKey) return;
    if (key === 's') {
      e.preventDefault();
      this.save();
    } else if (key === 'o') {
      e.preventDefault();
      this.requestOpenFolder();
    } else if (key === 'n' && !e.shiftKey) {
      e.preventDefault();
      if (this.root) this.newPage(this.targetFolder());
    } else if (key === 'f' && this.editable() && !this.editor.hasFocus) {
      e.preventDefault();
      this.command('find');
    }
  }

  /** The host's menus: Save, New Page, Find, History and the Edit menu's commands. */
  command(name) {
    if (name === 'save') return this.save();
    if (name === 'history') return this.showHistory();
    if (name === 'newPage') return this.root ? this.newPage(this.targetFolder()) : false;
    const field = document.activeElement;
    const inField = field && (field.tagName === 'INPUT' || field.tagName === 'TEXTAREA') && !field.closest('.cm-editor');
    if (inField && FIELD_COMMANDS[name]) return document.execCommand(FIELD_COMMANDS[name]);
    if (!this.editable()) return name === 'selectAll' ? document.execCommand('selectAll') : false;
    return this.editor.command(name);
  }

  editable() {
    return this.kind === 'page' || this.kind === 'text';
  }

  togglePreview() {
    const btn = $('preview-btn');
    const on = btn.getAttribute('aria-pressed') !== 'true';
    btn.setAttribute('aria-pressed', String(on));
    $('panes').classList.toggle('no-preview', !on);
    this.preview.setVisible(on);
  }

  requestOpenFolder() {
    const shell = window.webkit && window.webkit.messageHandlers && window.webkit.messageHandlers.vornaShell;
    if (!shell) {
      this.status('Opening a folder needs the Vorna desktop app.', 'error');
      return;
    }
    try {
      const sent = shell.postMessage({ op: 'openFolder' });
      if (sent && typeof sent.catch === 'function') sent.catch((e) => this.error('Could not ask for a folder', e));
    } catch (e) {
      this.error('Could not ask for a folder', e);
    }
  }

  updateChrome() {
    const s = this.session;
    const open = this.openFile;
    $('crumb-sep').hidden = !open;
    $('crumb-page').textContent = open && this.root ? relative(this.root, open) || basename(open) : '';
    $('dirty-dot').hidden = !s.dirty;
    $('save-btn').disabled = !this.editable() || s.readOnly || !s.dirty || Boolean(s.saving);
    $('find-btn').disabled = !this.editable();
    $('history-btn').disabled = !this.root;
    $('page-encoding').textContent = this.editable() ? encodingLabel({ encoding: s.encoding, bom: this.editor.format().bom }) : '';
    $('page-eol').textContent = this.editable() ? this.editor.endingLabel() : '';
    if (!this.editable()) $('cursor-pos').textContent = '';
    const name = open ? basename(open) : null;
    const folder = this.root ? basename(this.root) || this.root : null;
    // The host shows this as the window's title.
    document.title = [name && `${s.dirty ? '● ' : ''}${name}`, folder, 'Vorna'].filter(Boolean).join(' — ');
    const count = this.desk.open.length;
    $('conflicts-btn').hidden = count === 0;
    $('conflicts-count').textContent = String(count);
    this.syncHostState();
  }

  status(text, tone = 'info') {
    this.statusState = { text, tone };
    const el = $('status');
    el.textContent = text;
    el.className = `status${tone === 'error' ? ' is-error' : tone === 'ok' ? ' is-ok' : ''}`;
  }

  error(context, e) {
    const text = e && e.message ? e.message : String(e);
    this.status(`${context}: ${text}`, 'error');
  }

  // ---- pages ----

  abs(path) {
    if (typeof path !== 'string' || !this.root) return null;
    return path.startsWith('/') ? normalize(path) : join(this.root, path);
  }

  /**
   * Opens a file. With unsaved changes the user chooses between saving and
   * keeping them as a draft (offered again when the page is reopened); when
   * not interactive, they are kept as a draft. `fragment` is shown in the
   * preview once the page is there.
   */
  async openPage(path, { interactive = true, fragment = '' } = {}) {
    path = this.abs(path);
    if (!path) return false;
    if (samePath(path, this.openFile)) return true;
    if (this.session.dirty) {
      let choice = 'draft';
      if (interactive) {
        choice = await choiceDialog({
          title: 'Unsaved changes',
          message: `${basename(this.session.path)} has changes that are not saved yet.`,
          buttons: [
            { label: 'Cancel', value: null },
            { label: 'Keep as draft', value: 'draft' },
            { label: 'Save', value: 'save', primary: true },
          ],
        });
      }
      if (!choice) return false;
      if (choice === 'save') {
        const result = await this.session.save();
        if (!result.ok) return false;
      } else {
        await this.session.storeDraft();
      }
    }
    const kind = fileKind(path);
    clearBanners();
    if (kind === 'page' || kind === 'text') {
      // Keystrokes must not land in the old text while the session already
      // belongs to the new page.
      this.editor.setReadOnly(true);
      this.status(`Opening ${basename(path)}…`);
      // The page being left need not be drawn while the next one loads.
      this.preview.forgo();
      let opened;
      try {
        opened = await this.session.open(path);
      } catch (e) {
        this.editor.setReadOnly(this.session.readOnly);
        this.preview.render();
        if (e instanceof NotTextError) return this.showNote(path, 'other', e.message);
        this.error(`Could not open ${basename(path)}`, e);
        return false;
      }
      if (!opened) return false;
    } else {
      this.showNote(path, kind, kind === 'image'
        ? `${basename(path)} is an image; it is shown in the preview.`
        : `${basename(path)} cannot be edited here. Use “Open with default application” from its menu.`);
      return true;
    }
    this.preview.setSource(kind === 'page'
      ? { kind, read: () => this.editor.text(), pagePath: path, root: this.root, origin: this.origin }
      : { kind, message: `No preview for .${path.split('.').pop()} files.` }, { fragment });
    this.status(`Opened ${basename(path)}`);
    this.editor.focus();
    await this.afterOpen(path);
    return true;
  }

  /** The session opened `page` at `path`: shows it in the editor. */
  showPage(path, page) {
    this.kind = fileKind(path);
    this.openFile = path;
    this.showEditor(true);
    this.editor.load(page, path, { readOnly: this.session.readOnly });
    if (this.session.readOnly) this.offerConversion();
  }

  /** Shows a file that is not edited here: an image in the preview, or a note. */
  async showNote(path, kind, message) {
    this.session.close();
    this.kind = kind;
    this.openFile = path;
    this.showEditor(false, message);
    this.preview.setSource(kind === 'image'
      ? { kind, url: workspaceUrl(this.origin, path) }
      : { kind: 'other', message: 'No preview for this kind of file.' });
    this.status(kind === 'image' ? `Selected ${basename(path)}` : message, kind === 'image' ? 'info' : 'error');
    await this.afterOpen(path);
    return true;
  }

  async afterOpen(path) {
    await this.revealInTree(path);
    this.treeView.setOpenPath(path);
    this.rememberInUrl(path);
    this.noteConflictsOfPage();
    this.updateChrome();
  }

  /** A link in the preview led to a workspace file: open it, or show the fragment of this page. */
  async followLink(path, fragment) {
    if (samePath(path, this.openFile)) {
      if (this.kind === 'page') this.preview.setSource(this.preview.source, { fragment });
      return;
    }
    const opened = await this.openPage(path, { fragment });
    // Whatever was not opened leaves the page that was shown.
    if (!opened || !samePath(path, this.openFile)) this.preview.render();
  }

  /** Explains why a page that is not UTF-8 is read-only, with the one way to edit it. */
  offerConversion() {
    showBanner('encoding', {
      tone: 'warn',
      message: 'This page is not valid UTF-8, so it is shown as Windows-1252 and cannot be changed. Converting it saves it as UTF-8 from then on.',
      actions: [{ label: 'Convert to UTF-8 and edit', primary: true, run: () => this.convertToUtf8() }],
    });
  }

  convertToUtf8() {
    if (!this.session.convertToUtf8()) return false;
    hideBanner('encoding');
    this.status('Converted to UTF-8; saving writes the page as UTF-8.', 'ok');
    this.editor.focus();
    return true;
  }

  /** Expands the folders above `path`, so the open file shows in the sidebar. */
  async revealInTree(path) {
    if (!this.tree) return;
    const chain = [];
    for (let dir = dirname(path); dir !== this.root && isWithin(dir, this.root); dir = dirname(dir)) chain.unshift(dir);
    for (const dir of chain) {
      const node = this.tree.model.get(dir);
      if (!node || node.expanded) continue;
      try {
        await this.tree.toggle(dir, true);
      } catch (e) {
        this.error(`Could not list ${basename(dir)}`, e);
        return;
      }
    }
  }

  currentText() {
    this.session.pull();
    return this.session.text;
  }

  showEditor(editable, message = '') {
    $('no-page').hidden = true;
    $('panes').hidden = false;
    $('editor').hidden = !editable;
    $('media').hidden = editable;
    $('media').textContent = message;
  }

  /** Closes the open file; with unsaved text and `ask`, only after the user agreed. */
  async closePage({ ask = false } = {}) {
    if (ask && this.session.dirty) {
      const sure = await choiceDialog({
        title: `Close ${basename(this.session.path)}?`,
        message: 'Its unsaved text is kept as a draft, offered when you open the page again.',
        buttons: [{ label: 'Cancel', value: false }, { label: 'Close page', value: true, primary: true }],
      });
      if (!sure) return false;
      await this.session.storeDraft();
    }
    this.session.close();
    this.kind = null;
    this.openFile = null;
    this.preview.clear();
    clearBanners();
    this.showNoPage();
    this.treeView.setOpenPath(null);
    this.rememberInUrl(null);
    this.updateChrome();
    return true;
  }

  rememberInUrl(path) {
    // A reload of the editor (the host loads it again for a new folder) reopens this page.
    try {
      const url = new URL(window.location.href);
      const rel = path && this.root ? relative(this.root, path) : null;
      if (rel) url.searchParams.set('open', rel);
      else url.searchParams.delete('open');
      window.history.replaceState(null, '', url.pathname + url.search.replace(/\+/g, '%20'));
    } catch {
      // not essential
    }
  }

  async save() {
    if (!this.editable()) return { ok: false, error: 'no editable page is open' };
    if (this.session.readOnly) {
      this.status('This page is read-only until it is converted to UTF-8.', 'error');
      return { ok: false, error: 'the page is not UTF-8 text; convert it to edit and save it' };
    }
    const result = await this.session.save();
    if (result.unchanged) this.status('No changes to save');
    if (!this.conflictsView.isOpen && !document.querySelector('dialog[open]')) this.editor.focus();
    return result;
  }

  // ---- session events ----

  onSession(kind, detail) {
    const s = this.session;
    const name = s.path ? basename(s.path) : '';
    switch (kind) {
      case 'opened':
        this.showPage(detail.path, detail.page);
        break;
      case 'saving':
        this.status(`Saving ${name}…`);
        break;
      case 'saved':
        this.editor.markSaved(detail.text);
        this.status(`Saved ${name}`, 'ok');
        hideBanner('disk');
        hideBanner('draft');
        break;
      case 'draft-offer':
        if (detail.draft) this.offerDraft(detail.draft);
        else hideBanner('draft');
        break;
      case 'restored':
        this.editor.replace(detail.page, { userEvent: 'input.restore' });
        hideBanner('draft');
        this.status(detail.baseMoved
          ? 'Draft restored. The page changed on disk since this draft was taken; saving will let you choose between the versions.'
          : 'Draft restored', 'ok');
        break;
      case 'reloaded':
        // One edit: Undo brings back the text the reload replaced.
        this.editor.replace(detail.page, { saved: true, userEvent: 'input.reload' });
        this.editor.setReadOnly(s.readOnly);
        if (s.readOnly) this.offerConversion();
        else hideBanner('encoding');
        hideBanner('disk');
        this.status(`Reloaded ${name} from disk`);
        break;
      case 'resolved':
        if (detail.savedText !== undefined) this.editor.markSaved(detail.savedText);
        hideBanner('disk');
        hideBanner('conflict');
        break;
      case 'converted':
        this.editor.forgetSaved();
        this.editor.setReadOnly(false);
        break;
      case 'disk':
        this.showDiskBanner(detail.disk);
        break;
      case 'conflict':
        this.onConflict(detail.conflict);
        break;
      case 'moved':
        this.openFile = detail.path;
        break;
      case 'error':
        this.error(name ? `${name}` : 'Error', detail.error);
        break;
      default:
        break;
    }
    this.updateChrome();
  }

  offerDraft(draft) {
    showBanner('draft', {
      tone: 'info',
      message: `An unsaved draft of this page from ${formatTime(draft.capturedAt)} was kept (${draft.byteCount} bytes).`,
      actions: [
        { label: 'Restore draft', primary: true, run: () => this.session.restoreDraft().catch((e) => this.error('Could not restore the draft', e)) },
        { label: 'Discard draft…', run: () => this.discardDraft() },
      ],
    });
  }

  async discardDraft() {
    const sure = await choiceDialog({
      title: 'Discard the draft?',
      message: 'The text typed in that earlier session is then gone for good; the page keeps the version on disk.',
      buttons: [{ label: 'Cancel', value: false }, { label: 'Discard draft', value: true, primary: true, danger: true }],
    });
    if (sure) await this.session.discardDraftOffer();
    return sure;
  }

  /**
   * Replaces the editor's text with the page on disk. Unsaved text is only
   * replaced after the user agreed, and Undo brings it back.
   */
  async reloadFromDisk() {
    if (this.session.dirty) {
      const sure = await choiceDialog({
        title: `Reload ${basename(this.session.path)} from disk?`,
        message: 'The version on disk replaces your unsaved text. Undo (Ctrl+Z) brings your text back.',
        buttons: [{ label: 'Cancel', value: false }, { label: 'Reload from disk', value: true, primary: true }],
      });
      if (!sure) return false;
    }
    return this.session.reload({ discard: true });
  }

  showDiskBanner(disk) {
    if (!disk) {
      hideBanner('disk');
      return;
    }
    if (disk.state === 'removed') {
      showBanner('disk', {
        tone: 'danger',
        message: 'This page was removed on disk. Your text is still here.',
        actions: [
          { label: 'Save as new page', primary: true, run: () => this.session.recreate() },
          { label: 'Close page…', run: () => this.closePage({ ask: true }) },
        ],
      });
      return;
    }
    showBanner('disk', {
      tone: 'warn',
      message: 'This page changed on disk while you were editing it. Saving lets you choose between the two versions.',
      actions: [
        { label: 'Reload from disk…', run: () => this.reloadFromDisk() },
        { label: 'Keep editing', primary: true, run: () => this.session.keepEditing() },
      ],
    });
  }

  async onConflict(conflict) {
    this.status('The page changed on disk since you opened it; your version was kept. Choose which version to keep.', 'error');
    if (!conflict.record) {
      // The host could not record the conflict: the editor still holds the text.
      showBanner('conflict', {
        tone: 'danger',
        message: `Not saved: the page changed on disk, and the host could not keep the versions (${conflict.error || 'unknown error'}).`,
        actions: [
          { label: 'Reload from disk…', run: () => this.reloadFromDisk() },
          {
            label: 'Save mine over it',
            primary: true,
            run: () => {
              hideBanner('conflict');
              this.session.adoptDiskBase(conflict.diskFingerprint);
              this.save();
            },
          },
        ],
      });
      return;
    }
    await this.showConflicts({ conflict: conflict.record, diskFingerprint: conflict.diskFingerprint });
  }

  // ---- outside changes ----

  hostChange(change) {
    if (!change || typeof change !== 'object') return;
    this.events.push(change);
    if (this.events.length > 100) this.events.shift();
    if (!this.root || change.type !== 'changed' || typeof change.path !== 'string') return;
    if (!isWithin(change.path, this.root)) return;
    this.tree.handleChange(change);
    if (this.editable()) this.session.externalChange(change);
    else if (this.openFile && samePath(change.path, this.openFile)) {
      if (change.kind === 'removed') this.closePage();
      else this.preview.render();
    }
    // A stylesheet, image or font the preview uses changed: show it anew.
    if (this.kind === 'page' && !samePath(change.path, this.openFile)) this.preview.fileChanged(change.path);
    const view = this.conflictsView.isOpen ? this.conflictsView.view : null;
    if (view && samePath(view.conflict.pagePath, change.path)) {
      this.desk.lookAtDisk(view).then(() => this.conflictsView.update(view)).catch(() => {});
    }
  }

  // ---- conflicts ----

  async refreshConflicts({ announce = false } = {}) {
    try {
      await this.desk.refresh();
    } catch (e) {
      this.error('Could not list conflicts', e);
      return;
    }
    this.updateChrome();
    this.noteConflictsOfPage({ announce });
  }

  /** One banner about conflicts: the open page's own first, else (at start) those of other pages. */
  noteConflictsOfPage({ announce = false } = {}) {
    const mine = this.session.path ? this.desk.forPage(this.session.path) : [];
    const n = this.desk.open.length;
    if (this.conflictsView.isOpen || n === 0) hideBanner('conflict');
    else if (mine.length) {
      showBanner('conflict', {
        tone: 'warn',
        message: 'This page has an unresolved conflict: a save found a newer version on disk.',
        actions: [{ label: 'Review', primary: true, run: () => this.showConflicts({ conflict: mine[0] }) }],
      });
    } else if (announce) {
      showBanner('conflict', {
        tone: 'warn',
        message: n === 1 ? 'One conflict from an earlier session is waiting for a decision.' : `${n} conflicts from earlier sessions are waiting for a decision.`,
        actions: [{ label: 'Review', primary: true, run: () => this.showConflicts() }],
      });
    }
  }

  async showConflicts({ conflict = null, diskFingerprint = null } = {}) {
    try {
      await this.desk.refresh();
    } catch (e) {
      this.error('Could not list conflicts', e);
      return null;
    }
    this.updateChrome();
    const list = this.desk.open;
    const target = (conflict && list.find((c) => c.id === conflict.id))
      || (this.session.path && this.desk.forPage(this.session.path)[0])
      || list[0];
    if (!target) {
      this.conflictsView.close();
      this.status('No conflicts are waiting for a decision.');
      return null;
    }
    hideBanner('conflict');
    return this.showConflict(target, { diskFingerprint: conflict && target.id === conflict.id ? diskFingerprint : null });
  }

  async showConflict(conflict, { diskFingerprint = null } = {}) {
    try {
      const view = await this.desk.load(conflict, { diskFingerprint });
      this.conflictsView.show(this.desk.open, view);
      return view;
    } catch (e) {
      this.error('Could not load the conflict', e);
      return null;
    }
  }

  async chooseCandidate(view, id) {
    this.conflictsView.setBusy(true);
    try {
      const result = await this.desk.choose(view, id);
      this.conflictsView.setBusy(false, '');
      if (this.session.path && samePath(this.session.path, view.conflict.pagePath)) {
        await this.session.adoptResolution({ fingerprint: result.fingerprint, text: result.candidate.text, keepEditorText: result.candidate.role === 'editor' });
      } else if (this.openFile && samePath(this.openFile, view.conflict.pagePath)) this.preview.render();
      const label = this.conflictsView.label(result.candidate).toLowerCase();
      this.status(result.warnings.length ? `Kept ${label}; the host noted: ${result.warnings.join('; ')}` : `Conflict resolved: kept ${label}`, result.warnings.length ? 'error' : 'ok');
      this.afterConflictClosed();
      return { ok: true, fingerprint: result.fingerprint };
    } catch (e) {
      const message = e.status === 409
        ? 'The page changed on disk again. Look at the versions once more and choose.'
        : `Could not resolve: ${e.message}`;
      this.conflictsView.setBusy(false, message);
      if (e.status !== 409) this.error('Could not resolve the conflict', e);
      return { ok: false, error: e.message, status: e.status };
    }
  }

  keepDisk(view) {
    return this.closeConflicts(view, async (pageIsOpen) => {
      if (pageIsOpen) await this.session.reload({ discard: true });
      this.status('Kept the version on disk', 'ok');
    });
  }

  dismissConflict(view) {
    return this.closeConflicts(view, async (pageIsOpen) => {
      // Dismissing means carrying on with the editor's text over what is on
      // disk now; the disk's version stays in the host's store.
      if (pageIsOpen && this.session.conflict) this.session.adoptDiskBase(view.disk.fingerprint);
      this.status('Conflict dismissed; your text is still unsaved in the editor.');
    });
  }

  /** Dismisses the view's conflicts without writing the page, then runs `after`. */
  async closeConflicts(view, after) {
    this.conflictsView.setBusy(true);
    try {
      await this.desk.dismiss(view);
      this.conflictsView.setBusy(false, '');
      await after(Boolean(this.session.path && samePath(this.session.path, view.conflict.pagePath)));
      this.afterConflictClosed();
      return { ok: true };
    } catch (e) {
      this.conflictsView.setBusy(false, `Could not dismiss: ${e.message}`);
      this.error('Could not dismiss the conflict', e);
      return { ok: false, error: e.message };
    }
  }

  afterConflictClosed() {
    this.updateChrome();
    hideBanner('conflict');
    if (this.desk.open.length) this.showConflict(this.desk.open[0]);
    else this.conflictsView.close();
  }

  /** For scripts: resolves the open page's conflict with a role ('base', 'editor', 'disk') or a candidate id. */
  async resolveOpenConflict(choice) {
    await this.desk.refresh();
    const record = (this.session.conflict && this.session.conflict.record) || (this.session.path && this.desk.forPage(this.session.path)[0]);
    if (!record) return { ok: false, error: 'no conflict for the open page' };
    const view = await this.desk.load(record, { diskFingerprint: this.session.conflict ? this.session.conflict.diskFingerprint : null });
    if (choice === 'dismiss') return this.dismissConflict(view);
    const candidates = view.candidates.filter((c) => c.id === choice || c.role === choice);
    const candidate = candidates[candidates.length - 1];
    if (!candidate) return { ok: false, error: `no candidate ${choice}` };
    return this.chooseCandidate(view, candidate.id);
  }

  // ---- version history ----

  /** The History panel: the open page's versions, or the deleted pages when no page is open. */
  async showHistory() {
    if (!this.root) return false;
    await this.historyView.open();
    return true;
  }

  /**
   * Puts a version's text into the editor as an unsaved change (one edit,
   * undoable). The save that writes it goes with the session's base, so what
   * is on disk then is kept like any version a save displaces.
   */
  restoreVersion(page, version) {
    if (!this.editable() || this.session.readOnly) {
      this.status('Restoring needs an editable page open.', 'error');
      return { ok: false, error: 'no editable page is open' };
    }
    this.editor.replace(page, { userEvent: 'input.restore' });
    this.historyView.close();
    this.status(`Restored the version of ${formatTime(version.capturedAt)}; saving writes it.`, 'ok');
    return { ok: true };
  }

  /**
   * Creates a page holding a version's text: at `path` (a deleted page coming
   * back) or under a name the user gives, beside the open page. Nothing that
   * exists is overwritten: the host refuses a name that is taken.
   */
  async saveVersionAs(text, version, path = null, name = null) {
    if (!this.root) return { ok: false, error: 'no folder is open' };
    if (!path) {
      const source = this.historyView.pagePath || this.openFile || join(this.root, 'page.html');
      const folder = dirname(source);
      if (name === null) {
        const wanted = basename(source).replace(/(\.[^.]+)?$/, (ext) => `-restored${ext || '.html'}`);
        name = await promptDialog({ title: 'Open as a new page', label: `Name of the new page in ${basename(folder) || folder}`, value: this.uniqueName(folder, wanted), okLabel: 'Create', validate: checkName, selectStem: true });
        if (name === null) return { ok: false, cancelled: true };
      }
      path = join(folder, name);
    }
    try {
      await this.api.createFile(path, text);
    } catch (e) {
      this.error(`Could not create ${basename(path)}`, e);
      return { ok: false, error: e.message, status: e.status };
    }
    this.historyView.close();
    await this.relist(dirname(path));
    await this.revealInTree(path);
    // A deleted page still open comes back under the editor: a clean one
    // shows what was brought back, unsaved text is flagged against it.
    if (this.session.path && samePath(path, this.session.path)) await this.session.reload({ discard: !this.session.dirty });
    else await this.openPage(path, { interactive: false });
    this.status(`Created ${basename(path)} from the version of ${formatTime(version.capturedAt)}`, 'ok');
    return { ok: true, path };
  }

  // ---- tree and file operations ----

  async toggleFolder(node) {
    try {
      await this.tree.toggle(node.path);
    } catch (e) {
      this.error(`Could not list ${node.name}`, e);
    }
  }

  targetFolder() {
    const node = this.treeView.selectedNode();
    if (!node) return this.root;
    return node.kind === 'directory' ? node.path : dirname(node.path);
  }

  contextMenu(node, at) {
    if (!this.root) return;
    const isDir = node && node.kind === 'directory';
    const folder = node ? (isDir ? node.path : dirname(node.path)) : this.root;
    const target = node ? node.path : this.root;
    const items = [];
    if (node && !isDir) items.push({ label: 'Open', action: () => this.openPage(node.path) });
    if (isDir) items.push({ label: node.expanded ? 'Collapse' : 'Expand', action: () => this.toggleFolder(node) });
    if (node) items.push('separator');
    items.push({ label: 'New page…', action: () => this.newPage(folder) });
    items.push({ label: 'New folder…', action: () => this.newFolder(folder) });
    if (node) {
      items.push('separator');
      items.push({ label: 'Rename…', action: () => this.renameEntry(node) });
      items.push({ label: isDir ? 'Move to Trash (files only)' : 'Move to Trash', disabled: isDir, action: () => this.trashEntry(node) });
    }
    items.push('separator');
    items.push({ label: 'Reveal in file manager', action: () => this.reveal(target) });
    items.push({ label: 'Open with default application', action: () => this.openExternally(target) });
    showMenu(items, { ...at, label: node ? node.name : 'Folder' });
  }

  uniqueName(folder, wanted) {
    const model = this.tree && this.tree.model;
    const taken = new Set((model && model.get(folder) && model.get(folder).children || []).map((p) => basename(p).toLowerCase()));
    if (!taken.has(wanted.toLowerCase())) return wanted;
    const dot = wanted.lastIndexOf('.');
    const stem = dot > 0 ? wanted.slice(0, dot) : wanted;
    const ext = dot > 0 ? wanted.slice(dot) : '';
    for (let i = 2; ; i++) if (!taken.has(`${stem}-${i}${ext}`.toLowerCase())) return `${stem}-${i}${ext}`;
  }

  async revealFolder(folder) {
    if (folder === this.root) return;
    const node = this.tree.model.get(folder);
    if (node && !node.expanded) await this.tree.toggle(folder, true);
  }

  async newPage(folder, name = null) {
    if (!this.root) return { ok: false, error: 'no folder is open' };
    folder = this.abs(folder || this.root);
    if (name === null) {
      name = await promptDialog({ title: 'New page', label: `Name of the new page in ${basename(folder)}`, value: this.uniqueName(folder, 'untitled.html'), okLabel: 'Create', validate: checkName, selectStem: true });
      if (name === null) return { ok: false, cancelled: true };
    }
    if (!/\.[^.]+$/.test(name)) name += '.html';
    const path = join(folder, name);
    try {
      await this.api.createFile(path, fileKind(name) === 'page' ? NEW_PAGE(titleOf(name)) : '');
    } catch (e) {
      this.error(`Could not create ${name}`, e);
      return { ok: false, error: e.message, status: e.status };
    }
    await this.relist(folder);
    await this.revealFolder(folder);
    await this.openPage(path, { interactive: false });
    this.status(`Created ${name}`, 'ok');
    return { ok: true, path };
  }

  async newFolder(parent, name = null) {
    if (!this.root) return { ok: false, error: 'no folder is open' };
    parent = this.abs(parent || this.root);
    if (name === null) {
      name = await promptDialog({ title: 'New folder', label: `Name of the new folder in ${basename(parent)}`, value: this.uniqueName(parent, 'new folder'), okLabel: 'Create', validate: checkName });
      if (name === null) return { ok: false, cancelled: true };
    }
    const path = join(parent, name);
    try {
      await this.api.mkdir(path);
    } catch (e) {
      this.error(`Could not create the folder ${name}`, e);
      return { ok: false, error: e.message, status: e.status };
    }
    await this.relist(parent);
    await this.revealFolder(parent);
    this.treeView.select(path, true);
    this.status(`Created the folder ${name}`, 'ok');
    return { ok: true, path };
  }

  async relist(folder) {
    if (!this.tree.model.isListed(folder)) return;
    try {
      await this.tree.list(folder);
    } catch (e) {
      this.error(`Could not list ${basename(folder)}`, e);
    }
  }

  async renameEntry(node, newName = null) {
    if (!node || node.path === this.root) return { ok: false, error: 'nothing to rename' };
    if (newName === null) {
      newName = await promptDialog({ title: `Rename ${node.kind === 'directory' ? 'folder' : 'file'}`, label: 'New name', value: node.name, okLabel: 'Rename', validate: checkName, selectStem: node.kind !== 'directory' });
      if (newName === null || newName === node.name) return { ok: false, cancelled: true };
    }
    const to = newName.startsWith('/') ? normalize(newName) : join(dirname(node.path), newName);
    return this.move(node.path, to);
  }

  async move(from, to) {
    from = this.abs(from);
    to = this.abs(to);
    try {
      await this.api.rename(from, to);
    } catch (e) {
      this.error(`Could not rename ${basename(from)}`, e);
      return { ok: false, error: e.message, status: e.status };
    }
    this.tree.model.move(from, to);
    if (this.openFile && isWithin(this.openFile, from)) {
      const moved = rebase(this.openFile, from, to);
      if (this.session.path) this.session.moved(moved);
      this.openFile = moved;
      this.treeView.setOpenPath(moved);
      if (this.kind === 'page') this.preview.setSource({ ...this.preview.source, pagePath: moved });
      this.rememberInUrl(moved);
    }
    await this.relist(dirname(from));
    if (dirname(to) !== dirname(from)) await this.relist(dirname(to));
    this.treeView.render();
    this.updateChrome();
    this.status(`Renamed to ${basename(to)}`, 'ok');
    return { ok: true, path: to };
  }

  async trashEntry(node, { confirm = true } = {}) {
    if (!node || node.kind === 'directory') {
      this.status('Only files can be moved to the Trash from here.', 'error');
      return { ok: false, error: 'only files can be moved to the Trash' };
    }
    const isOpen = samePath(node.path, this.openFile);
    if (confirm) {
      const sure = await choiceDialog({
        title: `Move ${node.name} to the Trash?`,
        message: isOpen && this.session.dirty ? 'The page has unsaved changes; they will be lost.' : 'You can restore it from the Trash later.',
        buttons: [{ label: 'Cancel', value: false }, { label: 'Move to Trash', value: true, primary: true, danger: true }],
      });
      if (!sure) return { ok: false, cancelled: true };
    }
    try {
      await this.api.trash(node.path);
    } catch (e) {
      this.error(`Could not move ${node.name} to the Trash`, e);
      return { ok: false, error: e.message, status: e.status };
    }
    if (isOpen) this.closePage();
    this.tree.model.remove(node.path);
    this.treeView.render();
    this.syncHostState();
    this.status(`Moved ${node.name} to the Trash`, 'ok');
    return { ok: true };
  }

  async reveal(path) {
    try {
      await this.api.reveal(this.abs(path));
      this.status(`Showing ${basename(path)} in the file manager`);
      return { ok: true };
    } catch (e) {
      this.error(`Could not show ${basename(path)}`, e);
      return { ok: false, error: e.message };
    }
  }

  async openExternally(path) {
    try {
      const answer = await this.api.open(this.abs(path));
      this.status(answer && answer.dryRun ? `Would open ${basename(path)} (dry run)` : `Opening ${basename(path)}…`);
      return { ok: true, dryRun: Boolean(answer && answer.dryRun) };
    } catch (e) {
      this.error(`Could not open ${basename(path)}`, e);
      return { ok: false, error: e.message };
    }
  }

  // ---- scripting ----

  /** The editor's API for end-to-end scenarios and the console (window.VN). */
  scriptingApi() {
    const app = this;
    const s = this.session;
    const node = (path) => (this.tree && this.tree.model.get(this.abs(path))) || null;
    return {
      version: 1,
      folder: () => app.root,
      path: () => s.path,
      openPage: (path) => app.openPage(path, { interactive: false }),
      closePage: () => app.closePage(),
      /** The page's text as a save writes it: a leading BOM, each line's own ending. */
      text: () => (s.path ? app.currentText() : null),
      /** Replaces the text like one edit (Undo brings the old one back); endings as given. */
      setText: (text) => {
        if (!s.path || s.readOnly) return false;
        app.editor.setText(String(text));
        return true;
      },
      /** Selects [from, to) of the text (offsets with "\n" line breaks) and focuses the editor. */
      select: (from, to = from) => {
        if (!app.editable()) return false;
        app.editor.select(from, to);
        return true;
      },
      /** {encoding, bom, eol, readOnly} of the open page. */
      format: () => (s.path ? { encoding: s.encoding, bom: app.editor.format().bom, eol: app.editor.endingLabel(), readOnly: s.readOnly } : null),
      convertToUtf8: () => app.convertToUtf8(),
      command: (name) => app.command(name),
      save: () => app.save(),
      base: () => s.base,
      dirty: () => s.dirty,
      reload: () => s.reload({ discard: true }),
      keepMine: () => s.keepEditing(),
      disk: () => s.disk,
      storeDraft: () => s.storeDraft(),
      draftOffer: () => s.draftOffer,
      restoreDraft: () => s.restoreDraft(),
      discardDraft: () => s.discardDraftOffer(),
      conflict: () => s.conflict,
      conflicts: () => app.desk.refresh(),
      showConflicts: () => app.showConflicts().then((v) => Boolean(v)),
      resolveConflict: (choice) => app.resolveOpenConflict(choice),
      history: {
        /** Opens the History panel (the open page's versions, else the deleted pages). */
        open: () => app.showHistory(),
        close: () => app.historyView.close(),
        isOpen: () => app.historyView.isOpen,
        /** The versions listed, newest first, each with the words the panel shows. */
        versions: () => app.historyView.versions.map((v, i) => ({ ...v, words: app.historyView.words[i] })),
        /** Shows version `id` beside the current text; resolves to whether it could. */
        select: (id) => app.historyView.select(id).then(Boolean),
        /** {version, current}: the two texts the comparison shows, or null. */
        shown: () => app.historyView.shown(),
        restore: async (id) => {
          const picked = await app.historyView.select(id);
          return picked ? app.restoreVersion(picked.page, picked.version) : { ok: false, error: `no version ${id}` };
        },
        openAsNew: async (id, name) => {
          const picked = await app.historyView.select(id);
          return picked ? app.saveVersionAs(app.historyView.selectedText(), picked.version, null, name) : { ok: false, error: `no version ${id}` };
        },
        /** The deleted pages under the folder, as GET deleted lists them, shown in the panel. */
        deleted: async () => {
          await app.historyView.open();
          await app.historyView.showDeleted();
          return app.historyView.deleted;
        },
      },
      dismissConflict: () => app.resolveOpenConflict('dismiss'),
      list: async (dir = app.root) => {
        await app.tree.list(app.abs(dir));
        return app.tree.model.entries().filter((e) => dirname(e.path) === app.abs(dir));
      },
      entries: () => (app.tree ? app.tree.model.entries() : []),
      expand: (dir) => app.tree.toggle(app.abs(dir), true),
      newPage: (name, dir) => app.newPage(dir || app.root, name),
      newFolder: (name, dir) => app.newFolder(dir || app.root, name),
      rename: (from, to) => app.move(from, to.includes('/') ? to : join(dirname(app.abs(from)), to)),
      trash: (path) => app.trashEntry(node(path) || { path: app.abs(path), name: basename(path), kind: 'file' }, { confirm: false }),
      reveal: (path) => app.reveal(path),
      openExternally: (path) => app.openExternally(path),
      status: () => ({ ...app.statusState }),
      banners: () => [...document.querySelectorAll('#banners .banner')].map((b) => ({ id: b.dataset.id, text: b.querySelector('.banner-text').textContent })),
      /** The document the preview shows now, as HTML. */
      previewDocument: () => {
        const doc = app.preview.document();
        return doc ? doc.documentElement.outerHTML : '';
      },
      renderPreview: () => app.preview.render(),
      events: () => app.events.slice(),
      idle: async () => {
        while (s.saving) await s.saving;
        await s.draftQueue;
      },
      api: app.api,
    };
  }
}
