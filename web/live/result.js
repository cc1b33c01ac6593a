// SPDX-License-Identifier: Apache-2.0
//
// The end of a sweep: the small picture at once, the panorama when it is done, and what one does with it.
import { Viewer } from './viewer.js';

const $ = (id) => document.getElementById(id);

function toBlob(canvas) {
  return new Promise((resolve) => canvas.toBlob(resolve, 'image/jpeg', 0.92));
}

export class Result {
  #advice;
  #picture = $('picture');
  #whole = null;
  #cropped = null;
  #isCropped = true;
  #urls = [];
  #cancel = null;
  onAgain = () => {};

  constructor(advice) {
    this.#advice = advice;
    new Viewer($('viewer'), this.#picture);
    // Behind the viewer, which fits a picture into its frame when it is there: not before is it shown.
    this.#picture.addEventListener('load', () => (this.#picture.style.visibility = 'visible'));
    $('again').addEventListener('click', () => this.#close());
    $('crop').addEventListener('click', () => {
      this.#isCropped = !this.#isCropped;
      this.#showBlob();
    });
    $('share').addEventListener('click', () => this.#share());
    $('saving-cancel').addEventListener('click', () => this.#cancel?.abort());
  }

  get #blob() {
    return this.#isCropped && this.#cropped ? this.#cropped : this.#whole;
  }

  #open(title, text) {
    $('result').hidden = false;
    $('camera').inert = true;
    this.#whole = null;
    this.#cropped = null;
    this.#tell(title, text);
    this.#setReady(false);
    $('result-title').focus();
  }

  #tell(title, text) {
    $('result-title').textContent = title;
    $('result-text').textContent = text;
  }

  #setReady(ready) {
    $('save').setAttribute('aria-disabled', String(!ready));
    $('crop').disabled = !ready || !this.#cropped;
    $('share').disabled = !ready;
    $('result').dataset.ready = String(ready);
  }

  #setPicture(url, small) {
    this.#picture.classList.toggle('small', small);
    this.#picture.style.visibility = 'hidden';
    this.#picture.src = url;
  }

  #urlOf(blob) {
    const url = URL.createObjectURL(blob);
    this.#urls.push(url);
    return url;
  }

  #showBlob() {
    const url = this.#urlOf(this.#blob);
    this.#setPicture(url, false);
    $('crop').setAttribute('aria-pressed', String(this.#blob === this.#cropped));
    $('save').href = url;
    $('save').download = `panorama-${new Date().toISOString().slice(0, 19).replace(/[T:]/g, '-')}.jpg`;
    const file = new File([this.#blob], $('save').download, { type: 'image/jpeg' });
    $('share').hidden = !navigator.canShare?.({ files: [file] });
    this.#setReady(true);
  }

  async #share() {
    const file = new File([this.#blob], $('save').download, { type: 'image/jpeg' });
    await navigator.share({ files: [file], title: 'Panorama' }).catch(() => {});
  }

  /** @param {HTMLCanvasElement | null} small  the strip's picture */
  async show(sweep, small) {
    this.#open('Saving …', '');
    const smallBlob = small ? await toBlob(small) : null;
    if (smallBlob) {
      this.#setPicture(this.#urlOf(smallBlob), true);
    }
    $('saving').hidden = false;
    $('saving-bar').value = 0;
    $('saving-cancel').disabled = false;
    this.#cancel = new AbortController();
    const { signal } = this.#cancel;
    let panorama = null;
    let problem = '';
    try {
      panorama = await sweep
        .finish({
          signal,
          onProgress({ done, keyFrames }) {
            $('saving-text').textContent = `Saving ${done} of ${keyFrames}`;
            $('saving-bar').value = keyFrames ? done / keyFrames : 0;
          },
        })
        .catch((error) => {
          if (!signal.aborted) {
            throw error;
          }
          $('saving-cancel').disabled = true;
          return sweep.finish({ wait: false });
        });
    } catch (error) {
      problem = error.problem === 'crashed' || error.problem === 'no-memory' ? 'memory ran short' : error.message;
    }
    sweep.end();
    $('saving').hidden = true;
    if (panorama?.blob) {
      this.#whole = panorama.blob;
      this.#cropped = panorama.croppedBlob;
      this.#isCropped = Boolean(this.#cropped);
      this.#showBlob();
      const size = `${panorama.width} × ${panorama.height}, from ${panorama.keyFrames} pictures`;
      const partly = signal.aborted
        ? 'It ends where it was stopped.'
        : `It is not the whole sweep: ${panorama.why ?? 'a part could not be joined'}.${panorama.help ? ` What helps: ${panorama.help}.` : ''}`;
      this.#tell('Panorama', panorama.extent === 'whole' ? size : `${partly} ${size}`);
      this.#advice.say(panorama.extent === 'whole' ? 'The panorama is ready' : partly);
    } else {
      const why = problem || panorama?.why || 'there was nothing to join';
      await this.#small(smallBlob, `The large picture could not be made: ${why}.${panorama?.help ? ` What helps: ${panorama.help}.` : ''}`);
    }
  }

  async #small(blob, text) {
    if (blob) {
      this.#whole = blob;
      this.#isCropped = false;
      this.#showBlob();
      this.#tell('Small panorama', `${text} This is the small picture.`);
    } else {
      this.#tell('No panorama', text);
    }
    this.#advice.say(text);
  }

  async keepSmall(canvas, text) {
    this.#open('Small panorama', text);
    const blob = canvas ? await toBlob(canvas) : null;
    if (blob) {
      this.#whole = blob;
      this.#isCropped = false;
      this.#showBlob();
    } else {
      this.#tell('No panorama', text);
    }
  }

  async give(url, text) {
    const [kind, bytes] = url.split(',');
    const type = kind.slice(5).split(';')[0];
    this.#open('Small panorama', text);
    this.#whole = new Blob([Uint8Array.from(atob(bytes), (letter) => letter.charCodeAt(0))], { type });
    this.#isCropped = false;
    this.#showBlob();
  }

  #close() {
    this.#cancel?.abort();
    $('result').hidden = true;
    this.#picture.removeAttribute('src');
    this.#urls.splice(0).forEach((url) => URL.revokeObjectURL(url));
    this.onAgain();
  }
}
