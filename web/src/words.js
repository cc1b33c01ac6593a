// SPDX-License-Identifier: Apache-2.0
//
// The library's numbers in the words of this package. The texts for people are the library's own; these are names to
// compare with.

export const codes = new Map([
  [-1, 'pipeline-failed'],
  [0, 'lost'],
  [1, 'normal'],
  [2, 'few-details'],
  [3, 'very-few-details'],
  [4, 'wrong-way'],
  [5, 'too-fast'],
  [6, 'skewed'],
]);

export const pipelines = new Map([[0, 'empty'], [2, 'busy'], [3, 'ready'], [4, 'failed']]);

export const extents = ['missing', 'partial', 'whole'];

export const formats = { rgba: 1, bgra: 2, bgr: 3, gray: 4 };
export const bytesPerPixel = { rgba: 4, bgra: 4, bgr: 3, gray: 1 };

/** What went wrong, by the number of the C interface; 'crashed' is this package's own. */
export const problems = new Map([
  [1, 'bad-argument'],
  [2, 'over'],
  [3, 'directory'],
  [4, 'directory'],
  [5, 'no-panorama'],
  [6, 'no-memory'],
  [7, 'disk'],
  [8, 'process-ends'],
  [100, 'over'],
  [101, 'unsupported'],
  [102, 'in-callback'],
  [103, 'unexpected'],
]);

// By the library's number, in frames that lie on their side as the library takes them.
const lying = ['any', 'down', 'up', 'right', 'left'];
// The same motion as an upright frame shows it, which is turned clockwise against the lying one.
const upright = ['any', 'left', 'right', 'down', 'up'];

/** @returns {number} the library's number of a direction, or -1 for what is no direction */
export function directionNumber(name, isUpright) {
  return (isUpright ? upright : lying).indexOf(name);
}

export function directionName(number, isUpright) {
  return (isUpright ? upright : lying)[number] ?? 'any';
}

/** Four values that belong to corners or sides, clockwise from the top(-left) one, as an upright frame has them. */
export function turnedFour(values, isUpright) {
  return isUpright ? [values[3], values[0], values[1], values[2]] : values;
}
