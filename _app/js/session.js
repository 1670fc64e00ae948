// The open page: which version of the disk the editor's text started from
// (the base fingerprint), whether the text differs from what was last loaded or
// saved, the drafts kept by the host while the user types, and what happens
// when the disk moves on. No DOM here; the UI listens through `onChange`.
//
// Texts here are the page's text exactly as a save writes it (byte-order
// mark, every line's own ending); the editor hands it over through
// `textSource`, which is read only when a save or a draft needs it.
//
// Invariants:
// - `base` is the fingerprint of the version `savedText` came from, and it is
//   what the next save sends as "X-VN-Base". It changes only when the host
//   says which version is on disk now (a read, a save, a resolve).
// - The editor's text is never replaced while it is dirty unless the user
//   asked for it (reload, restore, choosing a candidate).
// - While the user types, a draft is stored at most DRAFT_THROTTLE_MS after
//   any keystroke, however long the typing goes on.
// - A page that is not UTF-8 is never written (no save, no draft) until the
//   user converts it; it is never written with replacement characters.
// - Draft writes and discards go through one queue, so a discard that follows
//   a save can never be overtaken by an older draft write.

import { decodePage } from './page-text.js';
import { isWithin, samePath } from './paths.js';

export const DRAFT_THROTTLE_MS = 1000;

const realTimers = {
  setTimeout: (fn, ms) => globalThis.setTimeout(fn, ms),
  clearTimeout: (id) => globalThis.clearTimeout(id),
};

/** Opening a file that is not text (it holds NUL bytes). */
export class NotTextError extends Error {
  constructor(path) {
    super(`${path.slice(path.lastIndexOf('/') + 1)} holds NUL bytes, so it is not a text file; it was not opened for editing.`);
    this.name = 'NotTextError';
  }
}

/** The text a page's decoded form stands for, as a save would write it. */
function textOf(page) {
  return (page.bom ? '\uFEFF' : '') + page.raw;
}


export class Session {
  constructor({ api, timers = realTimers, onChange = () => {}, textSource = null } = {}) {
    this.api = api;
    this.timers = timers;
    this.onChange = onChange;
    this.textSource = textSource;
    this.generation = 0;
    this.draftQueue = Promise.resolve();
    this.reset(null);
  }

  reset(path) {
    this.cancelDraftTimer();
    this.path = path;
    this.base = null;
    this.savedText = '';
    this.text = '';
    this.encoding = 'utf-8';
    this.dirty = false;
    this.saving = null;
    this.saveAgain = false;
    this.heldChanges = [];
    this.conflict = null; // {record, kind, diskFingerprint, error} after a 409
    this.disk = null; // null | {state: 'modified'|'removed', fingerprint}
    this.draftOffer = null; // a draft record found when the page was opened
    this.draftTimer = null;
  }

  /** True while the page is shown in an encoding it may not be written in. */
  get readOnly() {
    return this.encoding !== 'utf-8';
  }

  emit(kind, detail = {}) {
    try {
      this.onChange(kind, detail);
    } catch (e) {
      // A listener's fault must not break the session's bookkeeping.
      globalThis.console?.error?.(e);
    }
  }

  /**
   * Reads the page and makes it the open page; emits 'opened' with the
   * decoded page. Rejects with the host's error, or NotTextError.
   */
  async open(path) {
    const gen = ++this.generation;
    // The drafts are asked for alongside the page, not after it: a page opens
    // in one round trip.
    const drafts = this.api.drafts().then((list) => ({ list }), (error) => ({ error }));
    const file = await this.api.readFile(path);
    if (gen !== this.generation) return false;
    const page = decodePage(file.bytes);
    if (page.kind !== 'text') throw new NotTextError(path);
    this.reset(path);
    this.adopt(file.fingerprint, page);
    this.emit('opened', { path, page });
    await this.lookForDraft(path, gen, drafts);
    return true;
  }

  adopt(fingerprint, page) {
    this.base = fingerprint;
    this.encoding = page.encoding;
    this.savedText = textOf(page);
    this.text = this.savedText;
  }

  close() {
    this.generation++;
    this.reset(null);
    this.emit('closed');
  }

