// An in-memory stand-in for the host's /api: enough of the protocol's
// behaviour (compare-and-swap saves, drafts, conflicts with candidates,
// resolve's disk check) to drive the editor's logic, plus a request log and
// one-shot failure injection.

import { createHash, randomUUID } from 'node:crypto';

export const sha = (text) => createHash('sha256').update(Buffer.from(text, 'utf8')).digest('hex');

function json(status, body, headers = {}) {
  return new Response(JSON.stringify(body), { status, headers: { 'Content-Type': 'application/json', ...headers } });
}
const error = (status, message, extra = {}) => json(status, { ...extra, error: message });

export class FakeHost {
  constructor(root = '/ws', files = {}) {
    this.root = root;
    this.files = new Map(); // path -> text
    this.dirs = new Set([root]);
    this.drafts = []; // {record, discarded}
    this.conflicts = []; // records
    this.payloads = new Map(); // id -> text
    this.checkpoints = new Map(); // path + fp -> text
    this.requests = [];
    this.failures = [];
    this.seq = 0;
    this.gates = [];
    for (const [rel, text] of Object.entries(files)) this.write(`${root}/${rel}`, text);
    this.fetch = (url, init = {}) => this.handle(url, init);
  }

  write(path, text) {
    this.files.set(path, text);
    let dir = path.slice(0, path.lastIndexOf('/'));
    while (dir.length >= this.root.length) {
      this.dirs.add(dir);
      dir = dir.slice(0, dir.lastIndexOf('/'));
    }
  }

  /** The next request matching method and op answers with this error. */
  failNext(method, op, status, message, extra = {}) {
    this.failures.push({ method, op, status, message, extra });
  }

  /** Holds every request matching `op` until the returned release() is called. */
  hold(method, op) {
    let release;
    const gate = { method, op, promise: new Promise((r) => { release = r; }) };
    this.gates.push(gate);
    return () => {
      this.gates = this.gates.filter((g) => g !== gate);
      release();
    };
  }

  retain(text, role) {
    const id = `C${++this.seq}`;
    this.payloads.set(id, text);
    return { id, role, fingerprint: sha(text), byteCount: Buffer.byteLength(text), capturedAt: '2024-05-01T12:00:00Z' };
  }

  log(method, op) {
    return this.requests.filter((r) => r.method === method && r.op === op);
  }

  async handle(url, init) {
    const u = new URL(url, 'vorna://app/');
    const op = u.pathname.slice('/api/'.length);
    const method = (init.method || 'GET').toUpperCase();
    const q = Object.fromEntries(u.searchParams);
    const headers = Object.fromEntries(Object.entries(init.headers || {}).map(([k, v]) => [k.toLowerCase(), v]));
    if (init.body !== undefined && typeof init.body !== 'string') throw new Error('bodies must be strings');
    const body = init.body === undefined ? '' : init.body;
    this.requests.push({ method, op, query: q, headers, body, url });
    const gate = this.gates.find((g) => g.method === method && g.op === op);
    if (gate) await gate.promise;
    const f = this.failures.findIndex((x) => x.method === method && x.op === op);
    if (f >= 0) {
      const [x] = this.failures.splice(f, 1);
      return error(x.status, x.message, x.extra);
    }
    return this.answer(method, op, q, headers, body);
  }

