// What is wrong with a scene file, as other people's tools see it.
import {execFileSync} from 'node:child_process';
import {readFileSync} from 'node:fs';
import {dirname, resolve} from 'node:path';
import {GLB_BUFFER, Logger, MathUtils, NodeIO} from '@gltf-transform/core';
import {ALL_EXTENSIONS} from '@gltf-transform/extensions';
import validator from 'gltf-validator';
import {unpack} from './glb.mjs';

// What single precision and the way to a quaternion and back may cost, as a part of the largest
// number of a matrix.
const TOLERANCE = 1e-5;
// Pieces of information that tell of no fault: the validator doesn't know the extensions and takes
// what only they use for unused; pictures have any size; a scene may have nodes without a mesh, and
// its models faces without an area.
const HARMLESS = new Set(['UNSUPPORTED_EXTENSION', 'UNUSED_OBJECT', 'IMAGE_NPOT_DIMENSIONS',
  'NODE_EMPTY', 'ACCESSOR_INDEX_TRIANGLE_DEGENERATE']);

const SEVERITIES = ['error', 'warning', 'information', 'hint'];

const resource = (folder, uri) =>
  new Uint8Array(readFileSync(resolve(folder, decodeURIComponent(uri))));

/** The validator's messages, errors to hints, that aren't harmless. */
async function validate(bytes, folder) {
  const report = await validator.validateBytes(bytes, {
    maxIssues: 0,
    writeTimestamp: false,
    externalResourceFunction: async (uri) => resource(folder, uri),
  });
  return report.issues.messages
    .filter((m) => m.severity < 2 || !HARMLESS.has(m.code))
    .map((m) => `${SEVERITIES[m.severity]} ${m.code} at ${m.pointer ?? `byte ${m.offset}`}: ` +
      m.message);
}

// Four rows of three numbers for points as row vectors: as columns of four, as glTF has them.
const columns = (rows) => rows.flatMap((row, i) => [...row, i === 3 ? 1 : 0]);

/** What the program tells of a file: its Sowfield objects, the placements, which are hidden. */
export function truthOf(program, file) {
  const run = (...words) =>
    execFileSync(program, words,
      {encoding: 'utf8', maxBuffer: 2 ** 30, stdio: ['ignore', 'pipe', 'inherit']});
  return JSON.parse(run('info', '--json', file)).objects.map(({node}) => ({
    node,
    placements: JSON.parse(run('placements', '--object', node, file)).placements.map(
      ({name, matrix}) => ({name, matrix: columns(matrix)})),
  }));
}

/** Names of the nodes that are hidden, or on a hidden layer. */
function hiddenNodes(json) {
  const scene = json.extensions.SOWFIELD_scene;
  const layers = new Set(scene.layers.filter((l) => l.hidden).map((l) => l.name));
  return new Set(scene.nodes.filter((n) => n.hidden || layers.has(n.layer)).map((n) => n.name));
}

function times(a, b) {
  const m = new Array(16).fill(0);
  for (let c = 0; c < 4; ++c)
    for (let r = 0; r < 4; ++r)
      for (let k = 0; k < 4; ++k) m[c * 4 + r] += a[k * 4 + r] * b[c * 4 + k];
  return m;
}

function determinant(m) {
  return m[0] * (m[5] * m[10] - m[9] * m[6]) - m[4] * (m[1] * m[10] - m[9] * m[2]) +
    m[8] * (m[1] * m[6] - m[5] * m[2]);
}

const largest = (numbers) => Math.max(...numbers.map(Math.abs));

// How far apart two matrices are; at most 1 is within tolerance. Places are counted from something
// as `far` from the origin.
function distance(found, expected, far) {
  const gap = (from, to) => largest(found.slice(from, to).map((v, i) => v - expected[from + i]));
  const axes = gap(0, 12) / largest(expected.slice(0, 12));
  const place = gap(12, 15) / Math.max(largest(expected.slice(12, 15)), far);
  return Number.isNaN(axes + place) ? Infinity : Math.max(axes, place) / TOLERANCE;
}

/** The instances of one node, each in the file's world. */
function instancesOf(node, instancing, faults) {
  const name = node.getName();
  const accessors = ['TRANSLATION', 'ROTATION', 'SCALE', '_ID'].map((semantic) => {
    const accessor = instancing.getAttribute(semantic);
    if (!accessor) throw new Error(`instances of "${name}" have no ${semantic}`);
    return accessor;
  });
  const [translation, rotation, scale, id] = accessors;
  if (accessors.some((a) => a.getCount() !== id.getCount()))
    faults.push(`instances of "${name}": ${accessors.map((a) => a.getCount())} entries`);
  if (!node.getMesh() || node.getMesh().listPrimitives().length === 0)
    faults.push(`instances of "${name}" have no mesh`);
  const local = node.getWorldMatrix();
  const instances = [];
  const [t, r, s] = [[], [], []];
  for (let i = 0; i < id.getCount(); ++i) {
    translation.getElement(i, t), rotation.getElement(i, r), scale.getElement(i, s);
    const number = id.getScalar(i);
    if (Math.abs(Math.hypot(...r) - 1) > TOLERANCE)
      faults.push(`placement ${number} of "${name}": its rotation isn't of unit length`);
    if (!s.every((v) => v > 0)) faults.push(`placement ${number} of "${name}": its scale is ${s}`);
    instances.push({id: number, matrix: times(local, MathUtils.compose(t, r, s, []))});
  }
  return {name, node, instances, far: largest(local.slice(12, 15)), owner: undefined};
}

