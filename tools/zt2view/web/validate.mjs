// Runs the Khronos glTF validator on each file named and prints one line per
// file with its counts, then every error. Exit status 1 when any file has an
// error, 2 when a file cannot be read.
import fs from 'node:fs';
import validator from 'gltf-validator';

let failed = false;
for (const file of process.argv.slice(2)) {
  let bytes;
  try {
    bytes = new Uint8Array(fs.readFileSync(file));
  } catch (e) {
    console.error(`${file}: ${e.message}`);
    process.exit(2);
  }
  const report = await validator.validateBytes(bytes, { uri: file, maxIssues: 1000 });
  const { numErrors, numWarnings, numInfos, messages } = report.issues;
  console.log(`${file}: ${numErrors} errors, ${numWarnings} warnings, ${numInfos} infos`);
  for (const m of messages) {
    if (m.severity === 0) console.log(`  error ${m.code} at ${m.pointer ?? m.offset}: ${m.message}`);
  }
  if (numErrors > 0) failed = true;
}
process.exit(failed ? 1 : 0);
