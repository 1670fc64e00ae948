// A context menu: arrow keys move, Enter activates, Escape closes and gives
// focus back to where it was.

import { $, h } from './dom.js';

let closeCurrent = null;

export function closeMenu() {
  if (closeCurrent) closeCurrent();
}

/** Shows `items` ({label, action, disabled} or 'separator') at (x, y). */
export function showMenu(items, { x, y, label = 'Actions' }) {
  closeMenu();
  const menu = $('menu');
  const previous = document.activeElement;
  const buttons = [];
  menu.setAttribute('aria-label', label);
  menu.replaceChildren(...items.map((item) => {
    if (item === 'separator') return h('div', { class: 'menu-sep', role: 'separator' });
    const b = h('button', {
      type: 'button', class: 'menu-item', role: 'menuitem', tabindex: '-1', disabled: item.disabled || undefined,
      onclick: () => {
        close(true);
        item.action();
      },
    }, item.label);
    if (!item.disabled) buttons.push(b);
    return b;
  }));
  menu.hidden = false;
  const rect = menu.getBoundingClientRect();
  menu.style.left = `${Math.max(4, Math.min(x, window.innerWidth - rect.width - 4))}px`;
  menu.style.top = `${Math.max(4, Math.min(y, window.innerHeight - rect.height - 4))}px`;

  const onKey = (e) => {
    const i = buttons.indexOf(document.activeElement);
    if (e.key === 'ArrowDown') buttons[(i + 1) % buttons.length]?.focus();
    else if (e.key === 'ArrowUp') buttons[(i - 1 + buttons.length) % buttons.length]?.focus();
    else if (e.key === 'Home') buttons[0]?.focus();
    else if (e.key === 'End') buttons[buttons.length - 1]?.focus();
    else if (e.key === 'Escape' || e.key === 'Tab') close(true);
    else return;
    e.preventDefault();
    e.stopPropagation();
  };
  const onDown = (e) => {
    if (!menu.contains(e.target)) close();
  };
  function close(refocus = false) {
    closeCurrent = null;
    menu.hidden = true;
    menu.replaceChildren();
    menu.removeEventListener('keydown', onKey);
    document.removeEventListener('mousedown', onDown, true);
    window.removeEventListener('blur', onBlur);
    if (refocus && previous && typeof previous.focus === 'function') previous.focus();
  }
  const onBlur = () => close();
  closeCurrent = close;
  menu.addEventListener('keydown', onKey);
  document.addEventListener('mousedown', onDown, true);
  window.addEventListener('blur', onBlur);
  buttons[0]?.focus();
}
