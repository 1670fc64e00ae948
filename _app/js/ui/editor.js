// The source editor: CodeMirror 6 with highlighting for the file's language,
// find and replace, go to line, bracket matching, closing tags, folding and a
// line-wrap toggle. One editor state per open file, so undo reaches back to
// the file's opening; replacing the text (reload, restore, a script's
// setText) is one more undoable edit.
//
// The document holds the text with "\n" line breaks; the page's own endings
// and byte-order mark live beside it (page-text.js) and come back in
// `encoded()`, the text a save writes.

import { basicSetup } from 'codemirror';
import { indentWithTab, invertedEffects, redo, selectAll, undo, deleteCharForward } from '@codemirror/commands';
import { css } from '@codemirror/lang-css';
import { html } from '@codemirror/lang-html';
import { javascript } from '@codemirror/lang-javascript';
import { markdown } from '@codemirror/lang-markdown';
import { gotoLine, openSearchPanel } from '@codemirror/search';
import { Compartment, EditorState, RangeSet, Text } from '@codemirror/state';
import { defaultHighlightStyle, syntaxHighlighting } from '@codemirror/language';
import { EditorView, highlightSpecialChars, keymap, lineNumbers } from '@codemirror/view';
import { extname } from '../paths.js';
import { changeTo, encodeState, endingLabel, pageFormat, readText, setPageFormat } from '../page-text.js';

const LANGUAGE_OF = {
  html, htm: html, xhtml: html, svg: html, xml: html,
  css,
  js: javascript, mjs: javascript, cjs: javascript, json: javascript,
  md: markdown, markdown,
};

// Each language's support is made once: making HTML's (with the CSS and
// JavaScript inside it) costs more than showing a small page.
const languages = new Map();
function languageFor(ext) {
  const make = LANGUAGE_OF[ext];
  if (!make) return [];
  if (!languages.has(make)) languages.set(make, make());
  return languages.get(make);
}

const theme = EditorView.theme({
  '&': { height: '100%', fontSize: '12.5px', backgroundColor: 'var(--panel)' },
  '.cm-scroller': { fontFamily: 'var(--mono)', lineHeight: 'var(--line-height)' },
  '.cm-gutters': { backgroundColor: '#fafbfc', borderRight: '1px solid #eceef2', color: '#a0a7b4' },
  '.cm-activeLine': { backgroundColor: '#f5f8ff' },
  '.cm-activeLineGutter': { backgroundColor: '#eef2fb' },
  '&.cm-focused': { outline: 'none' },
  '.cm-panels': { backgroundColor: '#fafbfc', borderColor: 'var(--line)' },
});

// Undoing a replacement of the whole text brings back the format it had.
const formatHistory = invertedEffects.of((tr) => {
  const out = [];
  for (const effect of tr.effects) if (effect.is(setPageFormat)) out.push(setPageFormat.of(tr.startState.field(pageFormat)));
  return out;
});

function sameFormat(a, b) {
  return a.eol === b.eol && a.bom === b.bom && RangeSet.eq([a.odd], [b.odd]);
}

/** A read-only view of a page at `path` (a version in the history): its language, this editor's look. */
export function viewerExtensions(path) {
  return [
    lineNumbers(),
    highlightSpecialChars(),
    syntaxHighlighting(defaultHighlightStyle, { fallback: true }),
    languageFor(extname(path)),
    EditorState.readOnly.of(true),
    EditorView.editable.of(false),
    theme,
  ];
}

export class SourceEditor {
  /**
   * `onEdit(dirty)` after every change of the text; `onCursor()` when the
   * selection moved; `onWrap(on)` when line wrapping was switched.
   */
  constructor(parent, { onEdit, onCursor = () => {}, onWrap = () => {} }) {
    this.onEdit = onEdit;
    this.onCursor = onCursor;
    this.onWrap = onWrap;
    this.language = new Compartment();
    this.readOnly = new Compartment();
    this.wrap = new Compartment();
    this.wrapping = false;
    this.saved = null; // {doc, format} of the text on disk, when the editor holds it
    this.pulled = null; // {text, doc, format} of the last encoded()
    this.view = new EditorView({ parent, state: this.createState(Text.empty) });
  }

  createState(doc, { ext = '', readOnly = false, format = null } = {}) {
    return EditorState.create({
      doc,
      extensions: [
        basicSetup,
        keymap.of([indentWithTab, { key: 'Alt-z', run: () => this.toggleWrap() }]),
        this.language.of(languageFor(ext)),
        this.readOnly.of(EditorState.readOnly.of(readOnly)),
        this.wrap.of(this.wrapping ? EditorView.lineWrapping : []),
        format ? pageFormat.init(() => format) : pageFormat,
        formatHistory,
        theme,
        EditorView.updateListener.of((update) => this.updated(update)),
      ],
    });
  }