  /** `answer` resolves to {list} or {error}: the host's drafts, asked for with the page. */
  async lookForDraft(path, gen, answer) {
    const { list: drafts, error } = await answer;
    if (error) {
      this.emit('error', { error });
      return;
    }
    if (gen !== this.generation) return;
    const draft = (Array.isArray(drafts) ? drafts : []).find((d) => samePath(d.pagePath, path));
    if (!draft) return;
    if (draft.fingerprint === this.base) {
      // The draft holds exactly what is on disk: nothing to offer.
      this.queueDraft(() => this.api.deleteDraft(path));
      return;
    }
    this.draftOffer = draft;
    this.emit('draft-offer', { draft });
  }

  setDirty(dirty) {
    if (dirty !== this.dirty) {
      this.dirty = dirty;
      this.emit('dirty', { dirty });
    }
  }

  /** Replaces the editor's copy of the text and updates the dirty marker; an edit. */
  setText(text) {
    if (this.path === null) return;
    this.takeText(text);
    if (this.dirty) this.scheduleDraft();
    else this.cancelDraftTimer();
  }

  /** Takes the text as it is now, without counting that as an edit. */
  takeText(text) {
    this.text = text;
    this.setDirty(text !== this.savedText);
  }

  /** An edit happened; the editor says whether the text now differs from the disk's. */
  edited(dirty) {
    if (this.path === null || this.readOnly) return;
    if (dirty) this.scheduleDraft();
    else this.cancelDraftTimer();
    this.setDirty(dirty);
  }

  pull() {
    if (this.textSource && this.path !== null) {
      const text = this.textSource();
      if (typeof text === 'string') this.takeText(text);
    }
  }

  /**
   * The user chose to edit a page that is not UTF-8: from now on it is UTF-8
   * text, and the next save writes it as such.
   */
  convertToUtf8() {
    if (!this.readOnly) return false;
    this.encoding = 'utf-8';
    // No UTF-8 text equals the bytes on disk, so the page stays dirty until saved.
    this.savedText = null;
    this.emit('converted');
    this.setDirty(true);
    this.scheduleDraft();
    return true;
  }

  // ---- drafts ----

  /** A throttle, not a debounce: continuous typing still stores a draft every second. */
  scheduleDraft() {
    if (this.draftTimer !== null || this.readOnly) return;
    this.draftTimer = this.timers.setTimeout(() => {
      this.draftTimer = null;
      this.storeDraft();
    }, DRAFT_THROTTLE_MS);
  }

  cancelDraftTimer() {
    if (this.draftTimer !== null && this.draftTimer !== undefined) this.timers.clearTimeout(this.draftTimer);
    this.draftTimer = null;
  }

  queueDraft(op) {
    const run = this.draftQueue.then(op);
    this.draftQueue = run.catch((e) => this.emit('error', { error: e }));
    return this.draftQueue;
  }

  /** Hands the current text to the host as a draft; returns when it is stored. */
  storeDraft() {
    this.cancelDraftTimer();
    this.pull();
    if (this.path === null || !this.dirty || this.readOnly) return this.draftQueue;
    const { path, text, base } = this;
    return this.queueDraft(async () => {
      await this.api.putDraft(path, text, base);
      this.emit('draft-stored', { path });
    });
  }

  /**
   * Makes sure the host holds what the user typed: waits for a save under
   * way, then stores a draft of unsaved text. Used before the editor goes
   * away (closing, quitting, another folder).
   */
  async flush() {
    while (this.saving) await this.saving;
    await this.storeDraft();
    await this.draftQueue;
  }

  async restoreDraft() {
    const draft = this.draftOffer;
    if (!draft) return false;
    const gen = this.generation;
    const { bytes } = await this.api.draftBytes(draft.id);
    if (gen !== this.generation) return false;
    const page = decodePage(bytes);
    if (page.kind !== 'text') throw new Error('the draft is not text');
    this.draftOffer = null;
    // The draft was typed over its own base; saving it over a newer disk
    // version must become a conflict, not a silent overwrite.
    const loadedBase = this.base;
    this.text = textOf(page);
    const dirty = this.text !== this.savedText;
    if (dirty && draft.baseFingerprint) this.base = draft.baseFingerprint;
    if (dirty) this.scheduleDraft();
    this.emit('restored', { draft, page, baseMoved: this.base !== loadedBase });
    this.setDirty(dirty);
    return true;
  }

