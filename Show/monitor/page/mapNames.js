// The names on the map.
import { colourOf, colours } from './canvas.js';
import { nameOf } from './parts.js';
import { chosen } from './selection.js';
import { stamp } from './sprites.js';
import { toX, toY } from './view.js';

const kMaxNames = 150;
const kFont = '12.5px system-ui, sans-serif';
const kCell = 64; // pixels

/// Boxes [left, top, right, bottom], found by the cells of a grid that they touch.
class Boxes {
  constructor() {
    this.cells = new Map();
  }

  /// The first true result of `visit` for a cell that the box touches.
  cellsOf([left, top, right, bottom], visit) {
    for (let x = Math.floor(left / kCell); x <= Math.floor(right / kCell); x += 1) {
      for (let y = Math.floor(top / kCell); y <= Math.floor(bottom / kCell); y += 1) {
        if (visit(x * 65536 + y)) return true;
      }
    }
    return false;
  }

  add(box) {
    this.cellsOf(box, (cell) => {
      const list = this.cells.get(cell);
      if (list) list.push(box);
      else this.cells.set(cell, [box]);
      return false;
    });
  }

  touches(box) {
    return this.cellsOf(box, (cell) => (this.cells.get(cell) || []).some((other) =>
      box[0] < other[2] && other[0] < box[2] && box[1] < other[3] && other[1] < box[3]));
  }
}

const widths = new Map(); // of texts, in pixels
function widthOf(context, text) {
  let width = widths.get(text);
  if (width === undefined) {
    if (widths.size > 1000) widths.clear();
    context.font = kFont;
    width = context.measureText(text).width;
    widths.set(text, width);
  }
  return width;
}

function drawName(context, text, [left, top, right, bottom], id) {
  const size = [right - left + 8, bottom - top + 8];
  const colour = id === 0 ? colours.ink : colourOf(id);
  stamp(context, `${colour} ${text}`, (left + right) / 2, (top + bottom) / 2, size, (own) => {
    own.font = kFont;
    own.lineWidth = 3.5;
    own.lineJoin = 'round';
    own.strokeStyle = colours.panel;
    own.strokeText(text, (left - right) / 2, 4.5);
    own.fillStyle = colour;
    own.fillText(text, (left - right) / 2, 4.5);
  });
}

/// Writes names beside their signs where they cover nothing; the selected one's always. `shown`:
/// the tracks in view, the most important ones first.
export function drawNames(context, width, height, shown) {
  const taken = new Boxes();
  for (const [, track] of shown) {
    const x = toX(track.x);
    const y = toY(track.z);
    taken.add([x - 9, y - 9, x + 9, y + 9]);
  }
  taken.add([width - 56, 0, width, 150]); // the buttons
  const free = (box) => box[0] > 0 && box[2] < width && box[1] > 0 && box[3] < height &&
    !taken.touches(box);
  for (const [id, track] of shown.slice(0, kMaxNames)) {
    let text = id === 0 ? 'listener' : nameOf(track.part);
    if (text.length > 40) text = `${text.slice(0, 39)}…`;
    const length = widthOf(context, text);
    const x = toX(track.x);
    const y = toY(track.z);
    const spots = [[x + 13, y - 7], [x - length - 13, y - 7], [x - length / 2, y - 29],
      [x - length / 2, y + 14]];
    const boxes = spots.map(([left, top]) => [left, top, left + length, top + 15]);
    const box = boxes.find(free) || (id === chosen ? boxes[0] : null);
    if (!box) continue;
    taken.add(box);
    drawName(context, text, box, id);
  }
}
