// In the other folder: go back to the first one, with its page.
scenario(async (t) => {
  t.check(VN.folder().endsWith('/sub'), `the other folder is open (${VN.folder()})`);
  t.handOver(VN.folder().replace(/\/sub$/, '/a.html'), 'open-folder-keeps-draft.back');
});
