// SPDX-License-Identifier: Apache-2.0
//
// Panorama stitching for the camera in a browser.
//
//     const sweep = await Sweep.begin({ direction: 'any' });
//     video.requestVideoFrameCallback(async function next() {
//       const answer = await sweep.feed(video);      // null: dropped for a newer one
//       if (answer) show(answer.advice, sweep.preview);
//       if (sweeping) video.requestVideoFrameCallback(next);
//     });
//     …
//     const panorama = await sweep.finish();
//     if (panorama.blob) save(panorama.blob);
//
// Everything runs in a worker: no call keeps the page waiting. Frames are registered one at a time, in their order.
// While one is inside, the newest of those that come waits and the others are dropped and counted.

/** A direction in which the camera moves, as the frames that are fed show it. */
export type Direction = 'any' | 'left' | 'right' | 'up' | 'down';

/**
 * What a frame is answered.
 *
 * - `pipeline-failed`: the panorama has failed; what there is can still be had
 * - `lost`: ten frames in a row were rejected; go back to where the preview ends and on from there
 * - `normal`: taken; or rejected, but not for long yet
 * - `few-details`, `very-few-details`: taken, on thin ice
 * - `wrong-way`: rejected, the camera moves against the direction that was asked for
 * - `too-fast`, `skewed`: taken
 */
export type Code =
  | 'pipeline-failed' | 'lost' | 'normal' | 'few-details' | 'very-few-details' | 'wrong-way' | 'too-fast' | 'skewed';

/** Pixels as they lie in memory. */
export interface RawPixels {
  readonly data: ArrayBuffer | ArrayBufferView;
  /** px, 1 to 16384 */
  readonly width: number;
  /** px, 1 to 16384 */
  readonly height: number;
  /** Bytes from row to row; 0 or none: no padding. */
  readonly stride?: number;
  /** How the bytes of a pixel lie: `rgba` if it is left out. Alpha is ignored. */
  readonly format?: 'rgba' | 'bgra' | 'bgr' | 'gray';
}

/** A frame. What is fed stays the caller's: a VideoFrame or an ImageBitmap is not closed, nothing is detached. */
export type Frame = VideoFrame | HTMLVideoElement | ImageBitmap | ImageData | RawPixels;

export interface Point {
  readonly x: number;
  readonly y: number;
}

export interface Rectangle extends Point {
  readonly width: number;
  readonly height: number;
}

/** Clockwise: top left, top right, bottom right, bottom left; or top, right, bottom, left. */
export type Four<T> = readonly [T, T, T, T];

/** What became of one frame. */
export interface Answer {
  readonly code: Code;
  /** The code as the library's number. */
  readonly codeNumber: number;
  /** What to tell the user, in English; empty if there is nothing to do. */
  readonly advice: string;
  /** Registered: the sweep goes on from it. */
  readonly taken: boolean;
  /** Why it was not taken, as a short clause in English. */
  readonly why: string | null;
  readonly whyNumber: number;
  /** What helps against it; may be empty. */
  readonly help: string;
  /** What the image library said of an unusable frame; may be empty. */
  readonly detail: string;
  /** Its number among the key frames, from 1; 0 if it is none. */
  readonly keyFrame: number;
  readonly keyFrames: number;
  /** Compared with the frame before, so that what follows was measured. */
  readonly registered: boolean;
  /** Where the camera goes, as far as it is known. */
  readonly direction: Direction;
  /** px of a frame scaled to a width of 300 */
  readonly moveDistance: number;
  readonly cornersFound: number;
  readonly cornersTracked: number;
  readonly inliers: number;
  /** With the last key frame, 0 to 1. */
  readonly overlap: number;
  /** The frame lies in the preview. */
  readonly placed: boolean;
  /** Degrees, at the corners of the frame as the last key frame sees it. */
  readonly angles: Four<number>;
  /** Its sides over a frame's own. */
  readonly scales: Four<number>;
  /** Spent in the library. */
  readonly milliseconds: number;
  /** Spent on fetching the pixels. */
  readonly fetchMilliseconds: number;
  readonly frameWidth: number;
  readonly frameHeight: number;
}

/** The panorama as it grows: small, at once. */
export interface Preview {
  /** R,G,B,A, without padding; what is empty is transparent. */
  readonly data: Uint8ClampedArray<ArrayBuffer>;
  readonly width: number;
  readonly height: number;
  /** The frame taken last; may reach beyond the preview. */
  readonly outline: Four<Point> | null;
  /** What will be left when the ragged border is cut off. */
  readonly crop: Rectangle;
  /** Has reached its greatest size: the panorama goes on. */
  readonly frozen: boolean;
  /** Another number: other pixels. */
  readonly version: number;
}