  discardDraftOffer() {
    if (!this.draftOffer) return this.draftQueue;
    const path = this.path;
    this.draftOffer = null;
    this.emit('draft-offer', { draft: null });
    return this.queueDraft(() => this.api.deleteDraft(path));
  }

  // ---- saving ----

  /**
   * Saves the text with the base as "X-VN-Base". Resolves to {ok, ...};
   * never rejects: failures are reported through 'error' and 'conflict'.
   */
  save({ force = false } = {}) {
    this.pull();
    if (this.path === null) return Promise.resolve({ ok: false, error: 'no page is open' });
    if (this.readOnly) return Promise.resolve({ ok: false, error: 'the page is not UTF-8 text; convert it to edit and save it' });
    if (this.saving) {
      this.saveAgain = true;
      return this.saving;
    }
    if (!this.dirty && !force) return Promise.resolve({ ok: true, unchanged: true, fingerprint: this.base });
    this.cancelDraftTimer();
    const { path, text, base } = this;
    const gen = this.generation;
    this.emit('saving', { path });
    this.saving = (async () => {
      try {
        const answer = await this.api.saveFile(path, text, base);
        if (gen !== this.generation) return { ok: true, fingerprint: answer.fingerprint };
        this.base = answer.fingerprint;
        this.savedText = text;
        this.conflict = null;
        this.disk = null;
        this.draftOffer = null;
        this.emit('saved', { path, text, fingerprint: answer.fingerprint, bytes: answer.bytes });
        this.setText(this.text);
        this.pull();
        if (this.dirty) this.scheduleDraft();
        else this.queueDraft(() => this.api.deleteDraft(path));
        return { ok: true, fingerprint: answer.fingerprint, bytes: answer.bytes };
      } catch (e) {
        if (gen !== this.generation) return { ok: false, error: e.message };
        if (e.isConflict) {
          this.conflict = {
            record: e.body.conflict || null,
            kind: e.body.kind || null,
            diskFingerprint: e.body.fingerprint || null,
            error: e.body.conflict_error || null,
          };
          this.emit('conflict', { conflict: this.conflict });
          return { ok: false, conflict: this.conflict };
        }
        // The text stays dirty; keep it safe with the host while the user decides.
        this.scheduleDraft();
        this.emit('error', { error: e });
        return { ok: false, error: e.message, status: e.status };
      } finally {
        this.saving = null;
        const held = this.heldChanges;
        this.heldChanges = [];
        for (const change of held) this.externalChange(change);
        if (this.saveAgain && gen === this.generation) {
          this.saveAgain = false;
          if (this.dirty) this.save();
        }
      }
    })();
    return this.saving;
  }

  // ---- the disk moving on ----

  /**
   * A change event from the host's watcher. For the open page: a clean page
   * follows the disk, a dirty one is flagged for the user to decide.
   */
  async externalChange(change) {
    if (this.path === null || !change || typeof change.path !== 'string') return;
    // A removed folder takes the open page with it; other kinds name the page itself.
    const hit = change.kind === 'removed' ? isWithin(this.path, change.path) : samePath(change.path, this.path);
    if (!hit) return;
    if (this.saving) {
      // The answer of the save in flight tells which version is ours.
      this.heldChanges.push(change);
      return;
    }
    if (change.kind === 'removed') {
      this.disk = { state: 'removed', fingerprint: null };
      this.emit('disk', { disk: this.disk });
      return;
    }
    let fingerprint = change.fingerprint || null;
    if (fingerprint !== null && fingerprint === this.base) {
      if (this.disk) {
        this.disk = null;
        this.emit('disk', { disk: null });
      }
      return;
    }
    if (!this.dirty) {
      await this.reload();
      return;
    }
    const gen = this.generation;
    if (fingerprint === null) {
      try {
        fingerprint = (await this.api.stat(this.path)).fingerprint || null;
      } catch {
        fingerprint = null;
      }
      if (gen !== this.generation) return;
      if (fingerprint !== null && fingerprint === this.base) return;
    }
    this.disk = { state: 'modified', fingerprint };
    this.emit('disk', { disk: this.disk });
  }