const mirrored = (m, axis) => m.map((v, i) => (i >= axis * 4 && i < axis * 4 + 3 ? -v : v));

// How well the instances of a group are an object's placements: a mirrored group has one axis
// turned round, the same for all.
function fit(group, placements) {
  const first = placements[group.instances[0].id];
  if (!first) return {worst: Infinity, axis: -1};
  const axes = determinant(first.matrix) < 0 ? [0, 1, 2] : [-1];
  const fits = axes.map((axis) => {
    const told = group.instances[0].matrix;
    return {axis, worst: distance(axis < 0 ? told : mirrored(told, axis), first.matrix, group.far)};
  });
  return fits.reduce((best, f) => (f.worst < best.worst ? f : best));
}

// The node of the scene above a group says whose it is; groups at the top go to whom they fit.
function ownerOf(group, objects) {
  for (let n = group.node.getParentNode(); n; n = n.getParentNode()) {
    const owner = objects.find((o) => o.node === n.getName());
    if (owner) return owner;
  }
  return objects.find((o) => fit(group, o.placements).worst <= 1) ?? objects[0];
}

// Returns whether it is a group of mirrored ones.
function compareGroup(group, placements, seen, faults) {
  const {axis} = fit(group, placements);
  const type = placements[group.instances[0].id]?.name;
  for (const {id, matrix} of group.instances) {
    const expected = placements[id];
    const who = `placement ${id} of "${group.name}"`;
    if (!expected) {
      faults.push(`${who}: there is none`);
      continue;
    }
    if (seen.has(id)) faults.push(`${who}: it is there twice`);
    seen.add(id);
    if (expected.name !== type)
      faults.push(`${who}: its type is "${expected.name}", others have "${type}"`);
    if ((determinant(expected.matrix) < 0) !== (axis >= 0))
      faults.push(`${who}: mirrored ones are mixed with others`);
    const off = distance(axis < 0 ? matrix : mirrored(matrix, axis), expected.matrix, group.far);
    if (!(off <= 1)) faults.push(`${who}: its matrix is off by ${off.toPrecision(3)} tolerances`);
  }
  return axis >= 0;
}

/** Compares the instances of a document with what the program told. */
function compareInstances(document, json, truth) {
  const faults = [];
  const hidden = hiddenNodes(json);
  const nodes = document.getRoot().listNodes();
  // The node above all turns the scene (Z up, scene units) into the file's world.
  const top = document.getRoot().listScenes()[0].listChildren()[0]?.getWorldMatrix();
  const objects = truth.filter((o) => !hidden.has(o.node)).map(({node, placements}) => ({
    node,
    placements: placements.map((p) => ({...p, matrix: times(top, p.matrix)})),
  }));
  const seen = new Map(objects.map((o) => [o, new Set()]));
  let count = 0, mirroredCount = 0;
  for (const node of nodes) {
    const instancing = node.getExtension('EXT_mesh_gpu_instancing');
    if (!instancing) continue;
    const group = instancesOf(node, instancing, faults);
    count += group.instances.length;
    if (group.instances.length === 0 || objects.length === 0) {
      faults.push(`instances of "${group.name}": ${group.instances.length}, with ` +
        `${objects.length} objects that are shown`);
      continue;
    }
    const owner = ownerOf(group, objects);
    if (compareGroup(group, owner.placements, seen.get(owner), faults))
      mirroredCount += group.instances.length;
  }
  for (const o of objects)
    o.placements.forEach(({name, matrix}, id) => {
      const size = determinant(matrix);
      const shown = Number.isFinite(size) && size !== 0;
      if (shown !== seen.get(o).has(id))
        faults.push(`placement ${id} of "${name}" ${shown ? 'is missing' : 'has no size'}`);
    });
  return {faults, count, mirroredCount};
}

/** The JSON of a .glb or .gltf, and what glTF Transform makes of it and of files beside it. */
async function read(bytes, file) {
  const isText = file.endsWith('.gltf');
  const {json, bin} = isText ? {json: JSON.parse(new TextDecoder().decode(bytes))} : unpack(bytes);
  const resources = bin ? {[GLB_BUFFER]: bin} : {};
  for (const {uri} of [...(json.buffers ?? []), ...(json.images ?? [])])
    if (uri) resources[uri] = resource(dirname(file), uri);
  // Of the scene's own extension it would warn each time.
  const io = new NodeIO().registerExtensions(ALL_EXTENSIONS).setLogger(
    new Logger(Logger.Verbosity.ERROR));
  return {json, document: await io.readJSON({json, resources})};
}

/** All faults of a file, whose bytes may have changed since the program told the truth of it. */
export async function faultsOf(bytes, file, truth) {
  const faults = await validate(bytes, dirname(file));
  try {
    const {json, document} = await read(bytes, file);
    const compared = compareInstances(document, json, truth);
    return {...compared, faults: [...faults, ...compared.faults]};
  } catch (e) {
    return {faults: [...faults, `it can't be read: ${e.message}`], count: 0, mirroredCount: 0};
  }
}
