// SPDX-License-Identifier: Apache-2.0
//
// The C interface in the worker's JavaScript: structures read and written by the layout that the module itself
// describes, one sweep at a time, nothing kept that the module has not got.
import {
  bytesPerPixel, codes, directionName, directionNumber, extents, formats, pipelines, problems, turnedFour,
} from './words.js';

const errorNoMemory = 6;
const mostBytes = 2 ** 31; // addresses have 32 bits
const threadsOfLoops = 2; // more do not help at these sizes

/** Crosses to the page as plain data; SweepError there. */
export class EngineError extends Error {
  constructor(problem, message) {
    super(message);
    this.problem = problem;
  }
}

export class Engine {
  #c;
  #memory;
  #layout;
  #sweep = 0;
  #upright = true;
  #shown = 0; // handle of the preview that was handed out last: while we hold it, its pixels' address is its own
  #shownPixels = 0;
  #version = 0;
  #frame = 0; // storage for a frame
  #frameSize = 0;
  #endsOpen = false; // the frame fed last was taken, and is not in the panorama
  #scratch;

  constructor({ exports, memory, threads }) {
    this.#c = exports;
    this.#memory = memory;
    this.threads = threads;
    this.#layout = JSON.parse(this.#text(exports._tarn_web_layout()));
    this.#scratch = exports._malloc(4096);
    exports._tarn_web_start(threads ? threadsOfLoops : 0);
  }

  get version() {
    return this.#text(this.#c._tarn_version());
  }

  /** Bytes of WebAssembly memory: it grows and never shrinks. */
  get memoryBytes() {
    return this.#memory.buffer.byteLength;
  }

  get isBegun() {
    return this.#sweep !== 0;
  }

  begin(upright) {
    this.end();
    this.#upright = upright;
    this.#check(this.#c._tarn_web_begin(this.#scratch));
    this.#sweep = this.#view().getUint32(this.#scratch, true);
    this.#endsOpen = false;
  }

