// Pointers and keys on the map: they move the view and select parts.
import { byId } from './dom.js';
import { draw, map } from './map.js';
import { advance, tracks } from './scene.js';
import { choose, chooseNext } from './selection.js';
import { fit, pan, toX, toY, view, zoom } from './view.js';

function moveView(change) {
  change();
  draw();
}

/// The emitter or the listener at a pointer; null if there is none.
function pickAt({ offsetX: x, offsetY: y, pointerType }) {
  let best = null;
  let nearest = pointerType === 'touch' ? 26 : 16;
  const now = performance.now();
  for (const [id, track] of tracks) {
    advance(track, now);
    const distance = Math.hypot(toX(track.x) - x, toY(track.z) - y);
    if (distance < nearest) {
      nearest = distance;
      best = id;
    }
  }
  return best;
}

/// Called with the id of a part under a pressed pointer. May return an object whose move(dx, dy, time)
/// then gets the way of the pointer in place of the view.
let grab = () => null;
export const setGrab = (next) => { grab = next; };

let grabbed = null;
let way = { x: 0, y: 0 }; // of the pointer since it was pressed
const pointers = new Map(); // pressed ones, by id
let travelled = 0; // pixels since the first was pressed

map.addEventListener('pointerdown', (event) => {
  map.setPointerCapture(event.pointerId);
  if (pointers.size === 0) {
    const id = pickAt(event);
    travelled = 0;
    way = { x: 0, y: 0 };
    grabbed = id === null || event.button !== 0 ? null : grab(id);
  } else {
    grabbed = null;
  }
  pointers.set(event.pointerId, { x: event.offsetX, y: event.offsetY });
});
function follow(event) {
  const pointer = pointers.get(event.pointerId);
  if (!pointer) return;
  const next = { x: event.offsetX, y: event.offsetY };
  const dx = next.x - pointer.x;
  const dy = next.y - pointer.y;
  if (dx === 0 && dy === 0) return;
  travelled += Math.hypot(dx, dy);
  if (pointers.size === 1) {
    way.x += dx;
    way.y += dy;
    if (travelled > 4 && grabbed) grabbed.move(way.x, way.y, event.timeStamp);
    else if (travelled > 4) moveView(() => pan(dx, dy));
  } else {
    travelled = Infinity; // a pinch is not a click
    const other = [...pointers].find(([id]) => id !== event.pointerId)[1];
    const before = Math.hypot(pointer.x - other.x, pointer.y - other.y);
    const after = Math.hypot(next.x - other.x, next.y - other.y);
    moveView(() => {
      pan(dx / 2, dy / 2);
      if (before > 0 && after > 0) {
        zoom(after / before, (next.x + other.x) / 2, (next.y + other.y) / 2);
      }
    });
  }
  pointers.set(event.pointerId, next);
}
// A pointermove waits for the next frame; the other comes at once, where the browser has it.
map.addEventListener('pointerrawupdate', follow);
map.addEventListener('pointermove', follow);
function release(event) {
  if (!pointers.delete(event.pointerId)) return;
  if (event.type === 'pointerup' && pointers.size === 0 && travelled <= 4) {
    choose(pickAt(event));
  }
}
map.addEventListener('pointerup', release);
map.addEventListener('pointercancel', release);
map.addEventListener('wheel', (event) => {
  event.preventDefault();
  const lines = event.deltaMode === 1 ? 30 : 1;
  moveView(() => zoom(Math.exp(-Math.max(-300, Math.min(300, event.deltaY * lines)) / 500),
    event.offsetX, event.offsetY));
}, { passive: false });
map.addEventListener('keydown', (event) => {
  const action = {
    ArrowLeft: () => pan(40, 0), ArrowRight: () => pan(-40, 0), ArrowUp: () => pan(0, 40),
    ArrowDown: () => pan(0, -40), '+': () => zoom(1.25), '-': () => zoom(0.8), 0: showAll,
    n: () => chooseNext(1), p: () => chooseNext(-1), Escape: () => choose(null),
  }[event.key];
  if (!action || event.ctrlKey || event.altKey || event.metaKey) return;
  event.preventDefault();
  moveView(action);
});

function showAll() {
  view.moved = false;
  fit(true);
}
byId('nearer').addEventListener('click', () => moveView(() => zoom(1.4)));
byId('farther').addEventListener('click', () => moveView(() => zoom(1 / 1.4)));
byId('fit').addEventListener('click', () => moveView(showAll));
