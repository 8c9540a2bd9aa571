// The monitor's page: polls the scene ten times a second and the status once, draws, and fills the
// tables. Everything from the server is inserted as text, never as markup.
'use strict';

const kScenePeriod = 100; // ms between two requests of the scene
const kStatusPeriod = 1000;
const kTablePeriod = 400; // ms; a faster update would be unreadable
const kRetryPeriod = 1000;
const kPatience = 5000; // ms to wait for an answer
const kPathSeconds = 10;
const kMaxRows = 200; // rows of a table
const kMaxCell = 200; // characters of a cell
const kMaxNames = 150; // names on the map

const byId = (id) => document.getElementById(id);

/// Creates an element with a class and a text, both optional.
function make(tag, className, text) {
  const element = document.createElement(tag);
  if (className) element.className = className;
  if (text !== undefined) element.textContent = text;
  return element;
}

// ---------------------------------------------------------------- texts

/// A number for people; the server writes null for NaN and infinity.
function number(value, decimals = 3) {
  if (typeof value !== 'number') return 'not a number';
  const factor = 10 ** decimals;
  return String(Math.round(value * factor) / factor).replace('-', '−');
}
const numbers = (values) => values.map((value) => number(value)).join(', ');
const count = (value) => value.toLocaleString('en-GB');

function bytes(value) {
  const units = ['B', 'KiB', 'MiB', 'GiB', 'TiB'];
  let unit = 0;
  while (value >= 1024 && unit < units.length - 1) {
    value /= 1024;
    unit += 1;
  }
  return `${number(value, unit === 0 ? 0 : 1)} ${units[unit]}`;
}

function span(seconds) {
  if (seconds < 60) return `${number(seconds, 0)} s`;
  const minutes = Math.floor(seconds / 60);
  if (minutes < 60) return `${minutes} min ${Math.floor(seconds % 60)} s`;
  return `${Math.floor(minutes / 60)} h ${minutes % 60} min`;
}

const clock = (unix) => new Date(unix * 1000).toLocaleTimeString('en-GB');
const plural = (n, word) => `${count(n)} ${word}${n === 1 ? '' : 's'}`;

function stateText(emitter) {
  const { reason } = hearing(emitter);
  return emitter.state === 'play' && reason ? `play, ${reason}` : emitter.state;
}

function labelsText(emitter) {
  return emitter.labels.join(', ') +
    (emitter.labelsLeftOut ? ` and ${count(emitter.labelsLeftOut)} more` : '');
}

/// A text, truncated for a table cell.
const brief = (text) => (text.length > kMaxCell ? `${text.slice(0, kMaxCell)}…` : text);

function dataText(source) {
  if (source.data === 'url') return source.url;
  if (source.data === 'none') return 'no sound';
  return `${count(source.rate)} Hz, ${source.bits} bit, ` +
    `${plural(source.channels, 'channel')}, ${bytes(source.bytes)}`;
}

// ---------------------------------------------------------------- state

let scene = null; // the latest one
let sources = new Map(); // of that scene, by id
const tracks = new Map(); // the drawn state of the emitters, by id; the listener's id is 0
let instance = ''; // of the server whose tracks are stored
let chosen = null; // the id of the selected emitter, 0 for the listener
let status = null;
let oldStatus = null; // the previous one, for rates

/// The sign of an emitter: whether it is heard, and the reason if not.
function hearing(emitter) {
  const source = sources.get(emitter.source);
  if (emitter.state === 'pause') return { sign: 'pause', reason: 'paused' };
  if (emitter.state !== 'play') return { sign: 'stop', reason: 'not playing' };
  if (emitter.source === null) return { sign: 'muted', reason: 'no source' };
  if (source && source.data === 'none') return { sign: 'muted', reason: 'no sound' };
  if (emitter.over) return { sign: 'over', reason: 'has ended' };
  if (emitter.gain === 0) return { sign: 'muted', reason: 'gain 0' };
  if (!scene.enabled) return { sign: 'muted', reason: 'scene switched off' };
  return { sign: 'play', reason: '' };
}

/// Whether an emitter is heard at its position; otherwise it is heard at the listener.
const isSpatial = (emitter) => scene.spatialize && emitter.spatial;

/// The distances between which the level of an emitter falls, the same in all directions: `full` and
/// `softest`. Null if distance has no effect or an extent of its hull is not finite.
const heardReach = (emitter) => (isSpatial(emitter) ? emitter.reach : null);

/// The direction of "ahead" on the map: the clockwise angle from up, in radians. The axes are those
/// of the scene from above: x to the right, z downwards.
function heading([x, y, z, w]) {
  const aheadX = -2 * (x * z + w * y);
  const aheadZ = -(1 - 2 * (x * x + y * y));
  return Math.hypot(aheadX, aheadZ) < 1e-6 ? 0 : Math.atan2(aheadX, -aheadZ);
}