  /**
   * Loads the page from disk. Without `discard`, edits made while the read
   * was under way win and the change is flagged instead. The editor replaces
   * its text as an edit the user can undo.
   */
  async reload({ discard = false } = {}) {
    if (this.path === null) return false;
    const path = this.path;
    const gen = this.generation;
    let file;
    try {
      file = await this.api.readFile(path);
    } catch (e) {
      if (gen !== this.generation) return false;
      if (e.status === 404) {
        this.disk = { state: 'removed', fingerprint: null };
        this.emit('disk', { disk: this.disk });
      } else this.emit('error', { error: e });
      return false;
    }
    if (gen !== this.generation) return false;
    this.pull();
    if (this.dirty && !discard) {
      if (file.fingerprint !== this.base) {
        this.disk = { state: 'modified', fingerprint: file.fingerprint };
        this.emit('disk', { disk: this.disk });
      }
      return false;
    }
    const page = decodePage(file.bytes);
    if (page.kind !== 'text') {
      this.emit('error', { error: new NotTextError(path) });
      return false;
    }
    const hadEdits = this.dirty;
    this.cancelDraftTimer();
    this.adopt(file.fingerprint, page);
    this.disk = null;
    this.emit('reloaded', { path, page });
    this.setDirty(false);
    // The edits just replaced stay in the editor's undo history and in the
    // host's store until pruned.
    if (hadEdits) this.queueDraft(() => this.api.deleteDraft(path));
    return true;
  }

  /** Writes the text as a new file at the page's path (after the page was removed on disk). */
  async recreate() {
    this.pull();
    if (this.path === null) return { ok: false, error: 'no page is open' };
    const { path, text } = this;
    const gen = this.generation;
    try {
      const answer = await this.api.createFile(path, text);
      if (gen !== this.generation) return { ok: true, fingerprint: answer.fingerprint };
      this.base = answer.fingerprint;
      this.savedText = text;
      this.disk = null;
      this.emit('saved', { path, text, fingerprint: answer.fingerprint, bytes: answer.bytes });
      this.emit('disk', { disk: null });
      this.setText(this.text);
      this.pull();
      if (!this.dirty) this.queueDraft(() => this.api.deleteDraft(path));
      return { ok: true, fingerprint: answer.fingerprint };
    } catch (e) {
      this.emit('error', { error: e });
      return { ok: false, error: e.message, status: e.status };
    }
  }

  /** The user keeps editing after an outside change; the next save meets it as a conflict. */
  keepEditing() {
    this.disk = null;
    this.emit('disk', { disk: null });
  }

  /** The page moved (renamed here or by its folder); the text and base stay. */
  moved(to) {
    if (this.path === null) return;
    this.path = to;
    this.emit('moved', { path: to });
  }

  /**
   * After a conflict was resolved by choosing a candidate: the page now holds
   * that candidate, with `fingerprint`. Choosing the editor's own bytes keeps
   * any typing done since; any other choice loads the page from disk (an edit
   * the user can undo).
   */
  async adoptResolution({ fingerprint, text, keepEditorText }) {
    this.conflict = null;
    this.disk = null;
    if (!keepEditorText) {
      await this.reload({ discard: true });
      this.emit('resolved', { fingerprint: this.base });
      return;
    }
    this.base = fingerprint;
    this.savedText = text;
    this.emit('resolved', { fingerprint, savedText: text });
    this.setText(this.text);
    this.pull();
    if (this.dirty) this.scheduleDraft();
    else this.cancelDraftTimer();
  }

  /** The conflict was dismissed: the disk version becomes the base, the text stays unsaved. */
  adoptDiskBase(fingerprint) {
    if (fingerprint) this.base = fingerprint;
    this.conflict = null;
    this.disk = null;
    this.emit('resolved', { fingerprint: this.base });
  }
}
