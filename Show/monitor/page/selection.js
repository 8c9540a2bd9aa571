// The selected part.
import { scene } from './scene.js';

export let chosen = null; // the id of an emitter, 0 for the listener
const listeners = [];

/// Calls `listener` whenever another part is selected.
export const onChoice = (listener) => listeners.push(listener);

export function choose(id) {
  chosen = id;
  for (const listener of listeners) listener();
}

/// The next or the previous part by id; the listener precedes the emitters.
export function chooseNext(step) {
  if (!scene) return;
  const ids = [0, ...scene.emitters.map(({ id }) => id)];
  const at = ids.indexOf(chosen) + step;
  choose(ids[at < 0 ? ids.length - 1 : at % ids.length]);
}
