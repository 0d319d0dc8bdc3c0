// SPDX-License-Identifier: MIT
// Reads scans with libraries of others, for check_interchange.py: LAS with loaders.gl, E57 with web-e57 (a build of the
// Rust library e57). Run it in the folder that they are installed in:
//
//     node --experimental-wasm-modules read_points.mjs FILE...
//
// Prints a line of JSON a file: the number of its points, and the corners of the box around them.
import { readFileSync } from "fs";

async function pointsOf(file) {
  const bytes = readFileSync(file);
  if (file.endsWith(".e57")) {
    const { convertE57 } = await import("web-e57");
    const lines = convertE57(new Uint8Array(bytes), "XYZ").split("\n");
    return lines.filter((line) => line.trim()).map((line) => line.split(/\s+/).slice(0, 3).map(Number));
  }
  const [{ parse }, { LASLoader }] = [await import("@loaders.gl/core"), await import("@loaders.gl/las")];
  const buffer = bytes.buffer.slice(bytes.byteOffset, bytes.byteOffset + bytes.length);
  const table = await parse(buffer, LASLoader, { worker: false, las: { fp64: true } });
  const values = table.attributes.POSITION.value;
  return Array.from({ length: values.length / 3 }, (_, i) => Array.from(values.subarray(3 * i, 3 * i + 3)));
}

for (const file of process.argv.slice(2)) {
  const low = [Infinity, Infinity, Infinity];
  const high = [-Infinity, -Infinity, -Infinity];
  let points = [];
  try {
    points = await pointsOf(file);
  } catch (error) {
    console.log(JSON.stringify({ file, error: String(error).slice(0, 200) }));
    continue;
  }
  for (const point of points) {
    for (let k = 0; k < 3; ++k) {
      low[k] = Math.min(low[k], point[k]);
      high[k] = Math.max(high[k], point[k]);
    }
  }
  console.log(JSON.stringify({ file, points: points.length, low, high }));
}
