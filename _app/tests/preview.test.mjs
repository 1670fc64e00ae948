import { test, describe } from 'node:test';
import assert from 'node:assert/strict';
import { rebase, relative, resolveReference } from '../js/paths.js';
import {
  linkTarget, markerTarget, openMarker, rewriteCssUrls, rewriteSrcset, rootRelativeUrl, textEdit, workspacePathOf,
  workspaceUrl,
} from '../js/preview-doc.js';

const origin = 'vorna://app';

describe('references in a previewed page', () => {
  test('workspace files have path-shaped URLs that name them exactly', () => {
    for (const path of ['/ws/a.html', '/ws/My Site/é #1?.css', '/ws/100%.png']) {
      const url = workspaceUrl(origin, path);
      assert.ok(url.startsWith('vorna://app/workspace/ws/'), url);
      assert.equal(new URL('x', url).pathname.endsWith('/x'), true, 'a relative reference resolves in the same folder');
      assert.equal(workspacePathOf(url, origin), path);
    }
    assert.equal(workspacePathOf('vorna://app/css/app.css', origin), null);
  });

  test('links to workspace files keep their fragment; links elsewhere are left alone', () => {
    const dir = '/ws/guides';
    assert.deepEqual(linkTarget(dir, 'b.htm#part-2', '/ws'), { path: '/ws/guides/b.htm', fragment: 'part-2' });
    assert.deepEqual(linkTarget(dir, '/notes.md', '/ws'), { path: '/ws/notes.md', fragment: '' });
    for (const href of ['#top', 'https://example.org/a.html', 'mailto:a@b', '../../etc/hosts']) {
      assert.equal(linkTarget(dir, href, '/ws'), null, href);
    }
    const target = { path: '/ws/a b/c.html', fragment: 'x#y' };
    assert.deepEqual(markerTarget(openMarker(target)), target);
    assert.equal(markerTarget('about:srcdoc'), null);
  });

  test('root-relative references point into the workspace, in url(), @import and srcset alike', () => {
    const map = (ref) => (ref.startsWith('/') && !ref.startsWith('//') ? rootRelativeUrl(origin, '/ws', ref) : null);
    assert.equal(
      rewriteCssUrls('@import "/base.css"; a{background:url(/img/bg.png?v=2)} b{background:url("https://x/y.png")} c{background:url(rel.png)}', map),
      '@import "vorna://app/workspace/ws/base.css"; a{background:url("vorna://app/workspace/ws/img/bg.png?v=2")} b{background:url("https://x/y.png")} c{background:url(rel.png)}',
    );
    assert.equal(rewriteSrcset('/a.png 1x, b.png 2x', map), 'vorna://app/workspace/ws/a.png 1x, b.png 2x');
  });

  test('external and escaping references resolve to nothing', () => {
    for (const ref of ['https://example.com/a.png', '//cdn.example/x.js', 'data:image/png;base64,AA', '', '../../etc/hosts', '/../x', '%zz']) {
      assert.equal(resolveReference('/ws/guides', ref, '/ws'), null, ref);
    }
  });
});

test('relative and rebase respect folder boundaries', () => {
  assert.equal(relative('/ws', '/ws/a/b.html'), 'a/b.html');
  assert.equal(relative('/ws', '/wsx/a.html'), null);
  assert.equal(rebase('/ws/a/b.html', '/ws/a', '/ws/c'), '/ws/c/b.html');
  assert.equal(rebase('/ws/ab/b.html', '/ws/a', '/ws/c'), '/ws/ab/b.html');
});

test('an edit inside one run of text is told apart from one that may touch markup', () => {
  const page = '<p class="a">Hello world</p>\n<p>Other</p><p>Twice</p><i>Twice</i><a title="1>0">Link</a>'
    + '<title>Title</title><p>Caf&eacute;</p><p>  </p>';
  const edit = (from, to) => textEdit(page, page.replace(from, to));
  assert.deepEqual(edit('Hello world', 'Hello, world'), { from: 'Hello world', to: 'Hello, world' });
  assert.deepEqual(edit('>Other<', '><'), null, 'a run emptied');
  const refused = [
    ['class="a"', 'class="b"'], // an attribute
    ['Other', 'Ot<b>her'], // markup typed
    ['Other', 'Other &amp;'], // an entity
    ['Link', 'Lnk'], // after a tag whose attribute holds ">"
    ['Title', 'Titl'], // raw text
    ['>Twice<', '>Thrice<'], // a run that occurs twice
    ['Caf&eacute;', 'Cafe&eacute;'], // a run with an entity
    ['<p>  </p>', '<p>   </p>'], // whitespace alone
  ];
  for (const [from, to] of refused) assert.equal(edit(from, to), null, `${from} -> ${to}`);
});
