// SPDX-License-Identifier: Apache-2.0
//
// A picture to look at: moved by dragging and by the arrow keys, zoomed by pinching, by the wheel and by plus and minus.

const mostZoom = 8;

export class Viewer {
  #frame;
  #picture;
  #scale = 1;
  #x = 0;
  #y = 0;
  #pointers = new Map();

  constructor(frame, picture) {
    this.#frame = frame;
    this.#picture = picture;
    picture.addEventListener('load', () => this.fit());
    new ResizeObserver(() => this.fit()).observe(frame);
    frame.addEventListener('pointerdown', (event) => {
      frame.setPointerCapture(event.pointerId);
      this.#pointers.set(event.pointerId, event);
    });
    frame.addEventListener('pointermove', (event) => this.#move(event));
    for (const end of ['pointerup', 'pointercancel']) {
      frame.addEventListener(end, ({ pointerId }) => this.#pointers.delete(pointerId));
    }
    frame.addEventListener('wheel', (event) => {
      event.preventDefault();
      const { left, top } = frame.getBoundingClientRect();
      this.#zoom(Math.exp(-event.deltaY / 400), event.clientX - left, event.clientY - top);
    }, { passive: false });
    frame.addEventListener('dblclick', ({ clientX, clientY }) => {
      const { left, top } = frame.getBoundingClientRect();
      if (this.#scale > this.#fitting * 1.1) {
        this.fit();
      } else {
        this.#zoom(Math.max(2, 1 / this.#scale), clientX - left, clientY - top);
      }
    });
    frame.addEventListener('keydown', (event) => this.#key(event));
  }

  get #fitting() {
    const { naturalWidth: width, naturalHeight: height } = this.#picture;
    return Math.min(this.#frame.clientWidth / (width || 1), this.#frame.clientHeight / (height || 1));
  }

  fit() {
    if (this.#picture.naturalWidth === 0) {
      return; // until it is there
    }
    this.#scale = this.#fitting;
    this.#x = (this.#frame.clientWidth - this.#picture.naturalWidth * this.#scale) / 2;
    this.#y = (this.#frame.clientHeight - this.#picture.naturalHeight * this.#scale) / 2;
    this.#apply();
  }

  #zoom(factor, x, y) {
    const scale = Math.min(Math.max(this.#scale * factor, this.#fitting), Math.max(mostZoom, this.#fitting));
    this.#x = x - ((x - this.#x) * scale) / this.#scale;
    this.#y = y - ((y - this.#y) * scale) / this.#scale;
    this.#scale = scale;
    this.#apply();
  }

  #apply() {
    // The picture covers the frame where it is larger, and lies in its middle where it is smaller.
    const keep = (at, room, size) => (size <= room ? (room - size) / 2 : Math.min(0, Math.max(room - size, at)));
    this.#x = keep(this.#x, this.#frame.clientWidth, this.#picture.naturalWidth * this.#scale);
    this.#y = keep(this.#y, this.#frame.clientHeight, this.#picture.naturalHeight * this.#scale);
    this.#picture.style.transform = `translate(${this.#x}px, ${this.#y}px) scale(${this.#scale})`;
  }

  #move(event) {
    const before = this.#pointers.get(event.pointerId);
    if (!before) {
      return;
    }
    const other = [...this.#pointers.values()].find(({ pointerId }) => pointerId !== event.pointerId);
    this.#pointers.set(event.pointerId, event);
    if (!other) {
      this.#x += event.clientX - before.clientX;
      this.#y += event.clientY - before.clientY;
      this.#apply();
      return;
    }
    const { left, top } = this.#frame.getBoundingClientRect();
    const distance = (point) => Math.hypot(point.clientX - other.clientX, point.clientY - other.clientY) || 1;
    this.#zoom(distance(event) / distance(before), (event.clientX + other.clientX) / 2 - left,
      (event.clientY + other.clientY) / 2 - top);
  }

  #key(event) {
    const step = 60;
    const middle = [this.#frame.clientWidth / 2, this.#frame.clientHeight / 2];
    const actions = {
      ArrowLeft: () => (this.#x += step),
      ArrowRight: () => (this.#x -= step),
      ArrowUp: () => (this.#y += step),
      ArrowDown: () => (this.#y -= step),
      '+': () => this.#zoom(1.4, ...middle),
      '-': () => this.#zoom(1 / 1.4, ...middle),
      0: () => this.fit(),
    };
    if (actions[event.key] && !event.ctrlKey && !event.metaKey) {
      event.preventDefault();
      actions[event.key]();
      this.#apply();
    }
  }
}
