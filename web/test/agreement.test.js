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

      it('measures each frame as the native host does', () => {
        // OpenCV computes with the vectors that a processor has: the last bits of what is measured differ, between
        // WebAssembly and this machine as between two machines. How much, for each kind of measure:
        const limits = {
          cornersFound: 0, cornersTracked: 0, inliers: 0, moveDistance: 1e-7, overlap: 1e-8, angles: 1e-3, scales: 1e-5,
          outline: 1e-2,
        };
        const greatest = Object.fromEntries(Object.keys(limits).map((field) => [field, 0]));
        native.answers.forEach((expected, index) => {
          const found = { ...web.answers[index] };
          found.outline = found.outline.flatMap(({ x, y }) => [x, y]);
          for (const field of Object.keys(limits)) {
            [found[field]].flat().forEach((value, at) => {
              greatest[field] = Math.max(greatest[field], Math.abs(value - [expected[field]].flat()[at]));
            });
          }
        });
        console.log(`# greatest differences: ${JSON.stringify(greatest)}`);
        for (const [field, limit] of Object.entries(limits)) {
          assert.ok(greatest[field] <= limit, `${field}: ${greatest[field]}`);
        }
      });

      it('shows the same preview', () => {
        const { preview } = web;
        assert.deepEqual([preview.width, preview.height], [native.preview.width, native.preview.height]);
        let greatest = 0;
        let beyondOne = 0;
        const bytes = preview.width * preview.height * 3;
        for (let pixel = 0; pixel < preview.width * preview.height; ++pixel) {
          for (const channel of [0, 1, 2]) {
            const difference = Math.abs(preview.data[4 * pixel + channel] - native.preview.data[3 * pixel + 2 - channel]);
            greatest = Math.max(greatest, difference);
            beyondOne += difference > 1 ? 1 : 0;
          }
        }
        console.log(`# preview: ${beyondOne} of ${bytes} bytes differ by more than one grey level, by ${greatest} at most`);
        assert.ok(beyondOne <= bytes * 1e-4, `${beyondOne} of ${bytes}`);
      });

      it('makes the whole panorama', () => {
        const { width, height } = native.panorama;
        console.log(`# panorama: ${web.panorama.width}x${web.panorama.height}, natively ${width}x${height}`);
        assert.equal(web.panorama.extent, 'whole');
        assert.equal(web.panorama.keyFrames, native.answers.at(-1).keyFrames + (native.answers.at(-1).keyFrame ? 0 : 1));
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

