// Blob bodies sent from an about:srcdoc frame to relative /api URLs, by fetch
// and by XMLHttpRequest (the engine crashes the host when it is handed such a
// body, and sends an XMLHttpRequest's as nothing at all): the host lives on,
// and the page holds exactly the bytes sent. A form posted from the frame
// carries a body no guard has seen: it is refused unread.
scenario(async (t) => {
  const frame = document.createElement('iframe');
  frame.srcdoc = '<p>A frame of the editor.</p>';
  await new Promise((resolve) => {
    frame.onload = resolve;
    document.body.appendChild(frame);
  });
  const w = frame.contentWindow;
  t.equal(w.location.href, 'about:srcdoc', 'the frame is an about:srcdoc document');
  const url = `/api/file?path=${encodeURIComponent(t.path('index.html'))}`;
  const base = async () => (await t.read('index.html')).fingerprint;

  const byFetch = '<!DOCTYPE html><p>Sent by fetch from the frame.</p>';
  const fetched = await w.fetch(url, {
    method: 'PUT',
    headers: { 'X-VN-Base': await base() },
    body: new w.Blob([byFetch], { type: 'text/html' }),
  });
  t.equal(fetched.status, 200, 'a Blob sent by fetch is saved');
  t.equal((await t.read('index.html')).text, byFetch, 'the page holds the bytes sent by fetch');

  const byXhr = '<!DOCTYPE html><p>Sent by XMLHttpRequest from the frame.</p>';
  const sentBase = await base();
  const xhrStatus = await new Promise((resolve) => {
    const request = new w.XMLHttpRequest();
    request.open('PUT', url);
    request.setRequestHeader('X-VN-Base', sentBase);
    request.onload = () => resolve(request.status);
    request.onerror = () => resolve(-1);
    request.send(new w.Blob([byXhr]));
  });
  t.equal(xhrStatus, 200, 'a Blob sent by XMLHttpRequest is saved');
  t.equal((await t.read('index.html')).text, byXhr, 'the page holds the bytes sent by XMLHttpRequest');

  const byFile = '<!DOCTYPE html><p>A File, to a protocol-relative URL.</p>';
  const filed = await w.fetch(`//app${url}`, {
    method: 'PUT',
    headers: { 'X-VN-Base': await base() },
    body: new w.File([byFile], 'index.html', { type: 'text/html' }),
  });
  t.equal(filed.status, 200, 'a File sent to a protocol-relative URL is saved');
  t.equal((await t.read('index.html')).text, byFile, 'the page holds the bytes of the File');

  const form = w.document.createElement('form');
  form.method = 'POST';
  form.action = `/api/rename?path=${encodeURIComponent(t.path('index.html'))}&to=${encodeURIComponent(t.path('taken.html'))}`;
  form.innerHTML = '<input name="field" value="a form field">';
  w.document.body.appendChild(form);
  await new Promise((resolve) => {
    frame.onload = resolve;
    form.submit();
  });
  const answer = frame.contentDocument ? frame.contentDocument.body.textContent : '';
  t.check(answer.includes('request body refused'), `the form's body is refused (${answer})`);
  t.equal((await t.read('index.html')).text, byFile, 'the refused form changed nothing');
  t.equal(await t.status('taken.html'), 404, 'the refused form renamed nothing');
});
