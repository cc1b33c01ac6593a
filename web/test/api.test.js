// SPDX-License-Identifier: Apache-2.0
//
// The package's own promises, in both builds: errors, dropping, aborting, going on.
import assert from 'node:assert/strict';
import path from 'node:path';
import { after, before, describe, it } from 'node:test';
import { eachRawFrame, packageDirectory, rawFrames, samples } from './support.js';

const { Sweep, SweepError, configure, memoryInUse, preload, shutDown } =
  await import(path.join(packageDirectory, 'index.js'));

const { width, height } = samples.parking_pan;

function someFrames(count) {
  const frames = [];
  for (const frame of eachRawFrame(rawFrames('parking_pan', false), width, height)) {
    frames.push({ ...frame, data: frame.data.slice() });
    if (frames.length === count) {
      break;
    }
  }
  return frames;
}

for (const threads of [true, false]) {
  describe(threads ? 'with threads' : 'without threads', () => {
    let frames;
    before(async () => {
      shutDown();
      configure({ threads });
      frames = someFrames(100);
      assert.equal((await preload()).threads, threads);
    });
    after(() => shutDown());

    it('drops all but the newest of frames that come too fast, and counts them', async () => {
      const sweep = await Sweep.begin();
      const answers = await Promise.all(frames.slice(0, 6).map((frame) => sweep.feed(frame)));
      assert.deepEqual(answers.map((answer) => answer !== null), [true, false, false, false, false, true]);
      assert.equal(sweep.droppedFrames, 4);
      assert.equal(sweep.fedFrames, 6);
      sweep.end();
    });

    it('keeps them all, in order, where it is asked to', async () => {
      const sweep = await Sweep.begin();
      const answers = await Promise.all(frames.slice(0, 20).map((frame) => sweep.feed(frame, { everyFrame: true })));
      assert.ok(answers.every((answer) => answer?.taken));
      assert.equal(sweep.droppedFrames, 0);
      assert.equal(answers[0].keyFrame, 1);
      sweep.end();
    });

    it('gives upright frames an upright preview, and names directions as they are seen', async () => {
      const sweep = await Sweep.begin();
      for (const frame of frames) {
        await sweep.feed(frame, { everyFrame: true });
      }
      const { preview } = sweep;
      assert.ok(preview.width > preview.height, `${preview.width}x${preview.height}`);
      assert.equal(preview.data.length, preview.width * preview.height * 4);
      const [topLeft, topRight, bottomRight, bottomLeft] = preview.outline;
      assert.ok(topLeft.x < topRight.x && bottomLeft.x < bottomRight.x && topLeft.y < bottomLeft.y);
      assert.ok(topRight.x > preview.width * 0.7, 'the camera goes to the right');
      assert.ok(preview.crop.width > 0 && preview.crop.x + preview.crop.width <= preview.width);
      const panorama = await sweep.finish();
      assert.equal(panorama.extent, 'whole');
      assert.ok(panorama.width > panorama.height);
      assert.ok(panorama.croppedBlob.size > 0);
      sweep.end();
    });

    it('rejects motion against the direction', async () => {
      const sweep = await Sweep.begin({ direction: 'left' });
      const codes = new Set();
      for (const frame of frames) {
        codes.add((await sweep.feed(frame, { everyFrame: true })).code);
      }
      assert.ok(codes.has('wrong-way'), [...codes].join());
      sweep.end();
    });

    it('says what is wrong with an argument', async () => {
      const sweep = await Sweep.begin();
      const rejected = (problem, text) => (error) =>
        error instanceof SweepError && error.problem === problem && text.test(error.message);
      await assert.rejects(sweep.feed({ data: new Uint8Array(8), width: 3, height: 3 }), rejected('bad-argument', /8 bytes/));
      await assert.rejects(sweep.feed('frame'), rejected('bad-argument', /a frame is/));
      await assert.rejects(sweep.feed({ data: new Uint8Array(4), width: 1, height: 1, format: 'yuv' }), rejected('bad-argument', /yuv/));
      await assert.rejects(sweep.feed(frames[0], { direction: 'sideways' }), rejected('bad-argument', /sideways/));
      assert.equal((await sweep.feed(frames[0])).code, 'normal');
      sweep.end();
      await assert.rejects(sweep.feed(frames[0]), rejected('over', /over/));
      await assert.rejects(sweep.finish(), rejected('over', /over/));
    });

    it('ends a sweep when the next one begins', async () => {
      const first = await Sweep.begin();
      await first.feed(frames[0]);
      const second = await Sweep.begin();
      assert.ok(first.isOver);
      await assert.rejects(first.feed(frames[1]), { problem: 'over' });
      assert.equal((await second.feed(frames[0])).keyFrame, 1);
      second.end();
    });

    it('tells why there is no panorama', async () => {
      const sweep = await Sweep.begin();
      const panorama = await sweep.finish();
      assert.equal(panorama.extent, 'missing');
      assert.equal(panorama.blob, null);
      assert.match(panorama.why, /\w/);
      sweep.end();
    });

    it('stops waiting when aborted, and finishes later all the same', async () => {
      const sweep = await Sweep.begin({ mostUnderWay: 8 });
      for (const frame of frames) {
        await sweep.feed(frame, { everyFrame: true });
      }
      const reason = new Error('not now');
      await assert.rejects(sweep.finish({ signal: AbortSignal.abort(reason) }), reason);
      const controller = new AbortController();
      const finishing = sweep.finish({ signal: controller.signal, onProgress: () => controller.abort(reason) });
      await assert.rejects(finishing, reason);
      const progress = [];
      const panorama = await sweep.finish({ onProgress: ({ done }) => progress.push(done) });
      assert.equal(panorama.extent, 'whole');
      assert.equal(progress.at(-1), panorama.keyFrames);
      const again = await sweep.finish();
      assert.deepEqual(new Uint8Array(await again.blob.arrayBuffer()), new Uint8Array(await panorama.blob.arrayBuffer()));
      sweep.end();
    });

    it('needs no more memory for the tenth sweep than for the third', async () => {
      const used = [];
      for (let index = 0; index < 10; ++index) {
        const sweep = await Sweep.begin();
        for (const frame of frames.slice(0, 40)) {
          await sweep.feed(frame, { everyFrame: true });
        }
        await sweep.finish();
        sweep.end();
        used.push(await memoryInUse());
      }
      assert.ok(used[9] <= used[2] * 1.1, used.join());
    });
  });
}
