// The smoke test's look at confinement: a file inside the folder is served,
// one outside it is not, however the path is spelled.
async function smokeConfinement(folder) {
  await window.__vornaBridgeReady;
  const status = async (path) => {
    try {
      return (await fetch('/api/file?path=' + encodeURIComponent(path))).status;
    } catch (e) {
      return -1;
    }
  };
  return JSON.stringify({ inside: await status(folder + '/a.html'),
                          outside: await status('/etc/hosts'),
                          traversal: await status(folder + '/../../../../etc/hosts') });
}