const isPlace = (part) => part.position.every(Number.isFinite) &&
  (part.hull !== undefined || part.rotation.every(Number.isFinite));

function follow(id, part, now) {
  if (!isPlace(part)) {
    tracks.delete(id);
    return;
  }
  const [x, , z] = part.position;
  let track = tracks.get(id);
  if (!track) {
    track = { x, z, path: [] };
    tracks.set(id, track);
  }
  // Interpolates from the drawn position to the current one over the frames until the next answer.
  Object.assign(track, { part, fromX: track.x, fromZ: track.z, toX: x, toZ: z, since: now });
  const last = track.path[track.path.length - 1];
  if (!last || last.x !== x || last.z !== z) {
    if (last && now - last.until > 5 * kScenePeriod) track.path.push({ ...last, at: now });
    track.path.push({ x, z, at: now, until: now });
  } else {
    last.until = now;
  }
  while (track.path.length > 1 && track.path[1].at < now - kPathSeconds * 1000) track.path.shift();
}

function takeScene(next) {
  const now = performance.now();
  if (next.instance !== instance) {
    tracks.clear();
    if (instance) view.fitted = false;
    instance = next.instance;
    oldStatus = null;
  }
  scene = next;
  sources = new Map(next.sources.map((source) => [source.id, source]));
  const present = new Set([0]);
  follow(0, next.listener, now);
  for (const emitter of next.emitters) {
    present.add(emitter.id);
    follow(emitter.id, emitter, now);
  }
  for (const id of tracks.keys()) {
    if (!present.has(id)) tracks.delete(id);
  }
  if (!view.moved) fit();
  draw();
}

// ---------------------------------------------------------------- the map

const map = byId('map');
// scale: pixels per unit; box: the visible area unless the user has moved the view
const view = { x: 0, z: 0, scale: 50, box: null, moved: false, fitted: false };
const colours = {};

function readColours() {
  const style = getComputedStyle(document.documentElement);
  for (const name of ['panel', 'ink', 'faint', 'line', 'grid', 'zero', 'accent',
    'c0', 'c1', 'c2', 'c3', 'c4', 'c5', 'c6', 'c7']) {
    colours[name] = style.getPropertyValue(`--${name}`).trim();
  }
}

const colourOf = (id) => colours[`c${((id % 8) + 8) % 8}`];

/// Resizes a canvas to the screen's pixels; returns its size in CSS pixels.
function prepare(canvas) {
  const ratio = window.devicePixelRatio || 1;
  const width = canvas.clientWidth;
  const height = canvas.clientHeight;
  if (canvas.width !== Math.round(width * ratio) || canvas.height !== Math.round(height * ratio)) {
    canvas.width = Math.round(width * ratio);
    canvas.height = Math.round(height * ratio);
  }
  const context = canvas.getContext('2d');
  context.setTransform(ratio, 0, 0, ratio, 0, 0);
  context.clearRect(0, 0, width, height);
  return { context, width, height };
}

const toX = (x) => map.clientWidth / 2 + (x - view.x) * view.scale;
const toY = (z) => map.clientHeight / 2 + (z - view.z) * view.scale;

/// A step of 1, 2 or 5 times a power of ten, of which about `most` fit into the length.
function niceStep(length, most) {
  const rough = length / most;
  const power = 10 ** Math.floor(Math.log10(rough));
  return power * [1, 2, 5, 10].find((factor) => factor * power >= rough * 0.999);
}

/// Shows everything. Unless the user has moved the view, it changes only if something is outside or
/// everything has become small, so that it stays still while things move.
function fit(force = false) {
  const box = { left: -1, right: 1, top: -1, bottom: 1 };
  const listener = tracks.get(0);
  if (listener) {
    box.left += listener.toX;
    box.right += listener.toX;
    box.top += listener.toZ;
    box.bottom += listener.toZ;
  }
  for (const track of tracks.values()) {
    const heard = track.part.hull && heardReach(track.part);
    const reach = heard ? Math.min(3, heard.full) : 0;
    box.left = Math.min(box.left, track.toX - reach);
    box.right = Math.max(box.right, track.toX + reach);
    box.top = Math.min(box.top, track.toZ - reach);
    box.bottom = Math.max(box.bottom, track.toZ + reach);
  }
  const width = map.clientWidth;
  const height = map.clientHeight;
  const scale = () => Math.min(
    0.8 * width / (box.right - box.left), 0.8 * height / (box.bottom - box.top));
  const outside = toX(box.left) < 0 || toX(box.right) > width || toY(box.top) < 0 ||
    toY(box.bottom) > height;
  const anew = force || !view.fitted || scale() > 3 * view.scale;
  if (anew || outside) {
    if (!anew) { // something that oscillates moves the view only once
      for (const side of ['left', 'top']) box[side] = Math.min(box[side], view.box[side]);
      for (const side of ['right', 'bottom']) box[side] = Math.max(box[side], view.box[side]);
    }
    view.box = box;
    view.x = (box.left + box.right) / 2;
    view.z = (box.top + box.bottom) / 2;
    view.scale = scale();
    view.fitted = tracks.size > 0;
  }
}

