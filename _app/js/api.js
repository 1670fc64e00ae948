// Client of the host's /api protocol. Every call is a relative fetch('/api/…'):
// the host's injected shim decides which transport carries it, so nothing here
// knows about schemes or message handlers.
//
// Bodies are always strings. A Blob body would reach the host as no bytes at
// all (or worse), so pages and drafts are never wrapped in one.

export class ApiError extends Error {
  constructor(status, message, body = null) {
    super(message);
    this.name = 'ApiError';
    this.status = status;
    this.body = body;
  }

  /** 503 "no workspace open": the host has no folder, which is a state, not a fault. */
  get noWorkspace() {
    return this.status === 503;
  }

  /** The 409 answer of a save whose base was stale. */
  get isConflict() {
    return this.status === 409 && this.body !== null && this.body.error === 'conflict';
  }
}

function query(params) {
  const items = Object.entries(params).filter(([, v]) => v !== undefined && v !== null);
  if (items.length === 0) return '';
  // encodeURIComponent, not URLSearchParams: a "+" must not stand for a space.
  return '?' + items.map(([k, v]) => `${k}=${encodeURIComponent(String(v))}`).join('&');
}

async function errorOf(res, method, op) {
  let body = null;
  try {
    body = JSON.parse(await res.text());
  } catch {
    body = null;
  }
  const text = body && typeof body.error === 'string' ? body.error : `${method} ${op} failed with status ${res.status}`;
  return new ApiError(res.status, text, body && typeof body === 'object' ? body : null);
}

export function createApi(fetchImpl = (...args) => globalThis.fetch(...args)) {
  // ignoreBOM keeps a byte-order mark in the text, so saving writes it back.
  const decoder = new TextDecoder('utf-8', { ignoreBOM: true });

  async function request(method, op, params = {}, { body, headers } = {}) {
    const url = `/api/${op}${query(params)}`;
    let res;
    try {
      res = await fetchImpl(url, { method, body, headers, cache: 'no-store' });
    } catch (e) {
      throw new ApiError(0, `the host did not answer ${method} ${op}: ${e && e.message ? e.message : e}`);
    }
    if (!res.ok) throw await errorOf(res, method, op);
    return res;
  }

  const json = async (...args) => (await request(...args)).json();

  async function bytesOf(res) {
    return {
      bytes: new Uint8Array(await res.arrayBuffer()),
      fingerprint: res.headers.get('X-VN-Fingerprint'),
      mtimeMs: Number(res.headers.get('X-QX-Mtime')) || null,
    };
  }

  async function bytesAsText(res) {
    return {
      text: decoder.decode(await res.arrayBuffer()),
      fingerprint: res.headers.get('X-VN-Fingerprint'),
      mtimeMs: Number(res.headers.get('X-QX-Mtime')) || null,
    };
  }

  return {
    list: (path) => json('GET', 'list', { path }),
    stat: (path) => json('GET', 'stat', { path }),
    /** The file's bytes, not text: the editor decodes pages itself (page-text.js). */
    readFile: async (path) => bytesOf(await request('GET', 'file', { path })),
    readText: async (path) => bytesAsText(await request('GET', 'file', { path })),
    /** Compare-and-swap save; a stale base rejects with an ApiError whose isConflict is true. */
    saveFile: (path, text, base) => {
      if (!base) return Promise.reject(new ApiError(0, 'cannot save without the fingerprint of the loaded version'));
      return json('PUT', 'file', { path }, { body: text, headers: { 'X-VN-Base': base } });
    },
    /** Creates a file; 409 "exists" when anything is already there. */
    createFile: (path, text = '') => json('PUT', 'file', { path }, { body: text }),
    mkdir: (path) => json('POST', 'mkdir', { path }),
    rename: (path, to) => json('POST', 'rename', { path, to }),
    trash: (path) => json('DELETE', 'file', { path }),
    drafts: () => json('GET', 'drafts'),
    draftText: async (id) => bytesAsText(await request('GET', 'draft', { id })),
    draftBytes: async (id) => bytesOf(await request('GET', 'draft', { id })),
    putDraft: (path, text, base) =>
      json('PUT', 'draft', { path }, { body: text, headers: base != null ? { 'X-VN-Base': base } : undefined }),
    deleteDraft: (path) => json('DELETE', 'draft', { path }),
    conflicts: () => json('GET', 'conflicts'),
    candidateText: async (id) => bytesAsText(await request('GET', 'candidate', { id })),
    resolve: (id, choose, disk) => json('POST', 'resolve', { id, choose, disk }),
    dismiss: (path) => json('POST', 'dismiss', { path }),
    /** The page's retained versions, newest first; also of a page that is gone. */
    history: (path) => json('GET', 'history', { path }),
    versionBytes: async (id) => bytesOf(await request('GET', 'version', { id })),
    /** Pages under `folder` that no longer exist but have retained versions. */
    deleted: (folder) => json('GET', 'deleted', { path: folder }),
    reveal: (path) => json('POST', 'reveal', { path }),
    open: (path) => json('POST', 'open', { path }),
  };
}
