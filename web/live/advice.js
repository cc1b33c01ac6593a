// SPDX-License-Identifier: Apache-2.0
//
// What the user is told while sweeping: in words, by colour and by shape, each for a second at least, so that it can
// be read, and the graver at once in place of the lighter.

const shapes = {
  hare: 'M3 11l6-6v4h4l-4 3 4 3H9v4l-6-8Zm10-6 8 7-8 7v-4l4-3-4-3V5Z', // two arrows against each other: slower
  turn: 'M12 4a8 8 0 1 1-7.7 5.9l-2.3-.6L5 4.5l4.6 4.2-2.4.6A5.5 5.5 0 1 0 12 6.5V4Z',
  level: 'M2 11h7v2H2v-2Zm13 0h7v2h-7v-2Zm-3-4a5 5 0 1 1 0 10 5 5 0 0 1 0-10Zm0 2.5a2.5 2.5 0 1 0 0 5 2.5 2.5 0 0 0 0-5Z',
  details: 'M10 3a7 7 0 0 1 5.6 11.2l5 5-1.4 1.4-5-5A7 7 0 1 1 10 3Zm0 2a5 5 0 1 0 0 10 5 5 0 0 0 0-10Z',
  lost: 'M12 2 1 21h22L12 2Zm-1 7h2v6h-2V9Zm0 8h2v2h-2v-2Z',
  pause: 'M6 4h4v16H6V4Zm8 0h4v16h-4V4Z',
  rotate: 'M7 2h10v12H7V2Zm-3 8v4a6 6 0 0 0 6 6h3l-2.5 2.5L12 24l5-5-5-5-1.5 1.5L13 18h-3a4 4 0 0 1-4-4v-4H4Z',
};

const advices = {
  'too-fast': { rank: 2, kind: 'warn', shape: 'hare', text: 'Slower' },
  'wrong-way': { rank: 3, kind: 'warn', shape: 'turn', text: 'Other way' },
  skewed: { rank: 2, kind: 'warn', shape: 'level', text: 'Hold the device level' },
  'few-details': { rank: 1, kind: 'warn', shape: 'details', text: 'Few details here: slower, more light' },
  'very-few-details': { rank: 2, kind: 'warn', shape: 'details', text: 'Hardly any details: go back a little' },
  lost: { rank: 5, kind: 'bad', shape: 'lost', text: 'Lost: move back until both pictures meet' },
  'pipeline-failed': { rank: 6, kind: 'bad', shape: 'lost', text: 'The panorama ends here. Finish to keep it' },
  hidden: { rank: 5, kind: 'note', shape: 'pause', text: 'Go on where the ghost picture fits' },
  rotated: { rank: 7, kind: 'bad', shape: 'rotate', text: 'Turn the device back as it was' },
  slow: { rank: 1, kind: 'warn', shape: 'hare', text: 'Slower: this device needs a moment' },
};

const shortest = 1000; // ms, that a message stays

export class Advice {
  #box;
  #speech;
  #shown = null;
  #since = 0;
  #timer = 0;
  #wanted = null;

  constructor(box, speech) {
    this.#box = box;
    this.#speech = speech;
  }

  /** @param {string | null} name  of the advice that holds now; none */
  set(name) {
    this.#wanted = name && advices[name] ? name : null;
    clearTimeout(this.#timer);
    const left = this.#since + shortest - performance.now();
    const graver = (advices[this.#wanted]?.rank ?? 0) > (advices[this.#shown]?.rank ?? 0);
    if (this.#wanted === this.#shown) {
      return;
    }
    if (this.#shown === null || graver || left <= 0) {
      this.#show();
    } else {
      this.#timer = setTimeout(() => this.#show(), left);
    }
  }

  clear() {
    this.#wanted = null;
    clearTimeout(this.#timer);
    this.#show();
  }

  #show() {
    this.#shown = this.#wanted;
    this.#since = performance.now();
    const advice = advices[this.#shown];
    this.#box.hidden = !advice;
    if (advice) {
      this.#box.dataset.kind = advice.kind;
      this.#box.querySelector('path').setAttribute('d', shapes[advice.shape]);
      this.#box.querySelector('span').textContent = advice.text;
      this.say(advice.text);
    }
  }

  say(text) {
    this.#speech.textContent = text;
  }
}
