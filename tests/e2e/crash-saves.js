// Saves the fixture's pages in a loop, alternating the fingerprint the page was
// read with and one that names no version, until the host is killed under it.
// Every answered save is announced as "E2E saved {status} {page} {text}" so the
// crash campaign knows which bodies the host took on.
scenario(async (t) => {
  const pages = ['a.html', 'index.html', 'sub/deep.html'];
  const stale = '0'.repeat(64);
  for (let i = 0; ; i++) {
    const page = pages[i % pages.length];
    const url = `/api/file?path=${encodeURIComponent(t.path(page))}`;
    const read = await fetch(url, { cache: 'no-store' });
    const fresh = read.headers.get('X-VN-Fingerprint') || stale;
    const text = `<!doctype html><p>editor ${Date.now()}-${i}-${Math.random().toString(36).slice(2)}</p>`;
    const answer = await fetch(url, {
      method: 'PUT',
      headers: { 'X-VN-Base': i % 2 === 0 ? fresh : stale },
      body: text,
    });
    t.ask('saved', String(answer.status), page, text);
  }
});
