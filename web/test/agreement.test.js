// SPDX-License-Identifier: Apache-2.0
//
// The same library: on the samples, both builds answer as the native host does.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { createHash } from 'node:crypto';
import path from 'node:path';
import { after, before, describe, it } from 'node:test';
import { eachRawFrame, nativeRun, packageDirectory, rawFrames, samples } from './support.js';

const { Sweep, configure, shutDown } = await import(path.join(packageDirectory, 'index.js'));

async function webRun(name, threads) {
  shutDown();
  configure({ threads });
  const sweep = await Sweep.begin({ upright: false });
  assert.equal(sweep.threads, threads);
  const { width, height } = samples[name];
  const answers = [];
  for (const frame of eachRawFrame(rawFrames(name, true), height, width)) {
    const answer = await sweep.feed(frame, { everyFrame: true });
    answers.push({ ...answer, outline: sweep.preview.outline });
  }
  const { preview } = sweep;
  const panorama = await sweep.finish();
  sweep.end();
  return { answers, preview, panorama, jpeg: new Uint8Array(await panorama.blob.arrayBuffer()) };
}

// Measures are floats, which nine digits tell apart.
const asFloats = (value) => [value].flat().map((number) => Math.fround(number));

const pixelsOf = (jpeg) => execFileSync('ffmpeg', ['-v', 'error', '-i', '-', '-f', 'rawvideo', '-pix_fmt', 'rgb24', '-'],
  { input: jpeg, maxBuffer: 2 ** 26 });

const measures = ['cornersFound', 'cornersTracked', 'inliers', 'moveDistance', 'overlap', 'angles', 'scales', 'outline'];
const digests = {};

for (const name of Object.keys(samples)) {
  for (const threads of [true, false]) {
    describe(`${name}, ${threads ? 'with threads' : 'without'}`, () => {
      let web;
      let native;
      let nativeWithSharedVectors;
      before(async () => {
        native = nativeRun(name);
        nativeWithSharedVectors = nativeRun(name, { vectors: 'shared' });
        web = await webRun(name, threads);
        digests[name] ??= [];
        digests[name].push(createHash('sha256').update(web.jpeg).digest('hex'));
      });
      after(() => shutDown());

      it('gives each frame the same code, fate and key frame', () => {
        assert.equal(web.answers.length, samples[name].frames);
        assert.equal(native.answers.length, samples[name].frames);
        native.answers.forEach((expected, index) => {
          const found = web.answers[index];
          for (const field of ['codeNumber', 'whyNumber', 'keyFrame', 'keyFrames']) {
            assert.equal(found[field], expected[field], `${field} of frame ${index + 1}`);
          }
          for (const field of ['taken', 'registered', 'placed']) {
            assert.equal(found[field], expected[field] !== 0, `${field} of frame ${index + 1}`);
          }
          assert.equal(['any', 'down', 'up', 'right', 'left'].indexOf(found.direction), expected.directionNumber);
        });
      });

      it('measures each frame as the native host does, to the last bit', () => {
        native.answers.forEach((expected, index) => {
          const found = { ...web.answers[index] };
          found.outline = found.outline.flatMap(({ x, y }) => [x, y]);
          for (const field of measures) {
            assert.deepEqual(asFloats(found[field]), asFloats(expected[field]), `${field} of frame ${index + 1}`);
          }
        });
      });

      it('shows the same preview', () => {
        const { preview } = web;
        assert.deepEqual([preview.width, preview.height], [native.preview.width, native.preview.height]);
        let different = 0;
        for (let pixel = 0; pixel < preview.width * preview.height; ++pixel) {
          for (const channel of [0, 1, 2]) {
            different += preview.data[4 * pixel + channel] === native.preview.data[3 * pixel + 2 - channel] ? 0 : 1;
          }
        }
        assert.equal(different, 0, `${different} bytes`);
      });

      it('makes the whole panorama', () => {
        assert.equal(web.panorama.extent, 'whole');
        assert.equal(web.panorama.keyFrames, native.answers.at(-1).keyFrames + (native.answers.at(-1).keyFrame ? 0 : 1));
      });

      it('makes the same panorama as the native host does with the vectors that both have', () => {
        // But for what the C libraries' sines, which turn the features' neighbourhoods, move: a pixel of hall_slide's,
        // hence a block of its JPEG. The others are the same bytes.
        const most = name === 'hall_slide' ? 64 : 0;
        assert.equal(web.jpeg.length, nativeWithSharedVectors.jpeg.length);
        const [found, expected] = [pixelsOf(web.jpeg), pixelsOf(nativeWithSharedVectors.jpeg)];
        assert.equal(found.length, expected.length);
        let different = 0;
        for (let at = 0; at < found.length; at += 3) {
          different += found.compare(expected, at, at + 3, at, at + 3) === 0 ? 0 : 1;
        }
        assert.ok(different <= most, `${different} pixels`);
      });
    });
  }
}

describe('both builds', () => {
  it('give the same bytes', () => {
    for (const [name, [first, second]] of Object.entries(digests)) {
      assert.equal(first, second, name);
    }
  });
});
