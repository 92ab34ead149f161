// Writes a C++ source generated at build time: beside the target under a
// temporary name, then renamed over it, so that a build stopped mid-write
// leaves no half file that looks newer than its inputs.
import fs from 'node:fs';
import path from 'node:path';

export function writeGeneratedSource(out, text) {
  fs.mkdirSync(path.dirname(out), { recursive: true });
  const temporary = `${out}.${process.pid}.tmp`;
  fs.writeFileSync(temporary, text);
  fs.renameSync(temporary, out);
}
