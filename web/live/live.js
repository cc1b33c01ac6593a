// SPDX-License-Identifier: Apache-2.0
//
// The page: the states of a sweep and what each tap does in them.
//
//   starting → ready → sweeping ⇄ paused → result → ready
//                 ↘ trouble ↗
import { Advice } from './advice.js';
import { Camera, eachFrame, troubles } from './camera.js';
import { forget, keepSmall, takeBack } from './kept.js';
import { Level } from './level.js';
import { Result } from './result.js';
import { Strip } from './strip.js';
import { Sweep, configure, preload } from './tarnstitch/index.js';

const $ = (id) => document.getElementById(id);
const video = $('video');
const shutter = $('shutter');

const camera = new Camera(video);
const strip = new Strip($('strip-picture'));
const advice = new Advice($('warning'), $('speech'));
const level = new Level($('level'));
const result = new Result(advice);

let state = 'starting';
let sweep = null;
let stopFrames = () => {};
let direction = 'any';
let frameSize = null; // of the sweep's first frame
let playsFile = false;
let turn = 0; // raised when what is awaited is not wanted any more

// For a trial of the build without threads, where the address asks for it.
if (new URLSearchParams(location.search).get('threads') === 'no') {
  configure({ threads: false });
}

function enter(next) {
  state = next;
  document.body.dataset.state = next;
  const sweeping = next === 'sweeping' || next === 'paused';
  shutter.disabled = !sweeping && next !== 'ready';
  shutter.setAttribute('aria-label', sweeping ? 'Finish the sweep' : 'Start the sweep');
  $('flip').disabled = sweeping;
  $('file').disabled = sweeping;
}

function showTrouble(name) {
  const [title, text] = troubles[name];
  $('trouble-title').textContent = title;
  $('trouble-text').textContent = text;
  $('trouble').hidden = false;
  $('camera').inert = true;
  enter('trouble');
  $('trouble-again').focus();
}

function hideTrouble() {
  $('trouble').hidden = true;
  $('camera').inert = false;
}

// What the arrow shows: the hint, or both ways until the direction is known.
const ways = ['any', 'right', 'left', 'down', 'up'];
const wayNames = { any: 'any way', right: 'right', left: 'left', down: 'down', up: 'up' };
let knownDirection = 'any';
function showDirection() {
  const shown = direction === 'any' ? knownDirection : direction;
  $('direction').dataset.way = shown;
  $('direction-text').textContent = wayNames[shown];
  $('direction').setAttribute('aria-label', `Direction: ${wayNames[shown]}. Tap to turn.`);
}

$('direction').addEventListener('click', () => {
  const shown = direction === 'any' ? knownDirection : direction;
  direction = ways[(ways.indexOf(shown) + 1) % ways.length];
  if (sweep) {
    sweep.direction = direction;
  }
  showDirection();
});

// The ghost: the last frame that was taken, over the finder while the way back is looked for.
const ghost = $('ghost');
const ghostWidth = 360;
const candidates = [document.createElement('canvas'), document.createElement('canvas')];
function keepCandidate() {
  const canvas = candidates[0];
  canvas.width = ghostWidth;
  canvas.height = Math.max(1, Math.round((ghostWidth * video.videoHeight) / video.videoWidth));
  canvas.getContext('2d').drawImage(video, 0, 0, canvas.width, canvas.height);
}
function showGhost(shown) {
  const taken = candidates[1];
  if (shown && ghost.hidden && taken.width > 0) {
    ghost.width = taken.width;
    ghost.height = taken.height;
    ghost.getContext('2d').drawImage(taken, 0, 0);
  }
  ghost.hidden = !shown;
}

// More than two thirds of the last frames dropped: the device cannot follow.
const fewFrames = 30;
const counted = { fed: 0, dropped: 0, isSlow: false };
function isSlow() {
  const fed = sweep.fedFrames - counted.fed;
  if (fed >= fewFrames) {
    counted.isSlow = (sweep.droppedFrames - counted.dropped) * 3 > fed * 2;
    counted.fed = sweep.fedFrames;
    counted.dropped = sweep.droppedFrames;
  }
  return counted.isSlow;
}

function adviceFor(answer) {
  if (answer.code !== 'normal') {
    return answer.code;
  }
  if (!answer.taken) {
    return answer.whyNumber === 0 ? null : undefined; // not for long yet: what is shown stays
  }
  return isSlow() ? 'slow' : null;
}

