// SPDX-License-Identifier: Apache-2.0
//
// What the tests share: where things lie, and the samples as raw frames, decoded once.
import { execFileSync } from 'node:child_process';
import { closeSync, existsSync, mkdirSync, openSync, readFileSync, readSync, renameSync, statSync } from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

export const root = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '..', '..');
export const packageDirectory = path.join(root, 'out/web/tarnstitch');
export const work = path.join(root, 'build/web/test');
mkdirSync(work, { recursive: true });

export const samples = {
  parking_pan: { width: 426, height: 320, frames: 150 },
  river_pan: { width: 426, height: 320, frames: 235 },
  hall_slide: { width: 960, height: 540, frames: 240 },
};

/**
 * R,G,B,A of all frames, one after the other, without padding.
 * @param {boolean} lying  turned counter-clockwise, as the library takes frames
 */
export function rawFrames(name, lying, scale = null) {
  const { width, height } = scale ?? samples[name];
  const file = path.join(work, `${name}-${width}x${height}${lying ? '-lying' : ''}.rgba`);
  if (!existsSync(file)) {
    const filters = [...(scale ? [`scale=${width}:${height}`] : []), ...(lying ? ['transpose=2'] : [])];
    execFileSync('ffmpeg', [
      '-v', 'error', '-y', '-i', path.join(root, 'samples', `${name}.mp4`), '-fps_mode', 'passthrough',
      ...(filters.length ? ['-vf', filters.join(',')] : []), '-f', 'rawvideo', '-pix_fmt', 'rgba', `${file}.part`,
    ]);
    renameSync(`${file}.part`, file);
  }
  return file;
}

/** The frames of such a file, one at a time in the same storage. */
export function* eachRawFrame(file, width, height) {
  const data = new Uint8Array(width * height * 4);
  const descriptor = openSync(file, 'r');
  try {
    for (let at = 0; at + data.length <= statSync(file).size; at += data.length) {
      readSync(descriptor, data, 0, data.length, at);
      yield { data, width, height };
    }
  } finally {
    closeSync(descriptor);
  }
}

/** What native_answers writes: width and height, then B,G,R. */
export function nativePicture(file) {
  const bytes = readFileSync(file);
  return { width: bytes.readInt32LE(0), height: bytes.readInt32LE(4), data: bytes.subarray(8) };
}

/**
 * The native host's answers, preview and panorama.
 * @param vectors  'all' that this processor has, or 'shared': those alone that WebAssembly has, too
 */
export function nativeRun(name, { threads = 2, scale = null, vectors = 'all' } = {}) {
  const { width, height } = scale ?? samples[name];
  const out = path.join(work, `${name}-${width}-native-${threads}-${vectors}`);
  const env = vectors === 'shared' ? { ...process.env, OPENCV_CPU_DISABLE: 'AVX2,FMA3' } : process.env;
  execFileSync(path.join(root, 'build/web/native/native_answers'),
    [rawFrames(name, true, scale), height, width, threads, out].map(String), { env });
  const answers = readFileSync(`${out}.jsonl`, 'utf8').trim().split('\n').map((line) => JSON.parse(line));
  return { answers, preview: nativePicture(`${out}.preview`), jpeg: readFileSync(`${out}.jpg`) };
}

export function median(values) {
  const sorted = [...values].sort((a, b) => a - b);
  return sorted[Math.floor(sorted.length / 2)];
}