function zoom(factor, x = map.clientWidth / 2, y = map.clientHeight / 2) {
  const scale = Math.min(1e5, Math.max(1e-4, view.scale * factor));
  // Zooms around the pointer.
  const ahead = 1 / view.scale - 1 / scale;
  view.x += (x - map.clientWidth / 2) * ahead;
  view.z += (y - map.clientHeight / 2) * ahead;
  view.scale = scale;
  view.moved = true;
  draw();
}

function pan(dx, dy) {
  view.x -= dx / view.scale;
  view.z -= dy / view.scale;
  view.moved = true;
  draw();
}

function drawGrid(context, width, height) {
  const step = niceStep(width / view.scale, width < 500 ? 5 : 10);
  context.font = '11px system-ui, sans-serif';
  context.fillStyle = colours.faint;
  const line = (x1, y1, x2, y2, zero) => {
    context.strokeStyle = zero ? colours.zero : colours.grid;
    context.beginPath();
    context.moveTo(x1, y1);
    context.lineTo(x2, y2);
    context.stroke();
  };
  const text = (value) => number(value, Math.max(0, -Math.floor(Math.log10(step))));
  context.lineWidth = 1;
  const firstX = Math.ceil((view.x - width / 2 / view.scale) / step);
  const lastX = Math.floor((view.x + width / 2 / view.scale) / step);
  for (let k = firstX; k <= lastX; k += 1) {
    const x = Math.round(toX(k * step)) + 0.5;
    line(x, 0, x, height, k === 0);
    context.fillText(text(k * step), x + 3, height - 4);
  }
  const firstZ = Math.ceil((view.z - height / 2 / view.scale) / step);
  const lastZ = Math.floor((view.z + height / 2 / view.scale) / step);
  for (let k = firstZ; k <= lastZ; k += 1) {
    const y = Math.round(toY(k * step)) + 0.5;
    line(0, y, width, y, k === 0);
    if (y > 26 && y < height - 34) context.fillText(text(k * step), 4, y - 3);
  }
  context.fillText('x →', 30, height - 18);
  context.fillText('−z ↑', 4, 14);
}

/// The hull of an audible emitter: the area of full level is filled, the outer extent dashed. For
/// the selected emitter both are outlined if it is silent.
function drawHull(context, track, colour, isChosen, outer) {
  const reach = heardReach(track.part);
  const heard = hearing(track.part).sign === 'play';
  if (!reach || (!heard && !isChosen)) return;
  const circle = (radius) => {
    context.beginPath();
    context.arc(toX(track.x), toY(track.z), radius * view.scale, 0, 2 * Math.PI);
  };
  context.save();
  context.strokeStyle = colour;
  context.fillStyle = colour;
  context.lineWidth = 1;
  circle(reach.full);
  context.globalAlpha = 0.13;
  if (heard) context.fill();
  context.globalAlpha = 0.55;
  context.stroke();
  if (outer) {
    circle(reach.softest);
    context.setLineDash([5, 5]);
    context.globalAlpha = 0.4;
    context.stroke();
  }
  context.restore();
}

function drawPath(context, track, colour, now) {
  if (track.path.length < 2) return;
  context.strokeStyle = colour;
  context.lineWidth = 2;
  context.lineJoin = 'round';
  for (let i = 1; i <= track.path.length; i += 1) {
    const from = track.path[i - 1];
    const to = track.path[i] || { x: track.x, z: track.z, at: now };
    const age = (now - from.until) / 1000 / kPathSeconds;
    if (i === track.path.length || age >= 1) continue;
    context.globalAlpha = 0.85 * (1 - Math.max(0, age));
    context.beginPath();
    context.moveTo(toX(from.x), toY(from.z));
    // The last segment ends at the drawn sign, which lags slightly.
    const last = i === track.path.length - 1;
    context.lineTo(toX(last ? track.x : to.x), toY(last ? track.z : to.z));
    context.stroke();
  }
  context.globalAlpha = 1;
}

function drawListener(context, track) {
  context.save();
  context.translate(toX(track.x), toY(track.z));
  context.rotate(heading(track.part.rotation));
  context.fillStyle = colours.ink;
  context.globalAlpha = 0.07; // the area ahead
  context.beginPath();
  context.moveTo(0, 0);
  context.arc(0, 0, 70, -Math.PI / 2 - 0.5, -Math.PI / 2 + 0.5);
  context.fill();
  context.globalAlpha = 1;
  context.beginPath();
  context.moveTo(0, -18);
  context.lineTo(6.5, -8);
  context.lineTo(-6.5, -8);
  context.fill();
  context.beginPath();
  context.arc(0, 0, 10, 0, 2 * Math.PI);
  context.fill();
  context.fillRect(-13, -4, 4, 8);
  context.fillRect(9, -4, 4, 8);
  context.restore();
}

