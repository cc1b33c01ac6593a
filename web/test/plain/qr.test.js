// SPDX-License-Identifier: Apache-2.0
//
// The QR code of the server, read by ZBar. Left out where that is not installed.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, describe, it } from 'node:test';
import { qrCells, qrCode } from '../../serve-qr.mjs';

// As a grey picture with its quiet zone, eight pixels a cell.
function pictureOf(cells) {
  const [quiet, scale] = [4, 8];
  const side = (cells.length + 2 * quiet) * scale;
  const pixels = Buffer.alloc(side * side, 255);
  for (let y = 0; y < side; ++y) {
    for (let x = 0; x < side; ++x) {
      if (cells[Math.floor(y / scale) - quiet]?.[Math.floor(x / scale) - quiet] === 1) {
        pixels[y * side + x] = 0;
      }
    }
  }
  return Buffer.concat([Buffer.from(`P5 ${side} ${side} 255\n`), pixels]);
}

describe('the QR code', () => {
  let directory;
  before(() => {
    directory = mkdtempSync(path.join(tmpdir(), 'tarn-qr-'));
  });
  after(() => rmSync(directory, { recursive: true }));

  it('is read as what it says, in every size', (test) => {
    if (spawnSync('zbarimg', ['--version']).error) {
      test.skip('no zbarimg');
      return;
    }
    for (const text of ['https://10.0.0.1', 'https://10.1.2.3:8443/', 'https://192.168.178.123:65535/',
      `https://192.168.178.123:8443/${'a'.repeat(40)}`, `https://192.168.178.123:8443/${'b'.repeat(70)}`]) {
      const picture = path.join(directory, 'code.pgm');
      writeFileSync(picture, pictureOf(qrCells(text)));
      const { stdout, stderr } = spawnSync('zbarimg', ['--raw', '--quiet', picture], { encoding: 'utf8' });
      assert.equal(stdout.trim(), text, stderr);
    }
    assert.throws(() => qrCells('c'.repeat(107)), RangeError);
  });

  it('is drawn two rows a line, light where the terminal is dark', () => {
    const cells = qrCells('https://10.1.2.3:8443/');
    const lines = qrCode('https://10.1.2.3:8443/').split('\n').map((line) => line.replace(/\u001b\[[\d;]*m/g, ''));
    assert.equal(lines.length, Math.ceil((cells.length + 4) / 2));
    const shown = lines.flatMap((line) => [[...line].map((sign) => !'█▀'.includes(sign)), [...line].map((sign) => !'█▄'.includes(sign))]);
    cells.forEach((row, y) => row.forEach((cell, x) => assert.equal(shown[y + 2][x + 2], cell === 1)));
  });
});
