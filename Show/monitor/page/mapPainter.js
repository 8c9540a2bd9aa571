// Draws the map: a worker, so that the page answers pointers while a large scene is drawn.
import { colourOf, colours, niceStep, prepare } from './canvas.js';
import { drawNames } from './mapNames.js';
import { advance, heading, heardReach, held, isSpatial, kPathSeconds, pinned, put, takeScene, tracks } from './scene.js';
import { choose, chosen } from './selection.js';
import { forgetSprites, stamp } from './sprites.js';
import { number } from './texts.js';
import { toX, toY, view } from './view.js';

const kMaxHulls = 150; // parts in view whose hulls are drawn; more cover each other
const kLongFrame = 25; // ms
const kMaxPaths = 100; // parts in view whose paths are drawn; each has up to a hundred lines

let canvas = null;
let settings = null; // the latest message

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
  const heard = track.sign === 'play';
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
function paintEmitter(context, sign, spatial, colour, size) {
  context.scale(size, size);
  context.strokeStyle = colour;
  context.lineWidth = 2;
  context.beginPath();
  if (spatial) context.arc(0, 0, 6.5, 0, 2 * Math.PI);
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
}

function drawEmitter(context, { part, sign, x, z }, colour, size) {
  const spatial = isSpatial(part);
  stamp(context, `${sign} ${spatial} ${colour} ${size}`, toX(x), toY(z), [18, 18],
    (own) => paintEmitter(own, sign, spatial, colour, size));
}

function drawMap(now) {
  const { width, height } = view;
  const context = prepare(canvas, width, height, settings.ratio);
  drawGrid(context, width, height);
  let moving = false;
  for (const track of tracks.values()) moving = advance(track, now) || moving;
  const inView = ([, track]) => {
    const heard = track.part.hull && heardReach(track.part);
    const reach = 40 + view.scale * (heard ? heard.softest : 0);
    return Math.abs(toX(track.x) - width / 2) < width / 2 + reach &&
      Math.abs(toY(track.z) - height / 2) < height / 2 + reach;
  };
  // The listener is drawn above the emitters, and the selected one above all; names in reverse
  // order.
  const shown = [];
  for (const entry of tracks) if (entry[0] !== 0 && entry[0] !== chosen && inView(entry)) shown.push(entry);
  for (const id of chosen === null || chosen === 0 ? [0] : [0, chosen]) {
    const entry = [id, tracks.get(id)];
    if (entry[1] && inView(entry)) shown.push(entry);
  }
  if (settings.hulls) {
    for (const [id, track] of shown) {
      if (id === 0 || (shown.length > kMaxHulls && id !== chosen)) continue;
      drawHull(context, track, colourOf(id), id === chosen, id === chosen || shown.length <= 30);
    }
  }
  if (settings.paths) {
    for (const [id, track] of shown) {
      if (shown.length > kMaxPaths && id !== chosen) continue;
      drawPath(context, track, id === 0 ? colours.faint : colourOf(id), now);
    }
  }
  for (const [id, track] of shown) {
    if (id === 0) drawListener(context, track);
    else drawEmitter(context, track, colourOf(id), shown.length > 200 ? 0.6 : 1);
  }
  context.strokeStyle = colours.ink;
  context.lineWidth = 1.5;
  context.setLineDash([3, 3]);
  for (const [id, { x, z }] of held.size > 0 ? shown : []) {
    if (!held.has(id)) continue;
    context.beginPath();
    context.arc(toX(x), toY(z), 13, 0, 2 * Math.PI);
    context.stroke();
  }
  context.setLineDash([]);
  const track = tracks.get(chosen);
  if (track) {
    context.strokeStyle = colours.accent;
    context.lineWidth = 2;
    context.beginPath();
    context.arc(toX(track.x), toY(track.z), 17, 0, 2 * Math.PI);
    context.stroke();
  }
  if (settings.names) drawNames(context, width, height, shown.reverse());
  return moving;
}

let drawing = false;
let drawn = 0; // when the latest frame was drawn; 0: the frame before this one was left out
let frames = 0;
function draw() {
  if (drawing) return;
  drawing = true;
  requestAnimationFrame((now) => {
    drawing = false;
    // A busy machine needs the time of every other frame for other things.
    const busy = drawn > 0 && now - drawn > kLongFrame && now - drawn < 10 * kLongFrame;
    drawn = busy ? 0 : now;
    frames += busy ? 0 : 1;
    if (busy || drawMap(now)) draw();
  });
}

/// The messages are those of map.js.
function take(message) {
  settings = message;
  if (message.canvas) canvas = message.canvas;
  if (message.colours) {
    Object.assign(colours, message.colours);
    forgetSprites();
  }
  Object.assign(view, message.view);
  held.clear();
  for (const id of message.held) held.add(id);
  pinned.clear();
  for (const [id, pin] of message.pinned) pinned.set(id, pin);
  choose(message.chosen);
  if (message.scene) takeScene(JSON.parse(message.scene), -Infinity);
  for (const [id, { position }] of pinned) put(id, position);
}

addEventListener('message', ({ data }) => {
  try {
    take(data);
    draw();
  } finally {
    if (data.scene) postMessage(frames);
  }
});
