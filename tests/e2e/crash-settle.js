// Runs after a killed host is started again: opening the workspace has swept
// the swap files into the store by the time any request is answered.
scenario(async (t) => {
  t.check((await t.read('a.html')).status === 200, 'the restarted host answers');
});