/// A disc, or a square if the emitter is heard at the listener, with the sign of its state.
function drawEmitter(context, track, colour, size) {
  const { sign } = hearing(track.part);
  context.save();
  context.translate(toX(track.x), toY(track.z));
  context.scale(size, size);
  context.fillStyle = colour;
  context.strokeStyle = colour;
  context.lineWidth = 2;
  context.beginPath();
  if (isSpatial(track.part)) context.arc(0, 0, 6.5, 0, 2 * Math.PI);
  else context.rect(-6, -6, 12, 12);
  context.fillStyle = colours.panel;
  context.fill();
  context.fillStyle = colour;
  if (sign === 'over') context.globalAlpha = 0.45;
  if (sign === 'play' || sign === 'over') context.fill();
  context.stroke();
  if (sign === 'pause') {
    context.fillRect(-3.5, -3, 2.5, 6);
    context.fillRect(1, -3, 2.5, 6);
  } else if (sign === 'muted') {
    context.beginPath();
    context.moveTo(-4.6, 4.6);
    context.lineTo(4.6, -4.6);
    context.stroke();
  }
  context.restore();
}

function nameOf(emitter) {
  const source = sources.get(emitter.source);
  const name = source && source.name ? ` ${source.name}` : '';
  const labels = emitter.labels.length ? ` [${labelsText(emitter)}]` : '';
  return `${emitter.id}${name}${labels}`;
}

/// Writes names beside their signs where they cover nothing; the selected one's always.
function drawNames(context, width, height, shown) {
  context.font = '12.5px system-ui, sans-serif';
  context.lineWidth = 3.5;
  context.lineJoin = 'round';
  context.strokeStyle = colours.panel;
  const taken = shown.map(([, track]) => {
    const x = toX(track.x);
    const y = toY(track.z);
    return [x - 9, y - 9, x + 9, y + 9];
  });
  taken.push([width - 56, 0, width, 150]); // the buttons
  const free = (box) => box[0] > 0 && box[2] < width && box[1] > 0 && box[3] < height &&
    !taken.some((other) =>
      box[0] < other[2] && other[0] < box[2] && box[1] < other[3] && other[1] < box[3]);
  for (const [id, track] of shown.slice(0, kMaxNames)) {
    let text = id === 0 ? 'listener' : nameOf(track.part);
    if (text.length > 40) text = `${text.slice(0, 39)}…`;
    const length = context.measureText(text).width;
    const x = toX(track.x);
    const y = toY(track.z);
    const spots = [[x + 13, y - 7], [x - length - 13, y - 7], [x - length / 2, y - 29],
      [x - length / 2, y + 14]];
    const boxes = spots.map(([left, top]) => [left, top, left + length, top + 15]);
    const box = boxes.find(free) || (id === chosen ? boxes[0] : null);
    if (!box) continue;
    taken.push(box);
    context.strokeText(text, box[0], box[1] + 12);
    context.fillStyle = id === 0 ? colours.ink : colourOf(id);
    context.fillText(text, box[0], box[1] + 12);
  }
}

function drawMap(now) {
  const { context, width, height } = prepare(map);
  drawGrid(context, width, height);
  let moving = false;
  for (const track of tracks.values()) {
    const part = Math.min(1, (now - track.since) / kScenePeriod);
    track.x = track.fromX + (track.toX - track.fromX) * part;
    track.z = track.fromZ + (track.toZ - track.fromZ) * part;
    moving = moving || (part < 1 && (track.fromX !== track.toX || track.fromZ !== track.toZ));
  }
  // The listener is drawn above the emitters, and the selected one above all; names in reverse
  // order.
  const shown = [...tracks].filter(([, track]) => {
    const heard = track.part.hull && heardReach(track.part);
    const reach = 40 + view.scale * (heard ? heard.softest : 0);
    return Math.abs(toX(track.x) - width / 2) < width / 2 + reach &&
      Math.abs(toY(track.z) - height / 2) < height / 2 + reach;
  }).sort(([a], [b]) => (a === chosen) - (b === chosen) || (a === 0) - (b === 0));
  if (byId('hulls').checked) {
    for (const [id, track] of shown) {
      if (id === 0) continue;
      drawHull(context, track, colourOf(id), id === chosen, id === chosen || shown.length <= 30);
    }
  }
  if (byId('paths').checked) {
    for (const [id, track] of shown) {
      drawPath(context, track, id === 0 ? colours.faint : colourOf(id), now);
    }
  }
  for (const [id, track] of shown) {
    if (id === 0) drawListener(context, track);
    else drawEmitter(context, track, colourOf(id), shown.length > 200 ? 0.6 : 1);
  }
  const track = tracks.get(chosen);
  if (track) {
    context.strokeStyle = colours.accent;
    context.lineWidth = 2;
    context.beginPath();
    context.arc(toX(track.x), toY(track.z), 17, 0, 2 * Math.PI);
    context.stroke();
  }
  if (byId('names').checked) drawNames(context, width, height, shown.reverse());
  // For scripts that drive this page.
  Object.assign(map.dataset, { x: view.x, z: view.z, scale: view.scale });
  return moving;
}

