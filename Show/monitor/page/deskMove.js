// Moves parts: by pointers on the map, and by keys.
import { niceStep } from './canvas.js';
import { change, mayChange, request } from './deskLink.js';
import { draw, map } from './map.js';
import { setGrab } from './pointers.js';
import { heading, pinned, put, scene } from './scene.js';
import { choose, chosen } from './selection.js';
import { view } from './view.js';

const kKeyPause = 1000; // ms; keys within it belong to one gesture

const partOf = (id) => (id === 0 ? scene.listener : scene.emitters.find((part) => part.id === id));

/// Where a part is, or is about to be.
export function positionOf(id) {
  const part = partOf(id);
  return pinned.has(id) ? pinned.get(id).position : part && part.position;
}

/// The quaternion that looks there; `angle` is clockwise from ahead, in radians.
export const rotationTo = (angle) => [0, Math.sin(-angle / 2), 0, Math.cos(-angle / 2)];

const rounded = (value) => Math.round(value * 1e4) / 1e4;

export function moveTo(id, position, gesture, since) {
  change(id, { position: position.map(rounded) }, gesture, since);
  put(id, position);
  draw();
}

let gestures = 0;

/// Takes a part for dragging.
setGrab((id) => {
  const start = mayChange() && scene ? positionOf(id) : null;
  if (!start || !start.every(Number.isFinite)) return null;
  gestures += 1;
  const gesture = `drag ${gestures} ${performance.timeOrigin}`;
  choose(id);
  return {
    /// `dx`, `dy`: pixels since it was taken.
    move(dx, dy, since) {
      const [x, y, z] = start;
      moveTo(id, [x + dx / view.scale, y, z + dy / view.scale], gesture, since);
    },
  };
});

let lastKey = 0;

map.addEventListener('keydown', (event) => {
  if ((event.ctrlKey || event.metaKey) && event.key === 'z') return;
  if (event.ctrlKey || event.altKey || event.metaKey || chosen === null || !mayChange()) return;
  const place = positionOf(chosen);
  const part = partOf(chosen);
  if (!place || !part) return;
  const [x, y, z] = place;
  const step = niceStep(view.width / view.scale, 100) * (event.shiftKey ? 10 : 1);
  const turn = (angle) => change(chosen,
    { rotation: rotationTo(heading(part.rotation) + angle) }, gesture, event.timeStamp);
  const to = (position) => moveTo(chosen, position, gesture, event.timeStamp);
  const action = {
    ArrowLeft: () => to([x - step, y, z]), ArrowRight: () => to([x + step, y, z]),
    ArrowUp: () => to([x, y, z - step]), ArrowDown: () => to([x, y, z + step]),
    PageUp: () => to([x, y + step, z]), PageDown: () => to([x, y - step, z]),
    '[': () => turn(-Math.PI / 36), ']': () => turn(Math.PI / 36),
  }[event.key];
  if (!action) return;
  if (event.timeStamp - lastKey > kKeyPause) gestures += 1;
  lastKey = event.timeStamp;
  const gesture = `keys ${gestures} ${chosen} ${performance.timeOrigin}`;
  event.preventDefault();
  event.stopImmediatePropagation(); // else it moves the view
  action();
}, true);

document.addEventListener('keydown', (event) => {
  if (!(event.ctrlKey || event.metaKey) || event.key.toLowerCase() !== 'z') return;
  if (event.target instanceof HTMLInputElement && event.target.type === 'text') return;
  event.preventDefault();
  request(event.shiftKey ? { redo: true } : { undo: true });
});
