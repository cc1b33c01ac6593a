// SPDX-License-Identifier: Apache-2.0
//
// The device's camera: opened, locked while a sweep lasts, and what can go wrong in words.

/** What the page says when it has no frames. */
export const troubles = {
  insecure: ['This address is not secure', 'Browsers give a camera to pages on HTTPS or on this device only. Open the page by its https address, or stitch a video.'],
  missing: ['No camera found', 'Connect a camera and try again, or stitch a video.'],
  refused: ['The camera was refused', 'Allow the camera for this page in the browser’s settings, then try again. The pictures stay on this device.'],
  busy: ['The camera is in use', 'Another application or page seems to hold it. Close that one and try again.'],
  lost: ['The camera has stopped', 'It was disconnected or taken by something else. What was swept so far is kept.'],
  vectors: ['This browser is too old', 'It lacks WebAssembly SIMD. Any browser of the last years will do.'],
  module: ['The stitching could not be loaded', 'Check the connection and try again.'],
  video: ['This video cannot be played', 'The browser knows no way to decode it. Try an MP4 with H.264 or a WebM.'],
};

function troubleOf(error) {
  switch (error?.name) {
    case 'NotAllowedError':
    case 'SecurityError':
      return 'refused';
    case 'NotFoundError':
    case 'OverconstrainedError':
      return 'missing';
    case 'NotReadableError':
    case 'AbortError':
      return 'busy';
    default:
      return 'missing';
  }
}

export class Camera {
  #video;
  #stream = null;
  #facing = 'environment';
  onLost = () => {};

  constructor(video) {
    this.#video = video;
  }

  get track() {
    return this.#stream?.getVideoTracks()[0] ?? null;
  }

  get isOpen() {
    return this.track?.readyState === 'live';
  }

  /** @returns {Promise<string | null>} the trouble, if there is one */
  async open() {
    this.close();
    if (!window.isSecureContext || !navigator.mediaDevices?.getUserMedia) {
      return 'insecure';
    }
    try {
      this.#stream = await navigator.mediaDevices.getUserMedia({
        audio: false,
        video: {
          facingMode: { ideal: this.#facing },
          width: { ideal: 1280 },
          height: { ideal: 720 },
          frameRate: { ideal: 30 },
        },
      });
    } catch (error) {
      return troubleOf(error);
    }
    this.track.addEventListener('ended', () => this.onLost());
    this.#video.srcObject = this.#stream;
    await this.#video.play().catch(() => {});
    return null;
  }

  close() {
    this.#stream?.getTracks().forEach((track) => track.stop());
    this.#stream = null;
    this.#video.srcObject = null;
  }

  async count() {
    const devices = await navigator.mediaDevices?.enumerateDevices?.() ?? [];
    return devices.filter(({ kind }) => kind === 'videoinput').length;
  }

  flip() {
    this.#facing = this.#facing === 'environment' ? 'user' : 'environment';
    return this.open();
  }

  /** Brightness and colours as they are now, or by themselves again: of what the device lets us decide. */
  async lock(locked) {
    const abilities = this.track?.getCapabilities?.() ?? {};
    const value = locked ? 'manual' : 'continuous';
    const advanced = ['exposureMode', 'whiteBalanceMode', 'focusMode']
      .filter((mode) => abilities[mode]?.includes(value))
      .map((mode) => ({ [mode]: value })); // one by one: a set of them is heeded as a whole, or not at all
    if (advanced.length > 0) {
      await this.track.applyConstraints({ advanced }).catch(() => {});
    }
  }
}

/** Calls back for each new frame that the video shows, until told to stop. @returns {() => void} */
export function eachFrame(video, take) {
  let going = true;
  let handle = 0;
  const byFrames = 'requestVideoFrameCallback' in video;
  const ask = () => {
    handle = byFrames ? video.requestVideoFrameCallback(next) : requestAnimationFrame(next);
  };
  let lastTime = -1;
  function next() {
    if (!going) {
      return;
    }
    ask();
    if (video.readyState >= 2 && (byFrames || video.currentTime !== lastTime)) {
      lastTime = video.currentTime;
      take();
    }
  }
  ask();
  return () => {
    going = false;
    if (byFrames) {
      video.cancelVideoFrameCallback(handle);
    } else {
      cancelAnimationFrame(handle);
    }
  };
}
