// Small DOM helpers shared by the views.

/** Creates an element: h('button', {class: 'btn', onclick}, 'Label'). */
export function h(tag, attrs = {}, ...children) {
  const el = document.createElement(tag);
  for (const [key, value] of Object.entries(attrs || {})) {
    if (value === undefined || value === null || value === false) continue;
    if (key.startsWith('on') && typeof value === 'function') el.addEventListener(key.slice(2), value);
    else if (key === 'class') el.className = value;
    else if (key === 'text') el.textContent = value;
    else if (value === true) el.setAttribute(key, '');
    else el.setAttribute(key, String(value));
  }
  for (const child of children.flat()) {
    if (child === null || child === undefined || child === false) continue;
    el.append(child instanceof Node ? child : document.createTextNode(String(child)));
  }
  return el;
}

export function $(id) {
  return document.getElementById(id);
}

const SVG_NS = 'http://www.w3.org/2000/svg';

/** An inline icon from path data, drawn with the current colour. */
export function icon(paths, { fill = 'none', className = '' } = {}) {
  const svg = document.createElementNS(SVG_NS, 'svg');
  svg.setAttribute('viewBox', '0 0 16 16');
  svg.setAttribute('aria-hidden', 'true');
  if (className) svg.setAttribute('class', className);
  for (const d of paths) {
    const p = document.createElementNS(SVG_NS, 'path');
    p.setAttribute('d', d);
    p.setAttribute('fill', fill);
    p.setAttribute('stroke', 'currentColor');
    svg.append(p);
  }
  return svg;
}

let dateTime = null; // made once: a formatter costs far more than a format

export function formatTime(iso) {
  const d = new Date(iso);
  if (Number.isNaN(d.getTime())) return String(iso || '');
  dateTime = dateTime || new Intl.DateTimeFormat(undefined, { dateStyle: 'medium', timeStyle: 'short' });
  return dateTime.format(d);
}

export function shortFingerprint(fp) {
  return fp ? fp.slice(0, 8) : '—';
}
