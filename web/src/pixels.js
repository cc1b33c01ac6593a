// SPDX-License-Identifier: Apache-2.0
//
// A frame's pixels into the module's memory, in the worker, by the shortest way that this browser has.
import { EngineError } from './engine.js';
import { bytesPerPixel } from './words.js';

let canvas = null; // kept from frame to frame
let context = null;
let copiesRgba = true; // whether VideoFrame.copyTo converts; found out by the first frame

function drawn(engine, source, width, height) {
  if (typeof OffscreenCanvas === 'undefined') {
    throw new EngineError('unsupported', 'This browser cannot read pixels outside the page.');
  }
  if (canvas?.width !== width || canvas?.height !== height) {
    canvas = new OffscreenCanvas(width, height);
    context = canvas.getContext('2d', { willReadFrequently: true, alpha: false });
  }
  if (!context) {
    canvas = null;
    throw new EngineError('no-memory', `no memory to draw a frame of ${width}x${height} pixels`);
  }
  context.drawImage(source, 0, 0, width, height);
  const { data } = context.getImageData(0, 0, width, height);
  engine.frameStorage(data.length).set(data);
  return { width, height, stride: width * 4, format: 'rgba' };
}

async function copied(engine, frame) {
  const width = frame.displayWidth;
  const height = frame.displayHeight;
  const rect = frame.visibleRect;
  if (copiesRgba && rect && rect.width === width && rect.height === height && !frame.rotation && !frame.flip) {
    try {
      const bytes = engine.frameStorage(width * height * 4);
      const layout = [{ offset: 0, stride: width * 4 }];
      const planes = await frame.copyTo(bytes, { format: 'RGBX', layout });
      if (planes.length === 1) {
        return { width, height, stride: width * 4, format: 'rgba' };
      }
      copiesRgba = false;
    } catch {
      copiesRgba = false; // an older browser copies planes of luma and chroma only
    }
  }
  return drawn(engine, frame, width, height);
}

function rawBytes(data) {
  return ArrayBuffer.isView(data) ? new Uint8Array(data.buffer, data.byteOffset, data.byteLength) : new Uint8Array(data);
}

/**
 * @param {Engine} engine
 * @param {object} source  a VideoFrame or an ImageBitmap, which is closed, or { data, width, height, stride, format }
 * @returns what Engine.feed wants to know
 */
export async function fetchPixels(engine, source) {
  if (typeof VideoFrame !== 'undefined' && source instanceof VideoFrame) {
    try {
      return await copied(engine, source);
    } finally {
      source.close();
    }
  }
  if (typeof ImageBitmap !== 'undefined' && source instanceof ImageBitmap) {
    try {
      return drawn(engine, source, source.width, source.height);
    } finally {
      source.close();
    }
  }
  const { width, height, format = 'rgba' } = source;
  const perPixel = bytesPerPixel[format];
  const stride = source.stride || width * perPixel;
  const bytes = rawBytes(source.data);
  const used = stride * (height - 1) + width * perPixel;
  const isLength = (value) => Number.isInteger(value) && value > 0 && value < 2 ** 31;
  if (!(perPixel > 0) || ![width, height, stride].every(isLength) || stride < width * perPixel || bytes.length < used) {
    throw new EngineError('bad-argument',
      `${bytes.length} bytes are no ${width}x${height} pixels of ${format} with a stride of ${stride}`);
  }
  engine.frameStorage(used).set(bytes.subarray(0, used));
  return { width, height, stride, format };
}
