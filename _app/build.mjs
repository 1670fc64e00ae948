// Builds the folder the host serves: index.html, the stylesheet and one
// script bundle of js/main.js with CodeMirror and everything else it imports.
// Usage: node build.mjs OUT_DIR
//
// The bundle needs nothing at run time beyond the host's own scheme: no
// network, no workers, no eval (the editor's documents forbid all three).

import { build } from 'esbuild';
import { copyFile, mkdir, rm, stat } from 'node:fs/promises';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

const here = dirname(fileURLToPath(import.meta.url));
const out = process.argv[2];
if (!out) {
  console.error('usage: node build.mjs OUT_DIR');
  process.exit(2);
}

// Files removed from the source must not linger in the served folder.
await rm(out, { recursive: true, force: true });
await mkdir(join(out, 'css'), { recursive: true });

await build({
  entryPoints: [join(here, 'js', 'main.js')],
  outfile: join(out, 'editor.js'),
  bundle: true,
  format: 'esm',
  minify: true,
  // WebKitGTK 2.50 runs the editor; nothing older has to.
  target: ['safari17'],
  legalComments: 'linked',
  logLevel: 'warning',
});
await copyFile(join(here, 'index.html'), join(out, 'index.html'));
await copyFile(join(here, 'css', 'app.css'), join(out, 'css', 'app.css'));

const { size } = await stat(join(out, 'editor.js'));
console.log(`editor bundle: ${Math.round(size / 1024)} KiB in ${out}`);
