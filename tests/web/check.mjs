// Reads scene files as other people's tools do: the Khronos validator must find nothing, and the
// instances that glTF Transform reads must be the placements that the program itself tells.
//
// Usage: node check.mjs --sowfield PROGRAM [--self-test] FILE...
//   --self-test  breaks a copy of each file in several ways too, and fails unless each is found
import {readFileSync} from 'node:fs';
import {parseArgs} from 'node:util';
import {faultsOf, truthOf} from './faults.mjs';
import {selfTest} from './selftest.mjs';

const MOST_SHOWN = 5;

async function main() {
  const {values, positionals} = parseArgs({
    allowPositionals: true,
    options: {
      sowfield: {type: 'string'},
      'self-test': {type: 'boolean', default: false},
    },
  });
  if (!values.sowfield || positionals.length === 0) {
    console.error('usage: node check.mjs --sowfield PROGRAM [--self-test] FILE...');
    return 2;
  }
  let failed = false;
  for (const file of positionals) {
    const bytes = new Uint8Array(readFileSync(file));
    const truth = truthOf(values.sowfield, file);
    const {faults, count, mirroredCount} = await faultsOf(bytes, file, truth);
    const state = faults.length === 0 ? 'sound' : `${faults.length} faults`;
    console.log(`${file}: ${state}, ${count} instances, ${mirroredCount} of them mirrored`);
    for (const f of faults.slice(0, MOST_SHOWN)) console.log(`  ${f}`);
    if (faults.length > MOST_SHOWN) console.log(`  ... and ${faults.length - MOST_SHOWN} more`);
    failed ||= faults.length > 0;
    if (!values['self-test']) continue;
    if (mirroredCount === 0) console.log('  self-test: it needs mirrored instances');
    const found = await selfTest(bytes, file, truth);
    failed ||= mirroredCount === 0 || !found;
  }
  return failed ? 1 : 0;
}

process.exitCode = await main();
