// SPDX-License-Identifier: Apache-2.0
//
// All kinds of frames that the package takes, in a browser.
import assert from 'node:assert/strict';

/**
 * To be run in the live page: feeds the same two pictures as each kind that the browser knows.
 * @returns {Promise<Record<string, { taken: boolean, inliers: number, moveDistance: number, isLeft: boolean } | string>>}
 *          what the second was answered and whether it was left to its owner, by the kind; of wrong ones the problem
 */
export async function feedAllKinds() {
  const { Sweep } = await import(new URL('tarnstitch/index.js', location.href).href);
  const [width, height] = [480, 360];
  const canvases = [0, 12].map((shift) => {
    const canvas = document.createElement('canvas');
    [canvas.width, canvas.height] = [width, height];
    const paint = canvas.getContext('2d', { willReadFrequently: true });
    let seed = 7;
    const random = (below) => {
      seed = (Math.imul(seed, 1103515245) + 12345) & 0x7fffffff;
      return (seed >> 8) % below;
    };
    paint.fillRect(0, 0, width, height);
    for (let block = 0; block < 1500; ++block) {
      paint.fillStyle = `rgb(${random(256)} ${random(256)} ${random(256)})`;
      paint.fillRect(random(width + 40) - shift, random(height), 4 + random(40), 4 + random(40));
    }
    return canvas;
  });
  const imageData = (canvas) => canvas.getContext('2d').getImageData(0, 0, width, height);
  const kinds = {
    raw: (canvas) => ({ data: imageData(canvas).data.buffer, width, height, stride: width * 4, format: 'rgba' }),
    ImageData: imageData,
    ImageBitmap: (canvas) => createImageBitmap(canvas),
    ...(typeof VideoFrame === 'undefined' ? {} : { VideoFrame: (canvas) => new VideoFrame(canvas, { timestamp: 0 }) }),
  };
  const found = {};
  for (const [kind, make] of Object.entries(kinds)) {
    const sweep = await Sweep.begin();
    await sweep.feed(await make(canvases[0]));
    const frame = await make(canvases[1]);
    const { taken, inliers, moveDistance } = await sweep.feed(frame);
    const isLeft = (frame.displayWidth ?? frame.width) === width && (frame.data?.byteLength ?? 1) > 0;
    found[kind] = { taken, inliers, moveDistance, isLeft };
    frame.close?.();
    if (frame.close) {
      found[`closed ${kind}`] = await sweep.feed(frame).then(() => 'taken', ({ name, problem }) => `${name} ${problem}`);
    }
    sweep.end();
  }
  const sweep = await Sweep.begin();
  found['video without a frame'] = await sweep.feed(document.createElement('video'))
    .then(() => 'taken', ({ name, problem }) => `${name} ${problem}`);
  sweep.end();
  return found;
}

export function checkAllKinds(found) {
  const { raw, ...others } = found;
  assert.ok(raw.taken && raw.inliers > 20 && raw.moveDistance > 1, JSON.stringify(found));
  for (const [kind, answer] of Object.entries(others)) {
    if (typeof answer === 'string') {
      assert.equal(answer, 'SweepError bad-argument', kind);
    } else {
      assert.ok(answer.taken && answer.isLeft && answer.inliers > 20, `${kind}: ${JSON.stringify(answer)}`);
      // Drawing may round a colour otherwise.
      assert.ok(Math.abs(answer.moveDistance - raw.moveDistance) < 0.1, `${kind}: ${JSON.stringify(found)}`);
    }
  }
}
