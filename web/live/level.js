// SPDX-License-Identifier: Apache-2.0
//
// The level line: how the device is tilted, where it tells.

const flatWithin = 1.5; // degrees
const shownWithin = 35; // degrees: beyond that the device is held on purpose

export class Level {
  #line;
  #asked = false;

  constructor(line) {
    this.#line = line;
  }

  /** To be called from a tap: some devices ask the user. */
  async start() {
    if (this.#asked || typeof DeviceOrientationEvent === 'undefined') {
      return;
    }
    this.#asked = true;
    const granted = await DeviceOrientationEvent.requestPermission?.().catch(() => 'denied') ?? 'granted';
    if (granted === 'granted') {
      window.addEventListener('deviceorientation', (event) => this.#turn(event));
    }
  }

  #turn({ beta, gamma }) {
    if (beta === null || gamma === null) {
      return;
    }
    // The direction of gravity on the screen, from the device's attitude.
    const toRadians = Math.PI / 180;
    const x = Math.cos(beta * toRadians) * Math.sin(gamma * toRadians);
    const y = Math.sin(beta * toRadians);
    const screenAngle = window.screen.orientation?.angle ?? window.orientation ?? 0;
    let tilt = Math.atan2(x, y) / toRadians - screenAngle;
    tilt = ((((tilt + 180) % 360) + 360) % 360) - 180;
    const lies = Math.hypot(x, y) < 0.3; // flat on a table: gravity tells nothing
    this.#line.hidden = lies || Math.abs(tilt) > shownWithin;
    this.#line.style.setProperty('--tilt', `${-tilt.toFixed(1)}deg`);
    this.#line.classList.toggle('flat', Math.abs(tilt) < flatWithin);
  }
}
