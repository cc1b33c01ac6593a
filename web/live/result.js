// SPDX-License-Identifier: Apache-2.0
//
// The end of a sweep: the small picture at once, the panorama when it is done, and what one does with it.
import { keepPanorama } from './kept.js';
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
  isSaving = false;

  constructor(advice) {
    this.#advice = advice;
    new Viewer($('viewer'), this.#picture);
    // Behind the viewer, which fits a picture into its frame when it is there: not before is it shown.
    this.#picture.addEventListener('load', () => (this.#picture.style.visibility = 'visible'));
    $('again').addEventListener('click', () => {
      this.close();
      this.onAgain();
    });
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
    if (!ready) {
      $('save').removeAttribute('href');
    }
    $('again').disabled = this.isSaving;
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

  /**
   * @param {HTMLCanvasElement | null} small  the strip's picture
   * @param {string} trouble  what ended the sweep, if it was not its user
   */
  async show(sweep, small, trouble = '') {
    this.isSaving = true;
    this.#cancel = new AbortController();
    const { signal } = this.#cancel;
    this.#open('Saving …', trouble);
    $('saving').hidden = false;
    $('saving-text').textContent = 'Saving …';
    $('saving-bar').value = 0;
    $('saving-cancel').disabled = false;
    const smallBlob = small ? await toBlob(small) : null;
    if (smallBlob) {
      this.#setPicture(this.#urlOf(smallBlob), true);
    }
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
    this.isSaving = false;
    $('saving').hidden = true;
    this.#setReady(false);
    if (panorama?.blob) {
      this.#whole = panorama.blob;
      this.#cropped = panorama.croppedBlob;
      this.#isCropped = Boolean(this.#cropped);
      this.#showBlob();
      keepPanorama({ whole: this.#whole, cropped: this.#cropped });
      const size = `${panorama.width} × ${panorama.height}, from ${panorama.keyFrames} pictures`;
      const partly = signal.aborted
        ? 'It ends where it was stopped.'
        : `It is not the whole sweep: ${panorama.why ?? 'a part could not be joined'}.${panorama.help ? ` What helps: ${panorama.help}.` : ''}`;
      const wrong = [trouble, panorama.extent === 'whole' ? '' : partly].filter(Boolean).join(' ');
      this.#tell('Panorama', wrong ? `${wrong} ${size}` : size);
      this.#advice.say(wrong || 'The panorama is ready');
    } else {
      const why = problem || panorama?.why || 'there was nothing to join';
      this.#small(smallBlob, `${trouble ? `${trouble} ` : ''}The large picture could not be made: ${why}.${panorama?.help ? ` What helps: ${panorama.help}.` : ''}`);
    }
  }

  #small(blob, text) {
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

  /** What was kept when the page was closed. */
  give({ whole, cropped, isSmall }, text) {
    this.#open(isSmall ? 'Small panorama' : 'Panorama', text);
    this.#whole = whole;
    this.#cropped = cropped;
    this.#isCropped = Boolean(cropped);
    this.#showBlob();
  }

  close() {
    $('result').hidden = true;
    this.#picture.style.visibility = 'hidden';
    this.#picture.removeAttribute('src');
    this.#urls.splice(0).forEach((url) => URL.revokeObjectURL(url));
  }
}
