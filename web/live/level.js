// SPDX-License-Identifier: Apache-2.0
//
// The level line: how the device is tilted, where it tells.

const flatWithin = 1.5; // degrees
const shownWithin = 35; // degrees: beyond that the device is held on purpose

const toRadians = Math.PI / 180;

/**
 * How far the screen is turned clockwise against the horizon.
 * @param {number} beta         degrees, of a deviceorientation event
 * @param {number} gamma        the same
 * @param {number} screenAngle  degrees that the page is turned against the device, clockwise, as its user sees it
 * @returns {number | null} degrees, -180 to 180; null for a device that lies flat: gravity tells nothing then
 */
export function tiltOf(beta, gamma, screenAngle) {
  // The direction of gravity on the device's plane.
  const x = Math.cos(beta * toRadians) * Math.sin(gamma * toRadians);
  const y = Math.sin(beta * toRadians);
  if (Math.hypot(x, y) < 0.3) {
    return null;
  }
  // A page is turned clockwise when the device is turned counter-clockwise: together they are upright again.
  const tilt = Math.atan2(x, y) / toRadians + screenAngle;
  return ((((tilt + 180) % 360) + 360) % 360) - 180;
}

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
    const tilt = tiltOf(beta, gamma, window.screen.orientation?.angle ?? window.orientation ?? 0);
    this.#line.hidden = tilt === null || Math.abs(tilt) > shownWithin;
    if (this.#line.hidden) {
      return;
    }
    this.#line.style.setProperty('--tilt', `${(-tilt).toFixed(1)}deg`);
    this.#line.classList.toggle('flat', Math.abs(tilt) < flatWithin);
  }
}