/** Where a sweep stands. */
export interface Status {
  readonly keyFrames: number;
  /** Of these, those that are not in the panorama yet. */
  readonly underWay: number;
  readonly pipeline: 'empty' | 'busy' | 'ready' | 'failed';
  /** From 1; 0 if all could be joined. */
  readonly firstFailedKeyFrame: number;
  readonly why: string | null;
}

/** The end of a sweep. */
export interface Panorama {
  /** `partial`: it ends where a key frame could not be joined, or the wait was ended. */
  readonly extent: 'missing' | 'partial' | 'whole';
  /** Why it is not whole, and what helps against it. */
  readonly why: string | null;
  readonly help: string;
  readonly firstFailedKeyFrame: number;
  readonly keyFrames: number;
  readonly width: number;
  readonly height: number;
  /** image/jpeg; null if the panorama is missing */
  readonly blob: Blob | null;
  /** The rectangle inside the ragged border, and what lies in it as a JPEG. */
  readonly crop: Rectangle | null;
  readonly croppedBlob: Blob | null;
}

export interface SweepOptions {
  /** Where the camera is going to move; motion against it is rejected. */
  direction?: Direction;
  /**
   * Whether frames come the right way up, as browsers deliver them. False: they lie on their side, as a sensor
   * delivers them, and so does the preview.
   */
  upright?: boolean;
  /** Key frames that may be on their way into the panorama while a frame is taken: 3. They are what takes memory. */
  mostUnderWay?: number;
  /** Ends the sweep, also while it is begun. */
  signal?: AbortSignal;
}

export interface FeedOptions {
  /** In place of the sweep's, for this frame. */
  direction?: Direction;
  /** Wait in line instead of being dropped, for a file. */
  everyFrame?: boolean;
  /** Takes a frame that waits back; of one that is inside by then, only the answer is not waited for. */
  signal?: AbortSignal;
}

export interface FinishOptions {
  /** Told of the key frames that are done. */
  onProgress?: (progress: { done: number; keyFrames: number }) => void;
  /** Ends the wait: the promise is rejected, and the sweep goes on as if it had not been asked to finish. */
  signal?: AbortSignal;
  /** False: what there is by now is the result. */
  wait?: boolean;
}

/**
 * One sweep of the camera. There is one at a time: beginning another ends the one before, which rejects everything from
 * then on with `over`.
 */
export declare class Sweep {
  private constructor();
  static begin(options?: SweepOptions): Promise<Sweep>;

  /** May be changed between frames. @throws SweepError (bad-argument) if it is none */
  direction: Direction;
  /** Whether threads are at work. */
  readonly threads: boolean;
  /** The library's version. */
  readonly version: string;
  /** As it was after the frame answered last; null before the first. */
  readonly preview: Preview | null;
  readonly isOver: boolean;
  /** Dropped ones count, too. */
  readonly fedFrames: number;
  readonly droppedFrames: number;

  /**
   * Registers one frame. All frames of a sweep should have one size. The frame may be used again, closed or changed as
   * soon as this has returned, but for an ImageBitmap and, where there is no VideoFrame, a video: these when it is answered.
   * @returns null if the frame was dropped for a newer one
   */
  feed(frame: Frame, options?: FeedOptions): Promise<Answer | null>;

  status(): Promise<Status>;

  /**
   * Waits for the frames that were fed before and for the key frames. May be called again. A frame that is fed after it
   * goes on with the sweep.
   */
  finish(options?: FinishOptions): Promise<Panorama>;

  /** Ends the sweep for good; what waits is rejected with `over`. Does nothing if it is over. */
  end(): void;
}

export type Problem =
  | 'bad-argument' | 'over' | 'directory' | 'no-panorama' | 'no-memory' | 'disk' | 'process-ends' | 'unsupported'
  | 'in-callback' | 'unexpected'
  /** The module or its worker has stopped. The next sweep gets a new one. */
  | 'crashed';

/** What the methods of a sweep reject with, but for an AbortSignal's reason. */
export declare class SweepError extends Error {
  constructor(problem: Problem, message: string);
  readonly problem: Problem;
}

export interface Configuration {
  /** Where a file of the package lies, for pages that keep them elsewhere; relative to the page. */
  locate?: (file: string) => string | URL;
  /** `auto`: threads where memory may be shared. */
  threads?: boolean | 'auto';
  /** Makes the worker of `tarnstitch/worker`, for bundlers that have a way of their own. */
  worker?: () => Worker;
}

/** Before the first sweep. @throws SweepError (bad-argument) later than that */
export declare function configure(configuration: Configuration): void;

/** Loads the module, so that the first sweep begins at once. */
export declare function preload(options?: { signal?: AbortSignal }): Promise<{ threads: boolean; version: string }>;

/** Bytes of WebAssembly memory; 0 before the module is loaded. */
export declare function memoryInUse(): Promise<number>;

/** Ends the sweep and the worker, also one that is being loaded. The next sweep loads the module again. */
export declare function shutDown(): void;