let inside = 0;
async function takeFrame() {
  if (state !== 'sweeping' || !sweep || video.videoWidth === 0) {
    return;
  }
  const size = `${video.videoWidth}x${video.videoHeight}`;
  frameSize ??= size;
  if (size !== frameSize) {
    advice.set('rotated');
    return;
  }
  if (inside === 0) {
    keepCandidate();
  }
  ++inside;
  const asked = sweep;
  try {
    const answer = await asked.feed(video, { everyFrame: playsFile });
    if (answer && asked === sweep && (state === 'sweeping' || playsFile)) {
      hear(answer);
    }
  } catch (error) {
    if (asked === sweep && state === 'sweeping') {
      rescue(error);
    }
  } finally {
    --inside;
  }
}

function hear(answer) {
  if (answer.taken) {
    candidates.reverse();
    showGhost(false);
  }
  const next = adviceFor(answer);
  if (next !== undefined) {
    advice.set(next);
  }
  if (answer.code === 'lost') {
    showGhost(true); // and the strip stands still
  } else {
    strip.show(sweep.preview);
  }
  if (answer.direction !== knownDirection) {
    knownDirection = answer.direction;
    showDirection();
  }
  document.body.dataset.frames = sweep.fedFrames;
  document.body.dataset.dropped = sweep.droppedFrames;
  document.body.dataset.keyFrames = answer.keyFrames;
}

// The module has stopped or memory is short: what there is by now is kept.
function rescue(error) {
  leaveFinder();
  enter('result');
  if (playsFile) {
    closeFile();
  }
  const done = sweep;
  sweep = null;
  if (error?.problem === 'crashed') {
    result.keepSmall(strip.picture, 'Memory ran short. The small picture was kept.');
  } else {
    const text = error?.problem === 'no-memory' ? 'Memory ran short.' : `Something went wrong (${error?.message ?? error}).`;
    result.show(done, strip.picture, text);
  }
}

function leaveFinder() {
  ++turn;
  stopFrames();
  stopFrames = () => {};
  showGhost(false);
  advice.clear();
  camera.lock(false);
}

async function start() {
  const asked = ++turn;
  forget();
  enter('sweeping');
  frameSize = null;
  knownDirection = 'any';
  showDirection();
  Object.assign(counted, { fed: 0, dropped: 0, isSlow: false });
  strip.clear();
  candidates.forEach((canvas) => (canvas.width = 0));
  level.start();
  camera.lock(true);
  try {
    const begun = await Sweep.begin({ direction });
    if (asked !== turn) {
      begun.end();
      return false;
    }
    sweep = begun;
    document.body.dataset.threads = String(sweep.threads);
  } catch {
    if (asked === turn) {
      leaveFinder();
      if (playsFile) {
        closeFile();
      }
      showTrouble('module');
    }
    return false;
  }
  advice.say('Sweeping');
  return true;
}

async function finish() {
  if (!sweep) {
    leaveFinder();
    if (playsFile) {
      closeFile();
    }
    openCamera();
    return;
  }
  leaveFinder();
  enter('result');
  if (playsFile) {
    closeFile();
  }
  $('camera').inert = true;
  const done = sweep;
  sweep = null;
  await result.show(done, strip.picture);
}

shutter.addEventListener('click', async () => {
  if (state === 'ready') {
    if (await start()) {
      takeFrame();
      stopFrames = eachFrame(video, takeFrame);
    }
  } else if (state === 'sweeping' || state === 'paused') {
    finish();
  }
});

result.onAgain = () => {
  forget();
  $('camera').inert = false;
  strip.clear();
  openCamera();
  shutter.focus();
};

async function openCamera() {
  hideTrouble();
  if (camera.isOpen) {
    await video.play().catch(() => {});
    enter('ready');
    return;
  }
  enter('starting');
  const trouble = await camera.open();
  if (playsFile) {
    return;
  }
  if (trouble) {
    showTrouble(trouble);
    return;
  }
  enter('ready');
  $('flip').hidden = (await camera.count()) < 2;
}

camera.onLost = () => {
  if (state === 'sweeping' || state === 'paused') {
    finish();
  } else if (state === 'ready') {
    showTrouble('lost');
  }
};

$('trouble-again').addEventListener('click', () => openCamera());
$('trouble-file').addEventListener('click', () => $('file-input').click());
$('flip').addEventListener('click', async () => {
  enter('starting');
  const trouble = await camera.flip();
  if (trouble) {
    showTrouble(trouble);
  } else {
    enter('ready');
  }
});