let drawing = false;
function draw() {
  if (drawing) return;
  drawing = true;
  requestAnimationFrame((now) => {
    drawing = false;
    if (drawMap(now)) draw();
  });
}

/// The emitter or the listener at a place on the map; null if there is none.
function pick(x, y, reach) {
  let best = null;
  let nearest = reach;
  for (const [id, track] of tracks) {
    const distance = Math.hypot(toX(track.x) - x, toY(track.z) - y);
    if (distance < nearest) {
      nearest = distance;
      best = id;
    }
  }
  return best;
}

const pointers = new Map(); // pressed ones, by id
let travelled = 0; // pixels since the first was pressed

map.addEventListener('pointerdown', (event) => {
  map.setPointerCapture(event.pointerId);
  if (pointers.size === 0) travelled = 0;
  pointers.set(event.pointerId, { x: event.offsetX, y: event.offsetY });
});
map.addEventListener('pointermove', (event) => {
  const pointer = pointers.get(event.pointerId);
  if (!pointer) return;
  const next = { x: event.offsetX, y: event.offsetY };
  const dx = next.x - pointer.x;
  const dy = next.y - pointer.y;
  travelled += Math.hypot(dx, dy);
  if (pointers.size === 1) {
    if (travelled > 4) pan(dx, dy);
  } else {
    travelled = Infinity; // a pinch is not a click
    const other = [...pointers].find(([id]) => id !== event.pointerId)[1];
    const before = Math.hypot(pointer.x - other.x, pointer.y - other.y);
    const after = Math.hypot(next.x - other.x, next.y - other.y);
    pan(dx / 2, dy / 2);
    if (before > 0 && after > 0) {
      zoom(after / before, (next.x + other.x) / 2, (next.y + other.y) / 2);
    }
  }
  pointers.set(event.pointerId, next);
});
function release(event) {
  if (!pointers.delete(event.pointerId)) return;
  if (event.type === 'pointerup' && pointers.size === 0 && travelled <= 4) {
    choose(pick(event.offsetX, event.offsetY, event.pointerType === 'touch' ? 26 : 16));
  }
}
map.addEventListener('pointerup', release);
map.addEventListener('pointercancel', release);
map.addEventListener('wheel', (event) => {
  event.preventDefault();
  const lines = event.deltaMode === 1 ? 30 : 1;
  zoom(Math.exp(-Math.max(-300, Math.min(300, event.deltaY * lines)) / 500),
    event.offsetX, event.offsetY);
}, { passive: false });
map.addEventListener('keydown', (event) => {
  const action = {
    ArrowLeft: () => pan(40, 0), ArrowRight: () => pan(-40, 0), ArrowUp: () => pan(0, 40),
    ArrowDown: () => pan(0, -40), '+': () => zoom(1.25), '-': () => zoom(0.8), 0: showAll,
    n: () => chooseNext(1), p: () => chooseNext(-1), Escape: () => choose(null),
  }[event.key];
  if (!action || event.ctrlKey || event.altKey || event.metaKey) return;
  event.preventDefault();
  action();
});

function showAll() {
  view.moved = false;
  fit(true);
  draw();
}
byId('nearer').addEventListener('click', () => zoom(1.4));
byId('farther').addEventListener('click', () => zoom(1 / 1.4));
byId('fit').addEventListener('click', showAll);
for (const id of ['hulls', 'names', 'paths']) byId(id).addEventListener('change', draw);
new ResizeObserver(() => {
  if (!view.moved) fit(true);
  draw();
}).observe(map);

// ---------------------------------------------------------------- the selected part

function choose(id) {
  chosen = id;
  fillDetails();
  fillTables();
  draw();
}

/// The next or the previous part by id; the listener precedes the emitters.
function chooseNext(step) {
  if (!scene) return;
  const ids = [0, ...scene.emitters.map(({ id }) => id)];
  const at = ids.indexOf(chosen) + step;
  choose(ids[at < 0 ? ids.length - 1 : at % ids.length]);
}

