// After SIGTERM: the host holds a draft with the typed text, and it is offered.
scenario(async (t) => {
  const draft = (await VN.api.drafts()).find((d) => d.pagePath === t.path('a.html'));
  t.check(draft, 'the host holds a draft of a.html');
  if (!draft) return;
  t.check((await VN.api.draftText(draft.id)).text.includes('Typed just before SIGTERM.'), 'the draft holds the typed text');
  await t.open('a.html');
  await t.waitFor(() => VN.draftOffer() && t.banner('draft'), 'the draft to be offered');
});