// A video file instead of the camera: frame by frame, none left out.
const fileStep = 1 / 30; // s

function closeFile() {
  playsFile = false;
  URL.revokeObjectURL(video.src);
  video.removeAttribute('src');
  video.load();
}

function when(target, type, failure) {
  return new Promise((resolve, reject) => {
    target.addEventListener(type, resolve, { once: true });
    target.addEventListener(failure, reject, { once: true });
  });
}

async function stitchFile(file) {
  leaveFinder();
  sweep?.end();
  sweep = null;
  playsFile = true;
  camera.close();
  hideTrouble();
  const loaded = when(video, 'loadeddata', 'error');
  video.src = URL.createObjectURL(file);
  try {
    await loaded;
  } catch {
    closeFile();
    showTrouble('video');
    return;
  }
  if (!(await start())) {
    return;
  }
  const asked = turn;
  const end = Number.isFinite(video.duration) ? video.duration : 0;
  for (let time = fileStep / 2; time < end && asked === turn; time += fileStep) {
    const sought = when(video, 'seeked', 'error');
    video.currentTime = time;
    await sought.catch(() => {});
    if (asked === turn) {
      await takeFrame();
    }
  }
  if (asked === turn) {
    finish();
  }
}

$('file-input').addEventListener('change', ({ target }) => {
  if (target.files[0]) {
    stitchFile(target.files[0]);
    target.value = '';
  }
});
$('file').addEventListener('click', () => $('file-input').click());
const isBusy = () => state === 'sweeping' || state === 'paused' || result.isSaving; // a sweep would be lost
for (const type of ['dragenter', 'dragover']) {
  document.addEventListener(type, (event) => {
    event.preventDefault();
    $('drop').hidden = isBusy();
  });
}
document.addEventListener('dragleave', (event) => {
  if (!event.relatedTarget) {
    $('drop').hidden = true;
  }
});
document.addEventListener('drop', (event) => {
  event.preventDefault();
  $('drop').hidden = true;
  const file = event.dataTransfer?.files[0];
  if (file && !isBusy()) {
    result.close();
    $('camera').inert = false;
    stitchFile(file);
  }
});

// Out of sight the camera gives no frames. The sweep waits, and the ghost shows where it goes on.
function keepSmallPicture() {
  if (state === 'sweeping' || state === 'paused' || result.isSaving) {
    keepSmall(strip.picture);
  }
}
document.addEventListener('visibilitychange', () => {
  if (document.hidden) {
    keepSmallPicture();
    if (state === 'sweeping' && !playsFile) {
      enter('paused');
    }
  } else if (state === 'paused') {
    enter('sweeping');
    forget();
    video.play().catch(() => {});
    if (sweep?.preview) {
      advice.set('hidden');
      showGhost(true);
    }
  }
});
addEventListener('pagehide', keepSmallPicture);

async function giveBack() {
  const kept = await takeBack();
  if (kept && state === 'starting') {
    enter('result');
    result.give(kept, kept.isSmall
      ? 'The page was closed in mid-sweep. The small picture was kept.'
      : 'The page was closed before. The panorama was kept.');
  }
  return kept && state === 'result';
}

showDirection();
giveBack().then((given) => {
  if (!given && state === 'starting') {
    openCamera();
  }
});
// A newer version of the page, which an earlier visit has fetched, takes over before anything has begun.
async function renew() {
  const { serviceWorker } = navigator;
  const waiting = (await serviceWorker?.getRegistration())?.waiting;
  const isIdle = () => !isBusy() && state !== 'result';
  if (waiting && isIdle()) {
    serviceWorker.addEventListener('controllerchange', () => isIdle() && location.reload(), { once: true });
    waiting.postMessage('take over');
  }
}

// Keeps the page for visits without a network. What that takes of the processors would cost a sweep frames: it waits
// until there is none.
async function keepForOffline() {
  do {
    await new Promise((resolve) => setTimeout(resolve, 2000));
  } while (isBusy());
  await navigator.serviceWorker?.register('sw.js');
}

renew().catch(() => {});
preload()
  .then(
    ({ threads }) => {
      document.body.dataset.threads = String(threads);
      document.body.dataset.loaded = 'yes';
    },
    (error) => showTrouble(error.problem === 'unsupported' ? 'vectors' : 'module'),
  )
  // Not before: a page that gets its service worker while its own worker is loaded loses that one in Firefox.
  .then(keepForOffline)
  .catch(() => {});
