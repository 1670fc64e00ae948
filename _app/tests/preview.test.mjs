import { test, describe } from 'node:test';
import assert from 'node:assert/strict';
import { resolveReference, rebase, relative } from '../js/paths.js';
import { previewDelay, referenceMapper, rewriteCssUrls, rewriteSrcset } from '../js/preview-doc.js';

describe('references in a previewed page', () => {
  const dir = '/ws/guides';
  test('relative, parent and root-relative references resolve inside the workspace', () => {
    assert.equal(resolveReference(dir, 'img/a.png', '/ws'), '/ws/guides/img/a.png');
    assert.equal(resolveReference(dir, '../style.css?v=2#x', '/ws'), '/ws/style.css');
    assert.equal(resolveReference(dir, '/logo.svg', '/ws'), '/ws/logo.svg');
    assert.equal(resolveReference(dir, 'my%20pic.png', '/ws'), '/ws/guides/my pic.png');
  });

  test('external, fragment-only and escaping references are left alone', () => {
    for (const ref of ['https://example.com/a.png', '//cdn.example/x.js', 'data:image/png;base64,AA', 'mailto:a@b', '#top', '', '  ', '../../etc/hosts', '/../x', '%zz']) {
      assert.equal(resolveReference(dir, ref, '/ws'), null, ref);
    }
  });

  test('CSS url() and srcset references are rewritten, external ones kept', () => {
    const map = referenceMapper({ origin: 'vorna://app', pageDir: '/ws', root: '/ws' });
    assert.equal(
      rewriteCssUrls('a{background:url(bg.png)} b{background:url("https://x/y.png")}', map),
      'a{background:url("vorna://app/api/file?path=%2Fws%2Fbg.png")} b{background:url("https://x/y.png")}',
    );
    assert.equal(rewriteSrcset('a.png 1x, https://x/b.png 2x', map), 'vorna://app/api/file?path=%2Fws%2Fa.png 1x, https://x/b.png 2x');
  });
});

describe('paths', () => {
  test('relative and rebase respect folder boundaries', () => {
    assert.equal(relative('/ws', '/ws/a/b.html'), 'a/b.html');
    assert.equal(relative('/ws', '/wsx/a.html'), null);
    assert.equal(rebase('/ws/a/b.html', '/ws/a', '/ws/c'), '/ws/c/b.html');
    assert.equal(rebase('/ws/ab/b.html', '/ws/a', '/ws/c'), '/ws/ab/b.html');
  });
});

test('the preview waits longer for larger pages, within bounds', () => {
  assert.ok(previewDelay(1000) < 300);
  const big = previewDelay(2 * 1024 * 1024);
  assert.ok(big >= 1000 && big <= 2000);
  assert.equal(previewDelay(50 * 1024 * 1024), 2000);
});
