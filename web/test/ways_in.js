// SPDX-License-Identifier: Apache-2.0
//
// The ways by which a camera's frame can reach a worker's memory, measured side by side.

/**
 * To be run in the live page, whose video shows the camera.
 * @param {number} count  frames for each way
 * @returns {Promise<Record<string, { busy: number, whole: number | null }>>} medians in ms, by the name of the way
 */
export async function waysIn(count) {
  const middle = (values) => [...values].sort((a, b) => a - b)[Math.floor(values.length / 2)];
  const video = document.getElementById('video');
  const { videoWidth: width, videoHeight: height } = video;

  const script = `
    const bytes = new Uint8Array(${width * height * 4});
    const canvas = new OffscreenCanvas(${width}, ${height});
    const context = canvas.getContext('2d', { willReadFrequently: true, alpha: false });
    const drawn = (source) => {
      context.drawImage(source, 0, 0);
      bytes.set(context.getImageData(0, 0, ${width}, ${height}).data);
    };
    onmessage = async ({ data: { way, source } }) => {
      try {
        if (way === 'rgbx') {
          await source.copyTo(bytes, { format: 'RGBX' });
        } else if (way === 'planes') {
          await source.copyTo(bytes);
        } else if (way === 'drawn') {
          drawn(source);
        } else {
          bytes.set(new Uint8Array(source));
        }
        postMessage(true);
      } catch {
        postMessage(false);
      }
      source.close?.();
    };`;
  const worker = new Worker(URL.createObjectURL(new Blob([script], { type: 'text/javascript' })));
  const answered = () => new Promise((resolve) => {
    worker.onmessage = ({ data }) => resolve(data);
  });
  const nextFrame = () => new Promise((resolve) => video.requestVideoFrameCallback(resolve));

  const plain = new OffscreenCanvas(width, height).getContext('2d', { alpha: false });
  const read = new OffscreenCanvas(width, height).getContext('2d', { alpha: false, willReadFrequently: true });
  const pixelsOf = (context) => {
    context.drawImage(video, 0, 0);
    return context.getImageData(0, 0, width, height).data.buffer;
  };
  const ways = {
    'VideoFrame of the video, transferred; copyTo in R,G,B,X there': ['rgbx', () => new VideoFrame(video)],
    'the same, copyTo in the camera’s own planes': ['planes', () => new VideoFrame(video)],
    'VideoFrame of the video, transferred; drawn to a canvas there': ['drawn', () => new VideoFrame(video)],
    'createImageBitmap, transferred; drawn to a canvas there': ['drawn', () => createImageBitmap(video)],
    'canvas on the page that is read often; the bytes transferred': ['bytes', () => pixelsOf(read)],
    'canvas on the page; the bytes transferred': ['bytes', () => pixelsOf(plain)],
  };
  const found = {};
  for (const [name, [way, take]] of Object.entries(ways)) {
    const busy = [];
    const whole = [];
    let works = true;
    for (let index = 0; works && index < count; ++index) {
      await nextFrame();
      const begun = performance.now();
      const promised = take();
      busy.push(performance.now() - begun);
      const source = await promised;
      const heard = answered();
      worker.postMessage({ way, source }, [source]);
      works = await heard;
      whole.push(performance.now() - begun);
    }
    found[name] = { busy: middle(busy), whole: works ? middle(whole) : null };
  }
  worker.terminate();
  return found;
}
