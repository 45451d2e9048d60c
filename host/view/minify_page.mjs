/** Writes the modules of the page without comments and spaces, and with short names: they are downloaded sooner.
 * Arguments: the directory with package.json of the tools, the directory for the result, the modules. */
import { readFileSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { basename, join } from 'node:path';

const [packages, output, ...modules] = process.argv.slice(2);
const { minify } = createRequire(join(packages, 'package.json'))('terser');

for (const path of modules) {
  const { code } = await minify(readFileSync(path, 'utf8'), { module: true, ecma: 2020 });
  writeFileSync(join(output, basename(path)), `${code}\n`);
}
