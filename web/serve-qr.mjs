// SPDX-License-Identifier: Apache-2.0
//
// A QR code for a terminal (ISO/IEC 18004): bytes, error correction L, versions 1 to 5, which hold 106 characters in
// one block: enough for an address.

const sizes = [19, 34, 55, 80, 108]; // data codewords by version
const checks = [7, 10, 15, 20, 26]; // error correction codewords

// The field of 256 elements over x^8 + x^4 + x^3 + x^2 + 1.
const powers = new Uint8Array(512);
const logarithms = new Uint8Array(256);
for (let i = 0, value = 1; i < 255; ++i) {
  powers[i] = value;
  powers[i + 255] = value;
  logarithms[value] = i;
  value = value & 128 ? (value << 1) ^ 0x11d : value << 1;
}
const times = (a, b) => (a && b ? powers[logarithms[a] + logarithms[b]] : 0);

function remainder(data, count) {
  let generator = [1];
  for (let i = 0; i < count; ++i) {
    const next = new Array(generator.length + 1).fill(0);
    generator.forEach((factor, at) => {
      next[at] ^= factor;
      next[at + 1] ^= times(factor, powers[i]);
    });
    generator = next;
  }
  const rest = [...data, ...new Array(count).fill(0)];
  for (let i = 0; i < data.length; ++i) {
    const lead = rest[i];
    generator.forEach((factor, at) => {
      rest[i + at] ^= times(factor, lead);
    });
  }
  return rest.slice(data.length);
}

function codewords(bytes, version) {
  const bits = [];
  const put = (value, count) => {
    for (let i = count - 1; i >= 0; --i) {
      bits.push((value >> i) & 1);
    }
  };
  put(4, 4); // bytes
  put(bytes.length, 8);
  bytes.forEach((byte) => put(byte, 8));
  const room = sizes[version - 1] * 8;
  put(0, Math.min(4, room - bits.length));
  put(0, (8 - (bits.length % 8)) % 8);
  for (let filler = 0; bits.length < room; ++filler) {
    put(filler % 2 ? 0x11 : 0xec, 8);
  }
  const data = [];
  for (let i = 0; i < room; i += 8) {
    data.push(parseInt(bits.slice(i, i + 8).join(''), 2));
  }
  return [...data, ...remainder(data, checks[version - 1])];
}

const masks = [
  (x, y) => (x + y) % 2,
  (x, y) => y % 2,
  (x) => x % 3,
  (x, y) => (x + y) % 3,
  (x, y) => (Math.floor(y / 2) + Math.floor(x / 3)) % 2,
  (x, y) => ((x * y) % 2) + ((x * y) % 3),
  (x, y) => (((x * y) % 2) + ((x * y) % 3)) % 2,
  (x, y) => (((x + y) % 2) + ((x * y) % 3)) % 2,
];

// 15 bits: level L, the mask, and what checks them.
function formatBits(mask) {
  const data = (1 << 3) | mask;
  let rest = data << 10;
  for (let i = 14; i >= 10; --i) {
    if ((rest >> i) & 1) {
      rest ^= 0x537 << (i - 10);
    }
  }
  return ((data << 10) | rest) ^ 0x5412;
}

function draw(words, version, mask) {
  const size = 17 + 4 * version;
  const cells = Array.from({ length: size }, () => new Array(size).fill(null));
  const set = (x, y, dark) => {
    if (x >= 0 && y >= 0 && x < size && y < size) {
      cells[y][x] = dark ? 1 : 0;
    }
  };
  for (const [left, top] of [[0, 0], [size - 7, 0], [0, size - 7]]) {
    for (let y = -1; y < 8; ++y) {
      for (let x = -1; x < 8; ++x) {
        const ring = Math.max(Math.abs(x - 3), Math.abs(y - 3));
        set(left + x, top + y, ring !== 2 && ring !== 4);
      }
    }
  }
  if (version > 1) {
    for (let y = -2; y <= 2; ++y) {
      for (let x = -2; x <= 2; ++x) {
        set(size - 7 + x, size - 7 + y, Math.max(Math.abs(x), Math.abs(y)) !== 1);
      }
    }
  }
  for (let i = 8; i < size - 8; ++i) {
    set(i, 6, i % 2 === 0);
    set(6, i, i % 2 === 0);
  }
  const format = formatBits(mask);
  for (let i = 0; i < 15; ++i) {
    const bit = (format >> i) & 1;
    if (i < 8) {
      set(8, i < 6 ? i : i + 1, bit);
      set(size - 1 - i, 8, bit);
    } else {
      set(i === 8 ? 7 : 14 - i, 8, bit);
      set(8, size - 15 + i, bit);
    }
  }
  set(8, size - 8, 1);

  const bits = words.flatMap((word) => [7, 6, 5, 4, 3, 2, 1, 0].map((bit) => (word >> bit) & 1));
  let at = 0;
  let upward = true;
  for (let right = size - 1; right > 0; right -= 2) {
    if (right === 6) {
      --right;
    }
    for (let step = 0; step < size; ++step) {
      const y = upward ? size - 1 - step : step;
      for (const x of [right, right - 1]) {
        if (cells[y][x] === null) {
          set(x, y, (bits[at++] ?? 0) ^ (masks[mask](x, y) === 0 ? 1 : 0));
        }
      }
    }
    upward = !upward;
  }
  return cells;
}

// How much a reader dislikes it: runs of one colour, blocks, what looks like a corner, unbalance.
function penalty(cells) {
  const size = cells.length;
  let sum = 0;
  let dark = 0;
  for (let i = 0; i < size; ++i) {
    for (const line of [cells[i], cells.map((row) => row[i])]) {
      const text = line.join('');
      for (const [run] of text.matchAll(/0{5,}|1{5,}/g)) {
        sum += run.length - 2;
      }
      sum += 40 * ([...text.matchAll(/(?=10111010000)/g)].length + [...text.matchAll(/(?=00001011101)/g)].length);
    }
    for (let j = 0; j < size; ++j) {
      dark += cells[i][j];
      if (i > 0 && j > 0 && new Set([cells[i][j], cells[i - 1][j], cells[i][j - 1], cells[i - 1][j - 1]]).size === 1) {
        sum += 3;
      }
    }
  }
  return sum + 10 * Math.floor(Math.abs((dark * 100) / (size * size) - 50) / 5);
}

/** @returns {number[][]} rows of cells, 1 is dark */
export function qrCells(text) {
  const bytes = [...new TextEncoder().encode(text)];
  const version = 1 + sizes.findIndex((size) => bytes.length <= size - 2);
  if (version === 0) {
    throw new RangeError('the text is too long for a QR code of this kind');
  }
  const words = codewords(bytes, version);
  return masks
    .map((_, mask) => draw(words, version, mask))
    .reduce((best, cells) => (penalty(cells) < penalty(best) ? cells : best));
}

/** As lines of half blocks, dark on light whatever the terminal's colours. */
export function qrCode(text) {
  const cells = qrCells(text);
  const quiet = 2;
  const dark = (x, y) => cells[y]?.[x] === 1;
  const lines = [];
  for (let y = -quiet; y < cells.length + quiet; y += 2) {
    let line = '';
    for (let x = -quiet; x < cells.length + quiet; ++x) {
      line += dark(x, y) ? (dark(x, y + 1) ? ' ' : '▄') : dark(x, y + 1) ? '▀' : '█';
    }
    lines.push(`\u001b[97;40m${line}\u001b[0m`);
  }
  return lines.join('\n');
}
