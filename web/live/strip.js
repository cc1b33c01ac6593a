// SPDX-License-Identifier: Apache-2.0
//
// The growing panorama, with the outline of the current frame and the rectangle that cropping will leave.

export class Strip {
  #canvas;
  #context;
  #picture = document.createElement('canvas'); // the preview's pixels
  #version = -1;
  #preview = null;

  constructor(canvas) {
    this.#canvas = canvas;
    this.#context = canvas.getContext('2d');
    new ResizeObserver(() => this.draw()).observe(canvas);
  }

  get picture() {
    return this.#version < 0 ? null : this.#picture;
  }

  clear() {
    this.#version = -1;
    this.#preview = null;
    this.draw();
  }

  show(preview) {
    if (preview && preview.version !== this.#version) {
      this.#picture.width = preview.width;
      this.#picture.height = preview.height;
      this.#picture.getContext('2d').putImageData(new ImageData(preview.data, preview.width, preview.height), 0, 0);
      this.#version = preview.version;
    }
    this.#preview = preview;
    this.draw();
  }

  draw() {
    const ratio = window.devicePixelRatio || 1;
    const width = Math.round(this.#canvas.clientWidth * ratio);
    const height = Math.round(this.#canvas.clientHeight * ratio);
    if (this.#canvas.width !== width || this.#canvas.height !== height) {
      this.#canvas.width = width;
      this.#canvas.height = height;
    }
    const context = this.#context;
    context.setTransform(1, 0, 0, 1, 0, 0);
    context.clearRect(0, 0, width, height);
    const preview = this.#preview;
    if (!preview) {
      return;
    }
    // The frame may reach beyond the picture: both are to be seen.
    const around = { left: 0, top: 0, right: preview.width, bottom: preview.height };
    for (const { x, y } of preview.outline ?? []) {
      around.left = Math.min(around.left, x);
      around.top = Math.min(around.top, y);
      around.right = Math.max(around.right, x);
      around.bottom = Math.max(around.bottom, y);
    }
    const margin = 8 * ratio;
    const scale = Math.min(
      (width - 2 * margin) / (around.right - around.left), (height - 2 * margin) / (around.bottom - around.top));
    context.setTransform(
      scale, 0, 0, scale, width / 2 - (scale * (around.left + around.right)) / 2,
      height / 2 - (scale * (around.top + around.bottom)) / 2);
    context.imageSmoothingQuality = 'high';
    context.drawImage(this.#picture, 0, 0);

    const { crop } = preview;
    if (crop && crop.width > 0) {
      context.fillStyle = 'rgb(8 12 16 / 50%)';
      context.beginPath();
      context.rect(0, 0, preview.width, preview.height);
      context.rect(crop.x, crop.y, crop.width, crop.height);
      context.fill('evenodd');
      context.lineWidth = (1.5 * ratio) / scale;
      context.setLineDash([(5 * ratio) / scale, (4 * ratio) / scale]);
      context.strokeStyle = '#ffffff';
      context.strokeRect(crop.x, crop.y, crop.width, crop.height);
      context.setLineDash([]);
    }
    if (preview.outline) {
      context.beginPath();
      preview.outline.forEach(({ x, y }, index) => (index ? context.lineTo(x, y) : context.moveTo(x, y)));
      context.closePath();
      context.lineJoin = 'round';
      context.lineWidth = (5 * ratio) / scale;
      context.strokeStyle = 'rgb(0 0 0 / 60%)';
      context.stroke();
      context.lineWidth = (2.5 * ratio) / scale;
      context.strokeStyle = '#4fd1a5';
      context.stroke();
    }
  }
}