function valuesOf(emitter) {
  const source = sources.get(emitter.source);
  const listener = scene.listener.position;
  const distance = Math.hypot(...emitter.position.map((value, i) => value - listener[i]));
  const { hull } = emitter;
  const heard = heardReach(emitter);
  const { reason } = hearing(emitter);
  const rows = [['state', emitter.state],
    ['heard', reason ? `no: ${reason}` : isSpatial(emitter) ? 'yes' : 'at the listener']];
  if (emitter.source === null) {
    rows.push(['source', 'none']);
  } else if (!source) {
    rows.push(['source', String(emitter.source)]);
  } else {
    const length = source.duration > 0 ? `${number(source.duration, 2)} s` : 'length not known';
    rows.push(['source', `${source.id} ${source.name}`.trim()], ['its state', source.state],
      ['its sound', `${dataText(source)}; ${length}${source.loop ? ', looped' : ''}`],
      ['its pitch', number(source.pitch)]);
  }
  rows.push(['labels', labelsText(emitter) || 'none: every back end'],
    ['position', numbers(emitter.position)],
    ['rotation', numbers(emitter.rotation)],
    ['heading', `${number(heading(emitter.rotation) * 180 / Math.PI, 1)}°`],
    ['distance', `${number(distance)} from the listener`],
    ['spatial', emitter.spatial ? 'yes' : 'no: heard at the listener'],
    ['gain', number(emitter.gain)],
    ['full level', heard ? `up to ${number(heard.full)}` : 'at any distance'],
    ['softest from', heard ? number(heard.softest) : 'nowhere'],
    ['hull', `${number(hull.minFront)} to ${number(hull.maxFront)} in front, ` +
      `${number(hull.minBack)} to ${number(hull.maxBack)} behind; OpenAL uses the means`],
    ['value', number(emitter.value)]);
  return rows;
}

function fillDetails() {
  let title = 'Nothing chosen';
  let rows = [];
  if (scene && chosen === 0) {
    title = 'Listener';
    rows = [['position', numbers(scene.listener.position)],
      ['rotation', numbers(scene.listener.rotation)],
      ['heading', `${number(heading(scene.listener.rotation) * 180 / Math.PI, 1)}°`],
      ['the scene', scene.enabled ? 'is heard' : 'is switched off'],
      ['emitters', scene.spatialize ? 'are spatial' : 'are all heard at the listener']];
  } else if (scene && chosen !== null) {
    const emitter = scene.emitters.find(({ id }) => id === chosen);
    title = `Emitter ${chosen}`;
    rows = emitter ? valuesOf(emitter) : [['', 'is not in the scene now']];
  }
  byId('chosen').textContent = title;
  byId('hint').hidden = rows.length > 0;
  const list = byId('values');
  while (list.children.length < rows.length * 2) list.append(make('dt'), make('dd'));
  while (list.children.length > rows.length * 2) list.lastChild.remove();
  rows.forEach(([name, value], i) => {
    setText(list.children[2 * i], name);
    setText(list.children[2 * i + 1], value);
  });
}

function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

// ---------------------------------------------------------------- tables

/// Fills a table with columns [title, class]; a cell is a text, or [text, class]. Rows are reused
/// and only texts change, so that a selection is kept.
function fill(table, columns, rows, keys) {
  if (!table.tHead) {
    const head = table.createTHead().insertRow();
    for (const [title, className] of columns) head.append(make('th', className, title));
    table.createTBody();
  }
  const body = table.tBodies[0];
  while (body.rows.length > rows.length) body.lastChild.remove();
  rows.forEach((cells, i) => {
    let row = body.rows[i];
    if (!row) {
      row = body.insertRow();
      for (const [, className] of columns) row.append(make('td', className));
    }
    cells.forEach((cell, j) => {
      const [text, className] = Array.isArray(cell) ? cell : [cell, ''];
      setText(row.cells[j], brief(text));
      row.cells[j].className = `${columns[j][1]} ${className}`.trim();
    });
    if (keys) {
      row.dataset.id = keys[i];
      row.className = keys[i] === chosen ? 'pick chosen' : 'pick';
    }
  });
}

const n = 'number';

function fillTables() {
  if (!scene) return;
  const wanted = byId('filter').value.trim().toLowerCase();
  const fitting = scene.emitters.filter((emitter) => !wanted ||
    `${nameOf(emitter)} ${stateText(emitter)}`.toLowerCase().includes(wanted));
  const emitters = fitting.slice(0, kMaxRows);
  byId('emitterCount').textContent = emitters.length < scene.emitters.length
    ? `${count(emitters.length)} of ${count(scene.emitters.length)}` : count(emitters.length);
  fill(byId('emitters'), [['id', n], ['state', ''], ['source', ''], ['position x, y, z', ''],
    ['gain', n], ['full level', n], ['softest', n], ['labels', 'long']],
  emitters.map((emitter) => {
    const source = sources.get(emitter.source);
    const reach = heardReach(emitter);
    return [String(emitter.id), stateText(emitter),
      emitter.source === null ? 'none' : `${emitter.source} ${source ? source.name : ''}`,
      numbers(emitter.position), number(emitter.gain),
      reach ? number(reach.full) : '', reach ? number(reach.softest) : '',
      labelsText(emitter)];
  }), emitters.map(({ id }) => id));
  const some = scene.sources.slice(0, kMaxRows);
  byId('sourceCount').textContent = some.length < scene.sources.length
    ? `${count(some.length)} of ${count(scene.sources.length)}` : count(some.length);
  fill(byId('sources'), [['id', n], ['name', ''], ['state', ''], ['sound', 'long'], ['length', n],
    ['pitch', n], ['looped', ''], ['emitters', n]],
  some.map((source) => [String(source.id), source.name, source.state, dataText(source),
    source.duration > 0 ? `${number(source.duration, 2)} s` : '', number(source.pitch),
    source.loop ? 'yes' : 'no', count(source.emitters)]));
  byId('summary').textContent = `${plural(scene.emitters.length, 'emitter')}, ` +
    `${plural(scene.sources.length, 'source')}, ` +
    `${scene.enabled ? '' : 'switched off, '}for ${span(scene.seconds)}`;
}

