// Breaks copies of a scene file, to show that the checks find it.
import {faultsOf} from './faults.mjs';
import {pack, unpack} from './glb.mjs';

const attributesOf = (json, i = 0) =>
  json.nodes.filter((n) => n.extensions?.EXT_mesh_gpu_instancing)[i]
    .extensions.EXT_mesh_gpu_instancing.attributes;

/** The first numbers of an instance attribute, to be changed in place. */
function numbers({json, bin}, semantic) {
  const accessor = json.accessors[attributesOf(json)[semantic]];
  const view = json.bufferViews[accessor.bufferView];
  const start = bin.byteOffset + (view.byteOffset ?? 0) + (accessor.byteOffset ?? 0);
  return new Float32Array(bin.buffer, start, view.byteLength / 4);
}

// Each changes a copy; the pattern is that of a fault that must be found then.
const BREAKS = {
  'a place is off': [/matrix is off/, (f) => { numbers(f, 'TRANSLATION')[0] += 0.01; }],
  'a turn is off': [/matrix is off/, (f) => {
    const q = numbers(f, 'ROTATION');
    const [x, y, z, w] = q, [s, c] = [Math.sin(0.0005), Math.cos(0.0005)];
    q.set([x * c + y * s, y * c - x * s, z * c + w * s, w * c - z * s]);
  }],
  'a size is off': [/matrix is off/, (f) => { numbers(f, 'SCALE')[2] *= 1.0001; }],
  'a scale is mirrored': [/its scale is/, (f) => { numbers(f, 'SCALE')[0] *= -1; }],
  'a placement is missing': [/is missing/, ({json}) => {
    for (const a of Object.values(attributesOf(json))) --json.accessors[a].count;
  }],
  'a placement is there twice': [/is there twice/, (f) => {
    const ids = numbers(f, '_ID');
    ids[1] = ids[0];
  }],
  'a placement of no number': [/there is none/, (f) => { numbers(f, '_ID')[0] = 1e6; }],
  'a list is short': [/entries/, ({json}) => { --json.accessors[attributesOf(json).SCALE].count; }],
  'an accessor leaves its view': [/error ACCESSOR_TOO_LONG/, ({json}) => {
    json.accessors[json.meshes[0].primitives[0].attributes.POSITION].count += 1e6;
  }],
};

/** Whether each broken copy of a .glb was found to be broken, in the way that it is. */
export async function selfTest(bytes, file, truth) {
  let good = true;
  for (const [name, [pattern, change]] of Object.entries(BREAKS)) {
    const parts = unpack(bytes);
    change(parts);
    const {faults} = await faultsOf(pack(parts), file, truth);
    if (faults.some((f) => pattern.test(f))) continue;
    console.log(`  self-test: not found: ${name}; instead: ${faults[0] ?? 'nothing'}`);
    good = false;
  }
  if (good) console.log(`  self-test: all ${Object.keys(BREAKS).length} broken copies were found`);
  return good;
}
