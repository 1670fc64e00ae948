// Banners above the editor: one per topic (the disk changed, a draft was
// found, …); showing a topic again replaces its banner.

import { $, h } from './dom.js';

export function showBanner(id, { tone = 'info', message, actions = [] }) {
  const host = $('banners');
  const banner = h('div', { class: `banner banner-${tone}`, role: tone === 'info' ? 'status' : 'alert', 'data-id': id },
    h('span', { class: 'banner-text' }, message),
    actions.map((a) => h('button', {
      type: 'button', class: `btn btn-small${a.primary ? ' btn-primary' : ''}`, onclick: a.run,
    }, a.label)));
  const old = host.querySelector(`[data-id="${id}"]`);
  if (old) old.replaceWith(banner);
  else host.append(banner);
  return banner;
}

export function hideBanner(id) {
  const old = $('banners').querySelector(`[data-id="${id}"]`);
  if (old) old.remove();
}

export function clearBanners() {
  $('banners').replaceChildren();
}