byId('emitters').addEventListener('click', (event) => {
  const row = event.target.closest('tr[data-id]');
  if (row) choose(Number(row.dataset.id));
});
byId('filter').addEventListener('input', fillTables);

function fillBackends() {
  fill(byId('backends'), [['kind', ''], ['works', ''], ['device', 'long'], ['voices', n],
    ['refused', n], ['labels', 'long']],
  status.backends.map((backend) => [backend.kind,
      backend.working && backend.enabled ? 'yes' : ['no', 'bad'],
      backend.device,
      backend.voicesAllowed > 0
        ? `${count(backend.voicesUsed)} of ${count(backend.voicesAllowed)}` : '',
      backend.refused > 0 ? [count(backend.refused), 'bad'] : '',
      backend.labels.join(', ') || 'none: every emitter']));
}

/// Creates missing parts of the network section; they are updated in place.
function networkPart(i) {
  const section = byId('network');
  let part = section.children[i + 1];
  if (!part) {
    part = make('div');
    part.append(make('h3'), make('p', 'nothing'), make('div', 'scroll'), make('ul', 'drops'));
    Object.assign(part.children[2], { tabIndex: 0, role: 'group', ariaLabel: 'Connections' });
    part.children[2].append(make('table'));
    section.append(part);
  }
  return part;
}

function fillNetwork() {
  const section = byId('network');
  if (!section.firstChild) section.append(make('h2', '', 'Network'));
  section.hidden = status.network.length === 0;
  while (section.children.length > status.network.length + 1) section.lastChild.remove();
  const passed = oldStatus ? status.seconds - oldStatus.seconds : 0;
  status.network.forEach((end, i) => {
    const [title, sums, scroll, drops] = networkPart(i).children;
    const here = end.role === 'server' ? `Server, id ${end.id}, TCP port ${end.port}` : 'Client';
    setText(title, `${here}: ${plural(end.connections.length, 'connection')}`);
    setText(sums, `${count(end.connected)} so far, ${count(end.dropped)} lost, ` +
      `${count(end.refused)} refused; in ${plural(end.eventsIn, 'event')}, ${bytes(end.bytesIn)}; ` +
      `out ${plural(end.eventsOut, 'event')}, ${bytes(end.bytesOut)}; ` +
      `${bytes(end.bytesKept)} kept to be sent` +
      (end.eventsLeftOut ? `; ${plural(end.eventsLeftOut, 'event')} superseded and left out` : '') +
      (end.datagramsIgnored ? `; ${plural(end.datagramsIgnored, 'ignored datagram')}` : ''));
    const before = new Map(((oldStatus && oldStatus.network[i]) || { connections: [] })
      .connections.map((connection) => [connection.peer, connection]));
    const rate = (connection, key) => {
      const old = before.get(connection.peer);
      return old && passed > 0 ? count(Math.round((connection[key] - old[key]) / passed)) : '';
    };
    scroll.hidden = end.connections.length === 0;
    fill(scroll.firstChild, [['peer', ''], ['id', n], ['since', ''], ['events in', n],
      ['a second', n], ['bytes in', n], ['events out', n], ['a second', n], ['bytes out', n],
      ['waiting', n]],
    end.connections.slice(0, kMaxRows).map((connection) => [
      connection.lost ? [`${connection.peer} (lost)`, 'bad'] : connection.peer,
      String(connection.id), clock(connection.since), count(connection.eventsIn),
      rate(connection, 'eventsIn'), bytes(connection.bytesIn), count(connection.eventsOut),
      rate(connection, 'eventsOut'), bytes(connection.bytesOut),
      connection.bytesWaiting > 65536 ? [bytes(connection.bytesWaiting), 'bad']
        : bytes(connection.bytesWaiting)]));
    const lines = end.lastDrops.slice(-5).reverse().map((drop) =>
      `${clock(drop.when)} ${drop.peer} is gone: ${drop.reason || 'it closed the connection'}`);
    while (drops.children.length > lines.length) drops.lastChild.remove();
    lines.forEach((line, k) => {
      if (!drops.children[k]) drops.append(make('li'));
      setText(drops.children[k], line);
    });
  });
}

// ---------------------------------------------------------------- changes over time

const groups = [
  ['movement', 'c0', ['listener', 'transforms']],
  ['hulls and gains', 'c2', ['hulls', 'params']],
  ['play states', 'c1', ['states', 'sourceStates']],
  ['comings and goings', 'c3', ['emitters', 'sources', 'connections', 'scene']],
];