  /** Storage for a frame of so many bytes, until the next call of anything. */
  frameStorage(bytes) {
    this.#endsOpen = false; // whatever becomes of it, the frame before is overwritten
    if (bytes > this.#frameSize) {
      this.#c._free(this.#frame);
      this.#frame = bytes < mostBytes ? this.#c._malloc(bytes) : 0;
      this.#frameSize = this.#frame ? bytes : 0;
      if (!this.#frame) {
        throw new EngineError('no-memory', `no memory for a frame of ${bytes} bytes`);
      }
    }
    return new Uint8Array(this.#memory.buffer, this.#frame, bytes);
  }

  /** Registers the frame in frameStorage. */
  feed({ width, height, stride, format }, direction) {
    const hint = directionNumber(direction, this.#upright);
    if (hint < 0) {
      throw new EngineError('bad-argument', `direction is ${JSON.stringify(direction)}`);
    }
    const answer = this.#scratch;
    this.#check(this.#c._tarn_web_feed(this.#sweep, this.#frame, width, height, stride || width * bytesPerPixel[format],
      formats[format], this.#upright ? 1 : 0, hint, answer));
    const result = this.#readAnswer(answer);
    this.#endsOpen = result.taken && result.keyFrame === 0;
    return result;
  }

  #readAnswer(at) {
    const place = this.#layout.tarn_answer;
    const view = this.#view();
    const int = (name) => view.getInt32(at + place[name], true);
    const float = (name, index = 0) => view.getFloat32(at + place[name] + 4 * index, true);
    const four = (name) => turnedFour([0, 1, 2, 3].map((index) => float(name, index)), this.#upright);
    const code = int('code');
    const why = int('why');
    return {
      code: codes.get(code) ?? 'unknown',
      codeNumber: code,
      advice: this.#text(this.#c._tarn_code_advice(code)),
      taken: int('taken') !== 0,
      why: why === 0 ? null : this.#text(this.#c._tarn_reason_name(why)),
      whyNumber: why,
      help: why === 0 ? '' : this.#text(this.#c._tarn_reason_advice(why)),
      detail: this.#text(at + place.detail),
      keyFrame: int('key_frame'),
      keyFrames: int('key_frames'),
      registered: int('registered') !== 0,
      direction: directionName(int('direction'), this.#upright),
      moveDistance: float('move_distance'),
      cornersFound: int('corners_found'),
      cornersTracked: int('corners_tracked'),
      inliers: int('inliers'),
      overlap: float('overlap'),
      placed: int('placed') !== 0,
      angles: four('angles'),
      scales: four('scales'),
      milliseconds: view.getFloat64(at + place.milliseconds, true),
    };
  }

  status() {
    const place = this.#layout.tarn_status;
    this.#clear(this.#scratch, place.size);
    this.#check(this.#c._tarn_sweep_get_status(this.#sweep, this.#scratch));
    const view = this.#view();
    const int = (name) => view.getInt32(this.#scratch + place[name], true);
    const why = int('why');
    return {
      keyFrames: int('key_frames'),
      underWay: int('under_way'),
      pipeline: pipelines.get(int('pipeline')) ?? 'unknown',
      firstFailedKeyFrame: int('first_failed_key_frame'),
      why: why === 0 ? null : this.#text(this.#c._tarn_reason_name(why)),
    };
  }

  /**
   * Lets workers go on for a moment. With threads they do so by themselves and this waits for some milliseconds;
   * without, it runs the one that has waited longest.
   * @returns {boolean} whether it is worth trying again: false when nothing moves any more
   */
  letWorkersRun(most) {
    if (!this.threads) {
      return this.#c._tarn_web_run_worker() !== 0;
    }
    this.#check(this.#c._tarn_sweep_wait_for_room(this.#sweep, most, 15, this.#scratch));
    return true;
  }

  get workersQueued() {
    return this.threads ? 0 : this.#c._tarn_web_workers_queued();
  }

  /**
   * The preview with the outline of the frame taken last; its pixels only if they are new since the last call.
   * @returns null if there is none yet, or memory is short
   */
  preview() {
    const { tarn_preview_info: info, tarn_image: image } = this.#layout;
    const atPicture = this.#scratch;
    const atInfo = this.#scratch + 64;
    const atView = this.#scratch + 256;
    const atRectangle = this.#scratch + 512;
    this.#check(this.#c._tarn_web_preview(this.#sweep, atPicture, atInfo, atView));
    let view = this.#view();
    const picture = view.getUint32(atPicture, true);
    if (!picture) {
      return null;
    }
    const width = view.getInt32(atView + image.width, true);
    const height = view.getInt32(atView + image.height, true);
    const points = [0, 1, 2, 3].map((index) => {
      const x = view.getFloat32(atInfo + info.outline + 8 * index, true);
      const y = view.getFloat32(atInfo + info.outline + 8 * index + 4, true);
      return this.#upright ? { x: height - 1 - y, y: x } : { x, y };
    });
    const result = {
      width: this.#upright ? height : width,
      height: this.#upright ? width : height,
      outline: view.getInt32(atInfo + info.has_outline, true) ? turnedFour(points, this.#upright) : null,
      frozen: view.getInt32(atInfo + info.frozen, true) !== 0,
      version: this.#version,
    };
    const pixels = view.getUint32(atView + image.pixels, true);
    if (pixels === this.#shownPixels) {
      this.#c._tarn_picture_free(picture);
      return result;
    }
    const bytes = width * height * 4;
    const rgba = this.#c._malloc(bytes);
    if (!rgba || !this.#c._tarn_web_rgba(atView, this.#upright ? 1 : 0, rgba)) {
      this.#c._free(rgba);
      this.#c._tarn_picture_free(picture);
      return null; // memory is short: the one before stays
    }
    this.#c._tarn_web_inner_rectangle(0, atView, atRectangle);
    result.data = new Uint8ClampedArray(this.#memory.buffer, rgba, bytes).slice();
    view = this.#view();
    const [x, y, w, h] = [0, 4, 8, 12].map((offset) => view.getInt32(atRectangle + offset, true));
    result.crop = this.#upright ? { x: height - y - h, y: x, width: h, height: w } : { x, y, width: w, height: h };
    this.#c._free(rgba);
    this.#c._tarn_picture_free(this.#shown);
    this.#shown = picture;
    this.#shownPixels = pixels;
    result.version = ++this.#version;
    return result;
  }

  /** @param {boolean} wait  false: what there is by now is the result */
  finish(wait) {
    // The panorama reaches as far as the camera did, not only to the last key frame.
    const withLast = wait && this.#endsOpen;
    this.#endsOpen &&= !withLast;
    this.#check(this.#c._tarn_web_finish(this.#sweep, wait ? 1 : 0, withLast ? 1 : 0, this.#scratch));
    const panorama = this.#view().getUint32(this.#scratch, true);
    try {
      return this.#readPanorama(panorama);
    } finally {
      this.#c._tarn_panorama_free(panorama);
    }
  }

  #readPanorama(panorama) {
    const place = this.#layout.tarn_panorama_info;
    this.#clear(this.#scratch, place.size);
    this.#check(this.#c._tarn_panorama_get_info(panorama, this.#scratch));
    let view = this.#view();
    const int = (name) => view.getInt32(this.#scratch + place[name], true);
    const why = int('why');
    const result = {
      extent: extents[int('extent')],
      why: why === 0 ? null : this.#text(this.#c._tarn_reason_name(why)),
      help: why === 0 ? '' : this.#text(this.#c._tarn_reason_advice(why)),
      firstFailedKeyFrame: int('first_failed_key_frame'),
      keyFrames: int('key_frames'),
      width: 0,
      height: 0,
      crop: null,
      jpeg: null,
      cropped: null,
    };
    if (result.extent === 'missing') {
      return result;
    }
    const [atRectangle, atBytes, atCount, atSize] = [0, 32, 36, 40].map((offset) => this.#scratch + offset);
    const encode = (rectangle) => {
      this.#check(this.#c._tarn_web_jpeg(panorama, rectangle, atBytes, atCount, atSize));
      view = this.#view();
      const bytes = view.getUint32(atBytes, true);
      return new Uint8Array(this.#memory.buffer, bytes, view.getUint32(atCount, true)).slice();
    };
    result.jpeg = encode(0);
    result.width = view.getInt32(atSize, true);
    result.height = view.getInt32(atSize + 4, true);
    this.#c._tarn_web_inner_rectangle(panorama, 0, atRectangle);
    view = this.#view();
    const [x, y, width, height] = [0, 4, 8, 12].map((offset) => view.getInt32(atRectangle + offset, true));
    if (width > 0) {
      try {
        result.cropped = encode(atRectangle);
        result.crop = { x, y, width, height };
      } catch (error) {
        if (error.problem !== 'no-memory') {
          throw error;
        }
      }
    }
    return result;
  }

  end() {
    this.#c._tarn_picture_free(this.#shown);
    this.#shown = 0;
    this.#shownPixels = 0;
    this.#c._tarn_sweep_free(this.#sweep);
    this.#sweep = 0;
    while (!this.threads && this.#c._tarn_web_run_worker()) {
      // Workers of a sweep that is over find it out at once, and let go of their frames.
    }
  }

  #check(result) {
    if (result === 0) {
      return;
    }
    const text = result === errorNoMemory ? '' : this.#text(this.#c._tarn_last_error());
    throw new EngineError(problems.get(result) ?? 'unexpected', text || this.#text(this.#c._tarn_result_name(result)));
  }

  // A fresh view each time: memory that grows lies elsewhere.
  #view() {
    return new DataView(this.#memory.buffer);
  }

  #clear(at, size) {
    new Uint8Array(this.#memory.buffer, at, size).fill(0);
    this.#view().setUint32(at, size, true);
  }

  #text(at) {
    const bytes = new Uint8Array(this.#memory.buffer);
    let end = at;
    while (bytes[end] !== 0) {
      ++end;
    }
    return new TextDecoder().decode(bytes.slice(at, end)); // a copy: shared memory is not decoded
  }
}
