// SPDX-License-Identifier: Apache-2.0
'use strict';
// Hovering only: the page says all of it without.
(() => {
  const curves = JSON.parse(document.getElementById('curves').textContent);
  const plots = document.getElementById('plots');
  const readout = document.getElementById('readout');

  /** The place in a sorted list that is nearest to a value. */
  function nearest(list, value) {
    let low = 0;
    let high = list.length - 1;
    while (high - low > 1) {
      const middle = (low + high) >> 1;
      if (list[middle] < value) {
        low = middle;
      } else {
        high = middle;
      }
    }
    return Math.abs(list[low] - value) <= Math.abs(list[high] - value) ? low : high;
  }

  let cursor = null;
  function hide() {
    cursor?.remove();
    cursor = null;
    readout.hidden = true;
  }

  plots.addEventListener('pointermove', (event) => {
    const svg = plots.querySelector('svg').getBoundingClientRect();
    const at = ((event.clientX - svg.left) / svg.width) * 1000;
    if (at < 0 || at > 1000) {
      hide();
      return;
    }
    if (!cursor) {
      cursor = plots.appendChild(document.createElement('div'));
      cursor.id = 'cursor';
    }
    cursor.style.left = `${event.clientX - plots.getBoundingClientRect().left}px`;
    const words = [];
    let frame = null;
    for (const curve of curves) {
      if (curve.at.length > 0) {
        const place = nearest(curve.at, at);
        frame ??= curve.frame[place];
        words.push(`${curve.title} ${curve.value[place]}${curve.sign}`);
      }
    }
    readout.textContent = frame === null ? '' : `Frame ${frame}: ${words.join(', ')}`;
    readout.hidden = frame === null;
  });
  plots.addEventListener('pointerleave', hide);

  let peek = null;
  function away() {
    peek?.remove();
    peek = null;
    document.querySelector('.placed.marked')?.classList.remove('marked');
  }
  function show(event) {
    away();
    const { keyFrame } = event.currentTarget.dataset;
    document.querySelector(`.placed[data-key-frame="${keyFrame}"]`)?.classList.add('marked');
    const source = document.querySelector(`#key-frame-${keyFrame} img`);
    if (source) {
      peek = document.body.appendChild(document.createElement('img'));
      peek.id = 'peek';
      peek.alt = '';
      peek.src = source.src;
    }
  }
  for (const link of document.querySelectorAll('[data-key-frame]')) {
    link.addEventListener('pointerenter', show);
    link.addEventListener('focus', show);
    link.addEventListener('pointerleave', away);
    link.addEventListener('blur', away);
  }
})();
