// The parts of a .glb.

const MAGIC = 0x46546c67, JSON_CHUNK = 0x4e4f534a, BIN_CHUNK = 0x004e4942;

/** The JSON and the bytes of a .glb, both of its own. */
export function unpack(glb) {
  const view = new DataView(glb.buffer, glb.byteOffset, glb.byteLength);
  const length = view.getUint32(12, true);
  return {
    json: JSON.parse(new TextDecoder().decode(glb.subarray(20, 20 + length))),
    bin: glb.slice(28 + length),
  };
}

/** A .glb; its description's checksum isn't brought up to date. */
export function pack({json, bin}) {
  const text = JSON.stringify(json);
  const utf8 = Buffer.from(text + ' '.repeat((4 - Buffer.byteLength(text) % 4) % 4));
  const glb = new Uint8Array(28 + utf8.length + bin.length);
  const view = new DataView(glb.buffer);
  [MAGIC, 2, glb.length, utf8.length, JSON_CHUNK].forEach((v, i) => view.setUint32(i * 4, v, true));
  glb.set(utf8, 20);
  view.setUint32(20 + utf8.length, bin.length, true);
  view.setUint32(24 + utf8.length, BIN_CHUNK, true);
  glb.set(bin, 28 + utf8.length);
  return glb;
}
