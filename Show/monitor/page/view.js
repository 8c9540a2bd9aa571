// The part of the scene that the map shows.
import { heardReach, tracks } from './scene.js';

// scale: pixels per unit; box: the visible area unless the user has moved the view
// width, height: of the map, in pixels
export const view = {
  x: 0, z: 0, scale: 50, box: null, moved: false, fitted: false, width: 0, height: 0,
};

export const toX = (x) => view.width / 2 + (x - view.x) * view.scale;
export const toY = (z) => view.height / 2 + (z - view.z) * view.scale;

/// Shows everything. Unless the user has moved the view, it changes only if something is outside or
/// everything has become small, so that it stays still while things move.
export function fit(force = false) {
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
  const { width, height } = view;
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

export function zoom(factor, x = view.width / 2, y = view.height / 2) {
  const scale = Math.min(1e5, Math.max(1e-4, view.scale * factor));
  // Zooms around the pointer.
  const ahead = 1 / view.scale - 1 / scale;
  view.x += (x - view.width / 2) * ahead;
  view.z += (y - view.height / 2) * ahead;
  view.scale = scale;
  view.moved = true;
}

export function pan(dx, dy) {
  view.x -= dx / view.scale;
  view.z -= dy / view.scale;
  view.moved = true;
}