  answer(method, op, q, headers, body) {
    const p = q.path;
    const key = `${method} ${op}`;
    switch (key) {
      case 'GET list': {
        if (!this.dirs.has(p)) return error(404, `not a directory: ${p}`);
        const names = new Map();
        for (const f of this.files.keys()) if (f.startsWith(p + '/') && !f.slice(p.length + 1).includes('/')) names.set(f.slice(p.length + 1), 'file');
        for (const d of this.dirs) if (d.startsWith(p + '/') && !d.slice(p.length + 1).includes('/')) names.set(d.slice(p.length + 1), 'directory');
        const sorted = [...names].sort(([a], [b]) => a.localeCompare(b, undefined, { numeric: true, sensitivity: 'base' }));
        return json(200, sorted.map(([name, kind]) => ({ name, kind })));
      }
      case 'GET stat':
        if (this.dirs.has(p)) return json(200, { kind: 'directory', mtime: 1, mtime_ms: 1000, size: 0 });
        if (!this.files.has(p)) return error(404, `not found: ${p}`);
        return json(200, { kind: 'file', mtime: 1, mtime_ms: 1000, size: Buffer.byteLength(this.files.get(p)), fingerprint: sha(this.files.get(p)) });
      case 'GET file': {
        if (!this.files.has(p)) return error(404, `not found: ${p}`);
        const text = this.files.get(p);
        this.checkpoints.set(p + sha(text), text);
        return new Response(text, { status: 200, headers: { 'Content-Type': 'text/html; charset=utf-8', 'X-VN-Fingerprint': sha(text), 'X-QX-Mtime': '1000' } });
      }
      case 'PUT file': {
        const base = headers['x-vn-base'];
        if (!base) {
          if (this.files.has(p) || this.dirs.has(p)) return error(409, 'exists');
          this.write(p, body);
          return json(200, { ok: true, bytes: Buffer.byteLength(body), fingerprint: sha(body), mtime_ms: 2000 });
        }
        if (!this.files.has(p)) return error(404, `not found: ${p}`);
        const disk = this.files.get(p);
        if (sha(disk) !== base) {
          let c = this.conflicts.find((x) => x.pagePath === p && !x.resolvedAt);
          if (!c) {
            c = { id: randomUUID().toUpperCase(), pagePath: p, candidates: [], openedAt: '2024-05-01T12:00:00Z' };
            this.conflicts.push(c);
          }
          const have = new Set(c.candidates.map((x) => x.fingerprint));
          for (const [text, role] of [[this.checkpoints.get(p + base), 'base'], [body, 'editor'], [disk, 'disk']]) {
            if (text !== undefined && !have.has(sha(text))) {
              c.candidates.push(this.retain(text, role));
              have.add(sha(text));
            }
          }
          return error(409, 'conflict', { kind: 'staleFingerprintPrecheck', fingerprint: sha(disk), conflict: structuredClone(c) });
        }
        this.files.set(p, body);
        this.checkpoints.set(p + sha(body), body);
        return json(200, { ok: true, bytes: Buffer.byteLength(body), fingerprint: sha(body), mtime_ms: 2000 });
      }
      case 'GET drafts': {
        const last = new Map();
        for (const d of this.drafts) if (!d.discarded) last.set(d.record.pagePath, d.record);
        return json(200, [...last.values()]);
      }
      case 'GET draft':
      case 'GET candidate': {
        if (!q.id) return error(400, 'missing id');
        const text = this.payloads.get(q.id);
        if (text === undefined) return error(404, `no ${op}: ${q.id}`);
        return new Response(text, { status: 200, headers: { 'Content-Type': 'application/octet-stream', 'X-VN-Fingerprint': sha(text) } });
      }
      case 'PUT draft': {
        const entry = this.retain(body, 'draft');
        const record = { id: entry.id, pagePath: p, fingerprint: sha(body), byteCount: Buffer.byteLength(body), capturedAt: '2024-05-01T12:00:00Z' };
        if (headers['x-vn-base'] !== undefined) record.baseFingerprint = headers['x-vn-base'];
        this.drafts.push({ record, discarded: false });
        return json(200, record);
      }
      case 'DELETE draft':
        for (const d of this.drafts) if (d.record.pagePath === p) d.discarded = true;
        return json(200, { ok: true });
      case 'GET conflicts':
        return json(200, this.conflicts.filter((c) => !c.resolvedAt));
      case 'POST resolve': {
        for (const k of ['id', 'choose', 'disk']) if (!q[k]) return error(400, `missing ${k}`);
        const c = this.conflicts.find((x) => x.id === q.id && !x.resolvedAt);
        if (!c) return error(404, `no conflict: ${q.id}`);
        const text = this.payloads.get(q.choose);
        if (text === undefined) return error(404, `no candidate: ${q.choose}`);
        if (!this.files.has(c.pagePath) || sha(this.files.get(c.pagePath)) !== q.disk) return error(409, 'stale');
        this.files.set(c.pagePath, text);
        c.resolvedAt = '2024-05-01T12:05:00Z';
        c.chosenCandidateID = q.choose;
        for (const d of this.drafts) if (d.record.pagePath === c.pagePath) d.discarded = true;
        return json(200, { ok: true, fingerprint: sha(text) });
      }
      case 'POST dismiss': {
        let closed = 0;
        for (const c of this.conflicts) {
          if (c.pagePath === p && !c.resolvedAt) {
            c.resolvedAt = '2024-05-01T12:05:00Z';
            closed++;
          }
        }
        return json(200, { ok: true, closed });
      }
      default:
        return error(404, `unknown op: ${method} ${op}`);
    }
  }
}

/** Timers that only move when the test says so. */
export class FakeTimers {
  constructor() {
    this.now = 0;
    this.queue = [];
    this.nextId = 1;
    this.setTimeout = (fn, ms) => {
      const id = this.nextId++;
      this.queue.push({ id, at: this.now + ms, fn });
      return id;
    };
    this.clearTimeout = (id) => {
      this.queue = this.queue.filter((t) => t.id !== id);
    };
  }

  get pending() {
    return this.queue.length;
  }

  /** Moves time forward, running due timers in order, and lets their promises settle. */
  async advance(ms) {
    const until = this.now + ms;
    for (;;) {
      this.queue.sort((a, b) => a.at - b.at || a.id - b.id);
      const next = this.queue[0];
      if (!next || next.at > until) break;
      this.queue.shift();
      this.now = next.at;
      next.fn();
      await settle();
    }
    this.now = until;
    await settle();
  }
}

/** Lets pending promise chains (fetch answers, draft queue) run to completion. */
export async function settle() {
  for (let i = 0; i < 20; i++) await new Promise((r) => setImmediate(r));
}