  updated(update) {
    const formatChanged = update.transactions.some((tr) => tr.effects.some((e) => e.is(setPageFormat)));
    if (update.docChanged || formatChanged) this.onEdit(!this.isClean());
    if (update.docChanged || update.selectionSet) this.onCursor();
  }

  get state() {
    return this.view.state;
  }

  /** Shows a page (from decodePage); starts a fresh undo history. */
  load(page, path, { readOnly = false } = {}) {
    const format = { eol: page.eol, bom: page.bom, odd: page.odd };
    const state = this.createState(page.text, { ext: extname(path), readOnly, format });
    this.view.setState(state);
    this.saved = { doc: state.doc, format: state.field(pageFormat) };
    this.pulled = null;
    this.onCursor();
  }

  /**
   * Replaces the text with `page` as one undoable edit. With `saved`, the new
   * text is also what the disk holds now.
   */
  replace(page, { saved = false, userEvent = 'input.replace' } = {}) {
    const format = { eol: page.eol, bom: page.bom, odd: page.odd };
    this.view.dispatch({
      changes: changeTo(this.state.doc, page.text),
      effects: setPageFormat.of(format),
      userEvent,
    });
    if (saved) this.saved = { doc: this.state.doc, format };
    this.onEdit(!this.isClean());
  }

  /** Text given by a script, in the page's own form (endings per line, a leading BOM). */
  setText(text) {
    this.replace(readText(text, this.state.field(pageFormat).eol), { userEvent: 'input.script' });
  }

  /** The text with "\n" line breaks (what the preview shows). */
  text() {
    return this.state.doc.toString();
  }

  get length() {
    return this.state.doc.length;
  }

  /** The text as a save writes it. */
  encoded() {
    const { state } = this;
    if (this.pulled && this.pulled.doc === state.doc && this.pulled.format === state.field(pageFormat)) return this.pulled.text;
    const text = encodeState(state);
    this.pulled = { text, doc: state.doc, format: state.field(pageFormat) };
    return text;
  }

  /** The disk now holds `text` (a save went through). */
  markSaved(text) {
    if (this.pulled && this.pulled.text === text) this.saved = { doc: this.pulled.doc, format: this.pulled.format };
    else {
      const read = readText(text, this.state.field(pageFormat).eol);
      this.saved = { doc: Text.of(read.text.split('\n')), format: { eol: read.eol, bom: read.bom, odd: read.odd } };
    }
    this.onEdit(!this.isClean());
  }

  /** After "Convert to UTF-8": the text no longer equals the bytes on disk. */
  forgetSaved() {
    this.saved = null;
  }

  isClean() {
    const { saved, state } = this;
    return Boolean(saved) && state.doc.eq(saved.doc) && sameFormat(state.field(pageFormat), saved.format);
  }

  setReadOnly(on) {
    this.view.dispatch({ effects: this.readOnly.reconfigure(EditorState.readOnly.of(on)) });
  }

  get isReadOnly() {
    return this.state.readOnly;
  }

  toggleWrap(on = !this.wrapping) {
    this.wrapping = on;
    this.view.dispatch({ effects: this.wrap.reconfigure(on ? EditorView.lineWrapping : []) });
    this.onWrap(on);
    return true;
  }

  focus() {
    this.view.focus();
  }

  get hasFocus() {
    return this.view.hasFocus;
  }

  /** Selects [from, to) of the document (offsets into text()) and shows it. */
  select(from, to = from) {
    const len = this.state.doc.length;
    const clamp = (n) => Math.max(0, Math.min(len, n));
    this.view.focus();
    this.view.dispatch({ selection: { anchor: clamp(from), head: clamp(to) }, scrollIntoView: true });
  }

  /** Runs an editing command of the menus on the editor. */
  command(name) {
    const run = { undo, redo, selectAll, delete: deleteCharForward, find: openSearchPanel, gotoLine }[name];
    if (!run) return false;
    this.view.focus();
    return run(this.view);
  }

  cursorLabel() {
    const head = this.state.selection.main.head;
    const line = this.state.doc.lineAt(head);
    return `Ln ${line.number}, Col ${head - line.from + 1}`;
  }

  /** {eol, bom, odd} of the text. */
  format() {
    return this.state.field(pageFormat);
  }

  endingLabel() {
    const { eol, odd } = this.state.field(pageFormat);
    return endingLabel(eol, odd);
  }
}
