// The host's own rename of a folder reaches the page as no event at all: not
// for the folder, not for what it holds, at either place. A later write by
// another program inside the moved folder is reported.
scenario(async (t) => {
  const seen = [];
  const host = window.vornaHost;
  const emit = host.emit.bind(host);
  host.emit = (change) => {
    seen.push(`${change.kind} ${change.path}`);
    return emit(change);
  };
  const post = async (op, query) => {
    const search = new URLSearchParams(query).toString();
    return (await fetch(`/api/${op}?${search}`, { method: 'POST' })).status;
  };

  t.equal(await post('rename', { path: t.path('sub'), to: t.path('moved/sub') }), 200,
          'the folder is moved into a new folder');
  t.equal(await t.status('moved/sub/deep.html'), 200, 'its page moved with it');
  t.ask('write', 'marker.txt', 'written after the rename');
  await t.waitFor(() => seen.includes(`created ${t.path('marker.txt')}`), 'the marker\'s event');
  t.same(seen, [`created ${t.path('marker.txt')}`], 'no event for the moved folder or anything in it');

  seen.length = 0;
  t.ask('write', 'moved/sub/deep.html', '<p>Written by another program.</p>');
  await t.waitFor(() => seen.length > 0, 'the outside write\'s event');
  t.same(seen, [`modified ${t.path('moved/sub/deep.html')}`], 'a later outside write inside it is reported');
});
