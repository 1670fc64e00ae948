// Conflicts: the host keeps, for each failed save, the base, editor and disk
// versions of the page. This module loads them for the panel and carries out
// the user's choice. Resolving writes the chosen candidate only if the page on
// disk is still the version the user was shown ("disk"); when it moved on, the
// view is refreshed and the user chooses again.

import { ApiError } from './api.js';
import { samePath } from './paths.js';

export const ROLE_LABELS = { base: 'Base', editor: 'Mine', disk: 'Disk', current: 'Disk now' };

/** The candidate of each role that the panel puts in its three columns: the latest of each. */
export function pickColumns(candidates) {
  const byRole = { base: null, editor: null, disk: null };
  for (const c of candidates || []) if (c && c.role in byRole) byRole[c.role] = c;
  return byRole;
}

export class ConflictDesk {
  constructor({ api }) {
    this.api = api;
    this.open = [];
  }

  /** Re-reads the list of open conflicts. */
  async refresh() {
    const list = await this.api.conflicts();
    this.open = Array.isArray(list) ? list : [];
    return this.open;
  }

  forPage(path) {
    return this.open.filter((c) => samePath(c.pagePath, path));
  }

  /**
   * Loads everything the panel shows for one conflict: the text of each
   * candidate and the fingerprint of the page on disk now. `diskFingerprint`
   * is the one a 409 answer reported, when there is one.
   */
  async load(conflict, { diskFingerprint = null } = {}) {
    const candidates = await Promise.all(
      (conflict.candidates || []).map(async (c) => {
        try {
          const { text } = await this.api.candidateText(c.id);
          return { ...c, text, missing: false };
        } catch (e) {
          return { ...c, text: '', missing: true, error: e.message };
        }
      }),
    );
    const view = { conflict, candidates, disk: { fingerprint: diskFingerprint, exists: true }, current: null };
    if (!diskFingerprint) await this.lookAtDisk(view);
    else this.noteCurrent(view, null);
    return view;
  }

  /** Reads the page's state on disk into the view. */
  async lookAtDisk(view) {
    const path = view.conflict.pagePath;
    try {
      const stat = await this.api.stat(path);
      view.disk = { fingerprint: stat.fingerprint || null, exists: true };
    } catch (e) {
      if (e.status !== 404) throw e;
      view.disk = { fingerprint: null, exists: false };
    }
    let text = null;
    if (view.disk.exists && !view.candidates.some((c) => c.fingerprint === view.disk.fingerprint)) {
      try {
        const file = await this.api.readText(path);
        view.disk.fingerprint = file.fingerprint;
        text = file.text;
      } catch {
        text = null;
      }
    }
    this.noteCurrent(view, text);
    return view;
  }

  // When the disk holds none of the candidates, what it holds now is shown
  // as a fourth version: the user must see what "resolve" would replace.
  noteCurrent(view, text) {
    const known = view.candidates.some((c) => c.fingerprint === view.disk.fingerprint);
    view.current =
      view.disk.exists && view.disk.fingerprint && !known && text !== null
        ? { id: null, role: 'current', fingerprint: view.disk.fingerprint, text }
        : null;
  }

  /**
   * Writes candidate `id` as the page. Resolves to {fingerprint, candidate}.
   * A stale disk refreshes the view and rejects with status 409.
   */
  async choose(view, id) {
    const candidate = view.candidates.find((c) => c.id === id);
    if (!candidate) throw new ApiError(0, `no candidate ${id} in this conflict`);
    if (!view.disk.exists) throw new ApiError(409, 'the page no longer exists on disk; dismiss the conflict or recreate the page');
    if (!view.disk.fingerprint) await this.lookAtDisk(view);
    try {
      const answer = await this.api.resolve(view.conflict.id, id, view.disk.fingerprint);
      this.open = this.open.filter((c) => c.id !== view.conflict.id);
      return { fingerprint: answer.fingerprint, candidate, warnings: [answer.resolve_error, answer.draft_error].filter(Boolean) };
    } catch (e) {
      if (e.status === 409) await this.lookAtDisk(view);
      throw e;
    }
  }

  /** Closes every conflict of the view's page without writing it. */
  async dismiss(view) {
    const answer = await this.api.dismiss(view.conflict.pagePath);
    this.open = this.open.filter((c) => !samePath(c.pagePath, view.conflict.pagePath));
    return answer;
  }
}
