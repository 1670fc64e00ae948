// The smoke test's look at the bridge: a listing, and a write the smoke bridge
// echoes without writing.
async function smokeBridge(folder, bytes) {
  await window.__vornaBridgeReady;
  const out = { list_status: 0, list_names: [], put_echo_bytes: -1, bridge_path: 'scheme' };
  try {
    const answer = await fetch('/api/list?path=' + encodeURIComponent(folder));
    out.list_status = answer.status;
    const entries = await answer.json();
    out.list_names = Array.isArray(entries) ? entries.map((entry) => entry && entry.name) : [];
  } catch (e) {
    out.list_status = -1;
    out.list_names = [];
  }
  try {
    const answer = await fetch('/api/file?path=' + encodeURIComponent(folder + '/big.html'),
                               { method: 'PUT', body: 'x'.repeat(bytes) });
    const echo = await answer.json();
    out.put_echo_bytes = echo && typeof echo.bytes === 'number' ? echo.bytes : -1;
  } catch (e) {
    out.put_echo_bytes = -1;
  }
  out.bridge_path = window.__vornaBridgeMode || 'scheme';
  return JSON.stringify(out);
}
