// SPDX-License-Identifier: Apache-2.0
//
// The level line: attitudes of a device, as its sensors tell them, and how its screen is tilted then.
import assert from 'node:assert/strict';
import { describe, it } from 'node:test';
import { tiltOf } from '../../live/level.js';

const toRadians = Math.PI / 180;

/** What a device tells that is held upright and then turned clockwise, as its user sees it, and leant back a little. */
function attitude(clockwise, leantBack = 20) {
  // Upwards, along the device's own axes.
  const [x, y, z] = [
    -Math.sin(clockwise * toRadians) * Math.cos(leantBack * toRadians),
    Math.cos(clockwise * toRadians) * Math.cos(leantBack * toRadians),
    Math.sin(leantBack * toRadians),
  ];
  // That is (-cos b sin g, sin b, cos b cos g), of b in -180 to 180 and g in -90 to 90 degrees.
  const facesUp = Math.sign(z) || 1;
  return {
    beta: Math.atan2(y, facesUp * Math.hypot(x, z)) / toRadians,
    gamma: Math.atan2(-x * facesUp, z * facesUp) / toRadians,
  };
}

const near = (found, expected) => assert.ok(Math.abs(found - expected) < 1e-6, `${found}, not ${expected}`);

describe('the level line', () => {
  it('is flat for a device that is held upright, and tilts with it', () => {
    for (const clockwise of [0, 10, -10, 34]) {
      for (const leantBack of [-30, 5, 45]) {
        const { beta, gamma } = attitude(clockwise, leantBack);
        near(tiltOf(beta, gamma, 0), clockwise);
      }
    }
  });

  it('is flat for a device that is held lying, whichever way', () => {
    // A page is turned by 90 degrees when the device is turned counter-clockwise.
    for (const [turned, screenAngle] of [[-90, 90], [90, 270], [90, -90], [180, 180]]) {
      for (const more of [0, 7, -7]) {
        const { beta, gamma } = attitude(turned + more);
        near(tiltOf(beta, gamma, screenAngle), more);
      }
    }
  });

  it('says nothing of a device that lies on a table', () => {
    assert.equal(tiltOf(3, -4, 0), null);
  });
});
