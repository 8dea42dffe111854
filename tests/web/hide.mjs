// Hides nodes of a saved scene, which no job can do; it can be recovered then.
//
// Usage: node hide.mjs FROM.glb TO.glb NODE...
import {readFileSync, writeFileSync} from 'node:fs';
import {pack, unpack} from './glb.mjs';

const [from, to, ...names] = process.argv.slice(2);
const parts = unpack(new Uint8Array(readFileSync(from)));
for (const name of names) {
  const node = parts.json.extensions.SOWFIELD_scene.nodes.find((n) => n.name === name);
  if (!node) throw new Error(`no node is named "${name}"`);
  node.hidden = true;
}
writeFileSync(to, pack(parts));
