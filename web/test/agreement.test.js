// SPDX-License-Identifier: Apache-2.0
//
// The same library: on the samples, both builds answer as the native host does.
import assert from 'node:assert/strict';
import { createHash } from 'node:crypto';
import { execFileSync } from 'node:child_process';
import path from 'node:path';
import { after, before, describe, it } from 'node:test';
import { eachRawFrame, nativeRun, packageDirectory, rawFrames, samples } from './support.js';

const { Sweep, configure, shutDown } = await import(path.join(packageDirectory, 'index.js'));

const numbers = [
  'codeNumber', 'whyNumber', 'keyFrame', 'keyFrames', 'cornersFound', 'cornersTracked', 'inliers',
  'moveDistance', 'overlap',
];

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

function size(jpeg) {
  return execFileSync('ffprobe', ['-v', 'error', '-show_entries', 'stream=width,height', '-of', 'csv=p=0', '-i', '-'],
    { input: jpeg }).toString().trim();
}

const digests = {};

for (const name of Object.keys(samples)) {
  for (const threads of [true, false]) {
    describe(`${name}, ${threads ? 'with threads' : 'without'}`, () => {
      let web;
      let native;
      before(async () => {
        native = nativeRun(name);
        web = await webRun(name, threads);
        digests[name] ??= [];
        digests[name].push(createHash('sha256').update(web.jpeg).digest('hex'));
      });
      after(() => shutDown());

      it('answers each frame as the native host does, in every field', () => {
        assert.equal(web.answers.length, samples[name].frames);
        assert.equal(native.answers.length, samples[name].frames);
        native.answers.forEach((expected, index) => {
          const found = web.answers[index];
          for (const field of numbers) {
            assert.equal(found[field], Math.fround(expected[field]), `${field} of frame ${index + 1}`);
          }
          for (const field of ['taken', 'registered', 'placed']) {
            assert.equal(found[field], expected[field] !== 0, `${field} of frame ${index + 1}`);
          }
          assert.equal(['any', 'down', 'up', 'right', 'left'].indexOf(found.direction), expected.directionNumber);
          for (const field of ['angles', 'scales']) {
            assert.deepEqual(found[field], expected[field].map(Math.fround), `${field} of frame ${index + 1}`);
          }
          const outline = found.outline.flatMap(({ x, y }) => [x, y]);
          assert.deepEqual(outline, expected.outline.map(Math.fround), `outline of frame ${index + 1}`);
        });
      });

      it('shows the same preview within one grey level', () => {
        const { preview } = web;
        assert.deepEqual([preview.width, preview.height], [native.preview.width, native.preview.height]);
        let greatest = 0;
        let different = 0;
        for (let pixel = 0; pixel < preview.width * preview.height; ++pixel) {
          for (const channel of [0, 1, 2]) {
            const difference = Math.abs(preview.data[4 * pixel + channel] - native.preview.data[3 * pixel + 2 - channel]);
            greatest = Math.max(greatest, difference);
            different += difference > 0 ? 1 : 0;
          }
        }
        console.log(`# preview: ${different} of ${preview.width * preview.height * 3} bytes differ, by ${greatest} at most`);
        assert.ok(greatest <= 1, `${greatest} grey levels`);
      });

      it('makes the whole panorama', () => {
        const { width, height } = native.panorama;
        console.log(`# panorama: ${web.panorama.width}x${web.panorama.height}, natively ${width}x${height}`);
        assert.equal(web.panorama.extent, 'whole');
        assert.equal(web.panorama.keyFrames, native.answers.at(-1).keyFrames);
        assert.equal(size(web.jpeg), `${web.panorama.width},${web.panorama.height}`);
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

