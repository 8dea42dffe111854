// The parts of a .glb, and the checksum of the scene in it.

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

const padded = (text) => text + ' '.repeat((4 - Buffer.byteLength(text) % 4) % 4);

/** A .glb; `text` may stand for the JSON. */
export function pack({json, bin}, text = padded(JSON.stringify(json))) {
  const utf8 = Buffer.from(text);
  const glb = new Uint8Array(28 + utf8.length + bin.length);
  const view = new DataView(glb.buffer);
  [MAGIC, 2, glb.length, utf8.length, JSON_CHUNK].forEach((v, i) => view.setUint32(i * 4, v, true));
  glb.set(utf8, 20);
  view.setUint32(20 + utf8.length, bin.length, true);
  view.setUint32(24 + utf8.length, BIN_CHUNK, true);
  glb.set(bin, 28 + utf8.length);
  return glb;
}

const CRC_TABLE = Uint32Array.from({length: 256}, (_, i) => {
  let c = i;
  for (let k = 0; k < 8; ++k) c = c & 1 ? (c >>> 1) ^ 0x82f63b78 : c >>> 1;
  return c;
});

// CRC-32C (RFC 3720) as eight digits.
function crc32c(bytes) {
  let c = 0xffffffff;
  for (const b of bytes) c = CRC_TABLE[(c ^ b) & 255] ^ (c >>> 8);
  return ((c ^ 0xffffffff) >>> 0).toString(16).padStart(8, '0');
}

/** A .glb whose description has the checksum that belongs to it. */
export function seal(parts) {
  parts.json.extensions.SOWFIELD_scene.jsonCrc = '00000000';
  const text = padded(JSON.stringify(parts.json));
  const crc = crc32c(Buffer.from(text));
  return pack(parts, text.replace('"jsonCrc":"00000000"', `"jsonCrc":"${crc}"`));
}
