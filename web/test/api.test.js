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

    it('takes a frame as it was when it was fed, though it has to wait', async () => {
      const sweep = await Sweep.begin();
      const around = new Uint8Array(frames[0].data.length + 64);
      const data = around.subarray(32, 32 + frames[0].data.length);
      const answers = [];
      for (const frame of frames.slice(0, 12)) {
        data.set(frame.data);
        answers.push(sweep.feed({ data, width, height }, { everyFrame: true }));
      }
      const found = await Promise.all(answers);
      sweep.end();
      const again = await Sweep.begin();
      for (const [index, frame] of frames.slice(0, 12).entries()) {
        const { moveDistance, cornersTracked } = await again.feed(frame, { everyFrame: true });
        assert.deepEqual([found[index].moveDistance, found[index].cornersTracked], [moveDistance, cornersTracked]);
      }
      again.end();
    });

    it('takes rows with padding, and the formats that there are', async () => {
      const [first, second] = frames;
      const kinds = { rgba: [0, 1, 2, 3], bgra: [2, 1, 0, 3], bgr: [2, 1, 0] };
      const found = {};
      for (const [format, channels] of Object.entries(kinds)) {
        const stride = width * channels.length + 20;
        const padded = ({ data }) => {
          const bytes = new Uint8Array(stride * (height - 1) + width * channels.length).fill(170);
          for (let y = 0; y < height; ++y) {
            for (let x = 0; x < width; ++x) {
              channels.forEach((channel, at) => {
                bytes[y * stride + x * channels.length + at] = data[(y * width + x) * 4 + channel];
              });
            }
          }
          return { data: bytes.buffer, width, height, stride, format };
        };
        const sweep = await Sweep.begin();
        await sweep.feed(padded(first), { everyFrame: true });
        const { moveDistance, cornersFound, inliers } = await sweep.feed(padded(second), { everyFrame: true });
        found[format] = { moveDistance, cornersFound, inliers, preview: sweep.preview.data };
        sweep.end();
      }
      assert.ok(found.rgba.inliers > 0);
      assert.deepEqual(found.bgra, found.rgba);
      assert.deepEqual(found.bgr, found.rgba);
      const gray = await Sweep.begin();
      const { taken } = await gray.feed({ data: first.data.filter((_, at) => at % 4 === 1), width, height, format: 'gray' });
      assert.ok(taken);
      gray.end();
    });

    it('finishes with the frames that were fed before, and goes on with those after', async () => {
      const sweep = await Sweep.begin();
      const answers = frames.slice(0, 60).map((frame) => sweep.feed(frame, { everyFrame: true }));
      const [first, twin] = await Promise.all([sweep.finish(), sweep.finish()]);
      assert.ok((await Promise.all(answers)).every((answer) => answer?.taken));
      assert.equal(first.extent, 'whole');
      assert.equal(twin.width, first.width);
      for (const frame of frames.slice(60)) {
        assert.ok((await sweep.feed(frame, { everyFrame: true })).taken);
      }
      const whole = await sweep.finish();
      assert.equal(whole.extent, 'whole');
      assert.ok(whole.keyFrames > first.keyFrames && whole.width > first.width, `${first.width} and ${whole.width}`);
      sweep.end();
    });

    it('ends with the frame that was taken last, though others were refused since', async () => {
      for (const upright of [true, false]) {
        const sweep = await Sweep.begin({ upright });
        for (const frame of frames.slice(0, 8)) {
          assert.ok((await sweep.feed(frame, { everyFrame: true })).taken);
        }
        for (const [wide, high] of [[20000, 50], [1, 20000]]) {
          await assert.rejects(sweep.feed({ data: new Uint8Array(4 * wide * high), width: wide, height: high }), { problem: 'bad-argument' });
        }
        const panorama = await sweep.finish();
        assert.equal(panorama.extent, 'whole');
        assert.ok(panorama.blob.size > 0);
        sweep.end();
      }
    });

    it('takes what there is, when it is not to wait', async () => {
      const sweep = await Sweep.begin();
      for (const frame of frames) {
        await sweep.feed(frame, { everyFrame: true });
      }
      const { extent, blob } = await sweep.finish({ wait: false });
      assert.ok(['partial', 'whole'].includes(extent) === Boolean(blob), extent);
      assert.equal((await sweep.finish()).extent, 'whole');
      sweep.end();
    });

    it('gives frames that wait back when it is aborted, and ends with its own signal', async () => {
      const controller = new AbortController();
      const sweep = await Sweep.begin({ signal: controller.signal });
      const reason = new Error('not this one');
      const one = new AbortController();
      const answers = frames.slice(0, 4).map((frame, index) =>
        sweep.feed(frame, { everyFrame: true, signal: index === 2 ? one.signal : undefined }));
      const refused = assert.rejects(answers[2], reason);
      await Promise.resolve().then(() => {}).then(() => {}); // until the frames stand in line
      one.abort(reason);
      await refused;
      assert.deepEqual((await Promise.all([answers[0], answers[1], answers[3]])).map(({ taken }) => taken), [true, true, true]);
      await assert.rejects(sweep.feed(frames[4], { signal: AbortSignal.abort(reason) }), reason);
      assert.equal(sweep.droppedFrames, 0);
      const finishing = assert.rejects(sweep.finish(), { problem: 'over' });
      controller.abort();
      assert.ok(sweep.isOver);
      await finishing;
      await assert.rejects(sweep.status(), { problem: 'over' });
      await assert.rejects(Sweep.begin({ signal: controller.signal }), { name: 'AbortError' });
      await assert.rejects(preload({ signal: controller.signal }), { name: 'AbortError' });
    });

    it('begins two sweeps at once, of which the second goes on', async () => {
      const [first, second] = await Promise.all([Sweep.begin(), Sweep.begin({ direction: 'right' })]);
      assert.ok(first.isOver && !second.isOver);
      await assert.rejects(first.feed(frames[0]), { problem: 'over' });
      assert.equal((await second.feed(frames[0])).keyFrame, 1);
      second.end();
      second.end();
    });

    it('says what is wrong with an argument', async () => {
      const sweep = await Sweep.begin();
      const rejected = (problem, text) => (error) =>
        error instanceof SweepError && error.problem === problem && text.test(error.message);
      await assert.rejects(sweep.feed({ data: new Uint8Array(8), width: 3, height: 3 }), rejected('bad-argument', /8 bytes/));
      await assert.rejects(sweep.feed('frame'), rejected('bad-argument', /a frame is/));
      await assert.rejects(sweep.feed({ data: new Uint8Array(4), width: 1, height: 1, format: 'yuv' }), rejected('bad-argument', /yuv/));
      // A length that would not fit into an address is not cut off.
      await assert.rejects(sweep.feed({ data: new Uint8Array(64), width: 4, height: 1, stride: 2 ** 32 + 16 }), rejected('bad-argument', /stride/));
      await assert.rejects(sweep.feed({ data: new Uint8Array(64), width: 1.5, height: 1 }), rejected('bad-argument', /1.5x1/));
      await assert.rejects(sweep.feed({ data: new Uint8Array(4 * 20000), width: 20000, height: 1 }), rejected('bad-argument', /\w/));
      await assert.rejects(sweep.feed(frames[0], { direction: 'sideways' }), rejected('bad-argument', /sideways/));
      assert.throws(() => { sweep.direction = 'sideways'; }, rejected('bad-argument', /sideways/));
      await assert.rejects(Sweep.begin({ direction: 'sideways' }), rejected('bad-argument', /sideways/));
      await assert.rejects(Sweep.begin({ mostUnderWay: NaN }), rejected('bad-argument', /mostUnderWay/));
      assert.throws(() => configure({ threads }), rejected('bad-argument', /configure/));
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

    it('can be shut down while it is loaded, and begun anew', async () => {
      shutDown();
      const begun = assert.rejects(Sweep.begin(), { problem: 'crashed', message: /shut down/ });
      shutDown();
      configure({ threads });
      const sweep = await Sweep.begin();
      await begun;
      assert.equal((await sweep.feed(frames[0])).keyFrame, 1);
      const lost = assert.rejects(sweep.feed(frames[1]), (error) => error instanceof SweepError);
      shutDown();
      await lost;
      assert.ok(sweep.isOver);
      await assert.rejects(sweep.finish(), { problem: 'over' });
      assert.equal(await memoryInUse(), 0);
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
