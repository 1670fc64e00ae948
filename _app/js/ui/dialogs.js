// Modal prompt and choice dialogs. The host answers no page dialogs besides
// alert, so window.prompt and window.confirm are never used.

import { $, h } from './dom.js';

function run(title, build) {
  const dialog = $('modal');
  dialog.setAttribute('aria-label', title);
  const previous = document.activeElement;
  return new Promise((resolve) => {
    let settled = false;
    const finish = (value) => {
      if (settled) return;
      settled = true;
      if (dialog.open) dialog.close();
      dialog.replaceChildren();
      if (previous && typeof previous.focus === 'function') previous.focus();
      resolve(value);
    };
    dialog.replaceChildren(build(finish));
    dialog.addEventListener('cancel', (e) => {
      e.preventDefault();
      finish(null);
    }, { once: true });
    dialog.showModal();
    const first = dialog.querySelector('[autofocus]') || dialog.querySelector('input, button');
    if (first) first.focus();
  });
}

/**
 * Asks for a name. `validate(value)` returns an error text or null; the
 * dialog stays open until the value passes. Resolves to the value or null.
 */
export function promptDialog({ title, label, value = '', okLabel = 'OK', validate = () => null, selectStem = false }) {
  return run(title, (finish) => {
    const input = h('input', { type: 'text', id: 'modal-input', value, autofocus: true, spellcheck: 'false' });
    const error = h('p', { class: 'modal-error', role: 'alert' });
    const form = h('form', { method: 'dialog' },
      h('h2', { text: title }),
      h('label', { for: 'modal-input', text: label }),
      input,
      error,
      h('div', { class: 'modal-actions' },
        h('button', { type: 'button', class: 'btn', onclick: () => finish(null) }, 'Cancel'),
        h('button', { type: 'submit', class: 'btn btn-primary' }, okLabel)));
    form.addEventListener('submit', (e) => {
      e.preventDefault();
      const v = input.value.trim();
      const problem = validate(v);
      if (problem) {
        error.textContent = problem;
        input.focus();
        return;
      }
      finish(v);
    });
    queueMicrotask(() => {
      input.focus();
      const dot = input.value.lastIndexOf('.');
      if (selectStem && dot > 0) input.setSelectionRange(0, dot);
      else input.select();
    });
    return form;
  });
}

/**
 * Offers a choice. `buttons` are {label, value, primary, danger}; Escape
 * resolves to null.
 */
export function choiceDialog({ title, message, buttons }) {
  return run(title, (finish) => {
    const actions = buttons.map((b) =>
      h('button', {
        type: 'button',
        class: `btn${b.primary ? ' btn-primary' : ''}${b.danger ? ' btn-danger' : ''}`,
        autofocus: b.primary || undefined,
        onclick: () => finish(b.value),
      }, b.label));
    return h('form', { method: 'dialog', onsubmit: (e) => e.preventDefault() },
      h('h2', { text: title }),
      message ? h('p', { text: message }) : null,
      h('div', { class: 'modal-actions' }, actions));
  });
}

/** A name for a new or renamed entry: no separators, not empty, not hidden. */
export function checkName(name) {
  if (!name) return 'Enter a name.';
  if (name.includes('/')) return 'A name cannot contain "/".';
  if (name === '.' || name === '..') return 'That name is reserved.';
  if (name.startsWith('.')) return 'Names starting with "." are hidden and not shown in the sidebar.';
  return null;
}
