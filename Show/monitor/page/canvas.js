// Drawing on canvases, in the colours of the style sheet.

export const colours = {};
export let ratio = 1; // of the screen's pixels to those of CSS, as of the latest prepare()

export function readColours() {
  const style = getComputedStyle(document.documentElement);
  for (const name of ['panel', 'ink', 'faint', 'line', 'grid', 'zero', 'accent',
    'c0', 'c1', 'c2', 'c3', 'c4', 'c5', 'c6', 'c7']) {
    colours[name] = style.getPropertyValue(`--${name}`).trim();
  }
}

export const colourOf = (id) => colours[`c${((id % 8) + 8) % 8}`];

/// Clears a canvas of a size in CSS pixels, with `pixels` of the screen for each.
export function prepare(canvas, width, height, pixels) {
  ratio = pixels;
  if (canvas.width !== Math.round(width * ratio) || canvas.height !== Math.round(height * ratio)) {
    canvas.width = Math.round(width * ratio);
    canvas.height = Math.round(height * ratio);
  }
  const context = canvas.getContext('2d');
  context.setTransform(ratio, 0, 0, ratio, 0, 0);
  context.clearRect(0, 0, width, height);
  return context;
}

/// Clears a canvas of the document; returns its size, too.
export function prepareElement(canvas) {
  const width = canvas.clientWidth;
  const height = canvas.clientHeight;
  return { context: prepare(canvas, width, height, devicePixelRatio || 1), width, height };
}

/// A step of 1, 2 or 5 times a power of ten, of which about `most` fit into the length.
export function niceStep(length, most) {
  const rough = length / most;
  const power = 10 ** Math.floor(Math.log10(rough));
  return power * [1, 2, 5, 10].find((factor) => factor * power >= rough * 0.999);
}