function drawChart() {
  const { context, width, height } = prepare(byId('chart'));
  if (!status) return;
  const { perSecond } = status.changes;
  const rows = groups.map(([, , kinds]) => perSecond[kinds[0]].map((_, i) =>
    kinds.reduce((sum, kind) => sum + perSecond[kind][i], 0)));
  const seconds = 119;
  const filled = rows[0].length;
  const sums = rows[0].map((_, i) => rows.reduce((sum, row) => sum + row[i], 0));
  const step = niceStep(Math.max(10, ...sums), 4);
  const top = step * Math.ceil(Math.max(10, ...sums) / step);
  const left = 48;
  const bottom = height - 20;
  const y = (value) => bottom - (bottom - 8) * value / top;
  const bar = (width - left) / seconds;
  context.font = '11px system-ui, sans-serif';
  context.textAlign = 'right';
  for (let value = 0; value <= top; value += step) {
    context.fillStyle = colours.faint;
    context.fillText(count(value), left - 6, y(value) + 4);
    context.fillStyle = value === 0 ? colours.zero : colours.grid;
    context.fillRect(left, Math.round(y(value)), width - left, 1);
  }
  for (let i = 0; i < filled; i += 1) {
    const x = width - (filled - i) * bar;
    let base = 0;
    rows.forEach((row, k) => {
      context.fillStyle = colours[groups[k][1]];
      context.fillRect(x, y(base + row[i]), Math.max(1, bar - 1), y(base) - y(base + row[i]));
      base += row[i];
    });
  }
  context.fillStyle = colours.faint;
  for (let ago = 0; ago < seconds; ago += 30) {
    context.textAlign = ago === 0 ? 'right' : 'center';
    context.fillText(ago === 0 ? 'now' : `−${ago} s`, width - ago * bar, height - 5);
  }
  const list = byId('groups');
  groups.forEach(([name], k) => {
    if (!list.children[k]) {
      const item = make('li');
      item.append(make('span', 'sign square'), make('span'));
      list.append(item);
    }
    list.children[k].firstChild.style.cssText =
      `background:${colours[groups[k][1]]};border-color:${colours[groups[k][1]]}`;
    setText(list.children[k].lastChild, `${name}: ${count(rows[k][filled - 1] || 0)}`);
  });
}
new ResizeObserver(drawChart).observe(byId('chart'));

function takeStatus(next) {
  oldStatus = status && status.instance === next.instance ? status : null;
  status = next;
  fillBackends();
  fillNetwork();
  drawChart();
}

// ---------------------------------------------------------------- polling the server

let lastAnswer = 0;

function showLink(state) {
  const link = byId('link');
  const lost = state === 'lost';
  setText(link, { live: 'live', lost: 'not reachable, trying again', rest: 'resting' }[state]);
  link.className = `pill ${state === 'rest' ? 'waiting' : state}`;
  map.classList.toggle('away', lost);
  let notice = '';
  if (lost) {
    notice = lastAnswer === 0 ? 'The server has not answered yet.'
      : `No answer for ${span((performance.now() - lastAnswer) / 1000)}: ` +
        'this is how the scene was.';
  } else if (scene && !scene.enabled) {
    notice = 'The scene is switched off: nothing is heard.';
  }
  byId('notice').hidden = !notice;
  setText(byId('notice'), notice);
}

async function ask(path) {
  const response = await fetch(path, { cache: 'no-store', signal: AbortSignal.timeout(kPatience) });
  if (!response.ok) throw new Error(`${path}: ${response.status}`);
  return response.json();
}

const pause = (ms) => new Promise((resolve) => { setTimeout(resolve, ms); });

/// Resolves when the page is visible; a hidden page does not poll.
async function untilSeen() {
  if (document.visibilityState !== 'hidden') return;
  showLink('rest');
  await new Promise((resolve) => {
    document.addEventListener('visibilitychange', resolve, { once: true });
  });
}

async function run() {
  let nextStatus = 0;
  let nextTables = 0;
  for (;;) {
    await untilSeen();
    const begin = performance.now();
    let nextScene = null;
    let newStatus = null;
    try {
      nextScene = await ask('api/scene');
      if (begin >= nextStatus) newStatus = await ask('api/status');
    } catch {
      showLink('lost');
      nextStatus = 0;
      nextTables = 0;
      await pause(kRetryPeriod);
      continue;
    }
    lastAnswer = performance.now();
    takeScene(nextScene);
    if (newStatus) {
      nextStatus = begin + kStatusPeriod;
      takeStatus(newStatus);
    }
    if (begin >= nextTables) {
      nextTables = begin + kTablePeriod;
      fillTables();
      fillDetails();
    }
    showLink('live');
    await pause(Math.max(10, kScenePeriod - (performance.now() - begin)));
  }
}

matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => {
  readColours();
  draw();
  drawChart();
});
readColours();
run();
