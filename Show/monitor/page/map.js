// The map: a worker draws it.
import { colours } from './canvas.js';
import { byId } from './dom.js';
import { held, pinned } from './scene.js';
import { chosen, onChoice } from './selection.js';
import { fit, view } from './view.js';

export const map = byId('map');
const switches = ['hulls', 'names', 'paths'].map(byId);
const painter = new Worker('mapPainter.js', { type: 'module' });

function paint(more, transferred = []) {
  const message = { ...more, view, held, pinned, chosen, ratio: devicePixelRatio || 1 };
  for (const { id, checked } of switches) message[id] = checked;
  painter.postMessage(message, transferred);
  // For scripts that drive this page.
  Object.assign(map.dataset, { x: view.x, z: view.z, scale: view.scale });
}

function measure() {
  view.width = map.clientWidth;
  view.height = map.clientHeight;
}

measure();
const canvas = map.transferControlToOffscreen();
paint({ canvas }, [canvas]);

/// Draws the map as it is now.
export const draw = () => paint({});

/// Draws it in other colours.
export const recolour = () => paint({ colours });

let taken = () => {};
painter.addEventListener('message', ({ data }) => {
  map.dataset.frames = data; // for scripts, too: the number of drawn frames
  taken();
});

/// Draws the scene that has just been taken, from its text. Resolves when the worker has it, so that
/// it cannot fall behind.
export function showScene(text) {
  if (!view.moved) fit();
  return new Promise((resolve) => {
    taken = resolve;
    paint({ scene: text });
  });
}

onChoice(draw);
for (const element of switches) element.addEventListener('change', draw);
new ResizeObserver(() => {
  measure();
  if (!view.moved) fit(true);
  draw();
}).observe(map);
