// The folder tree: a model of what has been listed so far (folders are listed
// lazily, when first expanded) and a controller that keeps it in step with the
// host's listings and change events.
//
// A folder's listing from the host is the truth for that folder: applying it
// replaces the folder's children, keeping the state (expanded, listed
// children) of entries that are still there.

import { basename, dirname, isWithin, join, naturalCompare, normalize, rebase } from './paths.js';

export class TreeModel {
  constructor(root) {
    this.root = normalize(root);
    this.nodes = new Map();
    this.nodes.set(this.root, { path: this.root, name: basename(this.root) || this.root, kind: 'directory', children: null, expanded: true });
    // Counts every change of what a view shows; views and caches compare it.
    this.version = 0;
    this.listed = null;
  }

  changed() {
    this.version++;
    this.listed = null;
  }

  /** Expands or collapses a folder. */
  setExpanded(node, expanded) {
    if (node.expanded === expanded) return;
    node.expanded = expanded;
    this.version++;
  }

  get(path) {
    return this.nodes.get(normalize(path)) || null;
  }

  isListed(dir) {
    const node = this.get(dir);
    return Boolean(node && node.children);
  }

  /** Applies the host's listing (an array of {name, kind}) of `dir`. */
  setListing(dir, entries) {
    const node = this.get(dir);
    if (!node || node.kind !== 'directory') return false;
    const keep = new Set();
    const children = [];
    for (const entry of entries) {
      if (!entry || typeof entry.name !== 'string') continue;
      const path = join(node.path, entry.name);
      const kind = entry.kind === 'directory' ? 'directory' : 'file';
      const old = this.nodes.get(path);
      if (old && old.kind !== kind) this.removeSubtree(path);
      if (!this.nodes.has(path)) this.nodes.set(path, { path, name: entry.name, kind, children: null, expanded: false });
      keep.add(path);
      children.push(path);
    }
    for (const child of node.children || []) if (!keep.has(child)) this.removeSubtree(child);
    node.children = children;
    this.changed();
    return true;
  }

  removeSubtree(path) {
    const node = this.nodes.get(path);
    if (!node) return;
    for (const child of node.children || []) this.removeSubtree(child);
    this.nodes.delete(path);
  }

  /** Removes an entry (and everything below it) from the tree. */
  remove(path) {
    const p = normalize(path);
    if (p === this.root || !this.nodes.has(p)) return false;
    const parent = this.nodes.get(dirname(p));
    if (parent && parent.children) parent.children = parent.children.filter((c) => c !== p);
    this.removeSubtree(p);
    this.changed();
    return true;
  }

  /** Adds an entry to a listed folder, in the host's order. */
  insert(path, kind) {
    const p = normalize(path);
    const parent = this.nodes.get(dirname(p));
    if (!parent || !parent.children || this.nodes.has(p) || p === this.root) return false;
    const name = basename(p);
    this.nodes.set(p, { path: p, name, kind, children: null, expanded: false });
    const children = parent.children;
    let at = children.findIndex((c) => naturalCompare(this.nodes.get(c).name, name) > 0);
    if (at < 0) at = children.length;
    children.splice(at, 0, p);
    this.changed();
    return true;
  }

  /** Moves an entry and its listed subtree after a rename done by the editor itself. */
  move(from, to) {
    const src = normalize(from);
    const dst = normalize(to);
    const node = this.nodes.get(src);
    if (!node) return false;
    const moved = [...this.nodes.values()].filter((n) => isWithin(n.path, src));
    this.remove(src);
    const top = { ...node, path: dst, name: basename(dst) };
    if (!this.insert(dst, node.kind)) return false;
    this.nodes.set(dst, top);
    for (const n of moved) {
      if (n.path === src) continue;
      const path = rebase(n.path, src, dst);
      this.nodes.set(path, { ...n, path, children: n.children && n.children.map((c) => rebase(c, src, dst)) });
    }
    if (top.children) top.children = top.children.map((c) => rebase(c, src, dst));
    this.changed();
    return true;
  }

  /** Number of entries listed so far (the root not counted). */
  count() {
    return this.nodes.size - 1;
  }

  /** Every listed entry as {name, kind, path}, parents before children (kept until the tree changes). */
  entries() {
    if (!this.listed) this.listed = this.rows({ all: true }).map(({ node }) => ({ name: node.name, kind: node.kind, path: node.path }));
    return this.listed;
  }

  /** The rows a view shows: expanded folders' children, depth-first. */
  rows({ all = false } = {}) {
    const out = [];
    const walk = (dir, depth) => {
      for (const path of dir.children || []) {
        const node = this.nodes.get(path);
        if (!node) continue;
        out.push({ node, depth });
        if (node.kind === 'directory' && (all || node.expanded)) walk(node, depth + 1);
      }
    };
    walk(this.nodes.get(this.root), 0);
    return out;
  }
}

const REFRESH_DELAY_MS = 120;

const realTimers = {
  setTimeout: (fn, ms) => globalThis.setTimeout(fn, ms),
  clearTimeout: (id) => globalThis.clearTimeout(id),
};

export class TreeController {
  constructor({ api, root, timers = realTimers, onChange = () => {} }) {
    this.api = api;
    this.model = new TreeModel(root);
    this.timers = timers;
    this.onChange = onChange;
    this.pending = new Set();
    this.timer = null;
  }

  get root() {
    return this.model.root;
  }

  /** Lists a folder and applies the answer. Rejects with the host's error. */
  async list(dir) {
    const entries = await this.api.list(normalize(dir));
    if (!Array.isArray(entries)) return false;
    const applied = this.model.setListing(dir, entries);
    if (applied) this.onChange({ dir: normalize(dir) });
    return applied;
  }

  async toggle(dir, expanded = undefined) {
    const node = this.model.get(dir);
    if (!node || node.kind !== 'directory') return;
    this.model.setExpanded(node, expanded === undefined ? !node.expanded : expanded);
    if (node.expanded && !node.children) await this.list(dir);
    else this.onChange({ dir: node.path });
  }

  /**
   * A change event from the host. Removals are applied at once; anything that
   * may have added an entry relists the parent folder (which also says whether
   * the entry is a folder), coalesced so a burst of events costs one listing
   * per folder.
   */
  handleChange(change) {
    if (!change || typeof change.path !== 'string' || !isWithin(change.path, this.root)) return;
    const path = normalize(change.path);
    if (path === this.root) return;
    if (change.kind === 'removed') {
      if (this.model.remove(path)) this.onChange({ dir: dirname(path) });
      return;
    }
    const parent = dirname(path);
    if (!this.model.isListed(parent)) return;
    if (change.kind === 'modified' && this.model.get(path)) return;
    this.scheduleRefresh(parent);
  }

  scheduleRefresh(dir) {
    this.pending.add(normalize(dir));
    if (this.timer !== null) return;
    this.timer = this.timers.setTimeout(() => {
      this.timer = null;
      this.flush();
    }, REFRESH_DELAY_MS);
  }

  async flush() {
    const dirs = [...this.pending];
    this.pending.clear();
    for (const dir of dirs) {
      if (!this.model.isListed(dir)) continue;
      try {
        await this.list(dir);
      } catch (e) {
        // A folder that vanished meanwhile leaves the tree with it.
        if (e && e.status === 404) {
          if (this.model.remove(dir)) this.onChange({ dir: dirname(dir) });
        } else this.onChange({ dir, error: e });
      }
    }
  }
}
