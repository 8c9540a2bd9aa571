// The picture behind the time: how many emitters sound, how much changes, and the cues.
import { colours, prepareElement } from './canvas.js';
import { onState, state } from './deskLink.js';
import { make } from './dom.js';
import { count, plural, span } from './texts.js';

const kRetryPeriod = 5000; // ms

const canvas = make('canvas');
canvas.setAttribute('role', 'img');
const legend = make('ul', 'legend');
let picture = null; // the latest answer
let asked = -Infinity;

const largest = (values) => Math.max(0, ...values);
const placeOf = (values) => span((values.indexOf(largest(values)) / values.length) * picture.end);

function draw() {
  const { context, width, height } = prepareElement(canvas);
  if (!picture || !(picture.end > 0)) return;
  // `share`: the part of the height that the largest value has. The root shows small values, too.
  const fill = (values, share, colour, alpha) => {
    const most = largest(values) || 1;
    context.fillStyle = colour;
    context.globalAlpha = alpha;
    values.forEach((value, i) => {
      const left = Math.round((i * width) / values.length);
      const right = Math.round(((i + 1) * width) / values.length);
      const top = height * share * Math.sqrt(value / most);
      context.fillRect(left, height - top, right - left, top);
    });
    context.globalAlpha = 1;
  };
  fill(picture.sounding, 0.9, colours.c0, 0.35);
  fill(picture.changes, 0.4, colours.c1, 0.9);
  context.fillStyle = colours.faint;
  for (const { at } of state.cues) context.fillRect(Math.round((at / picture.end) * width), 0, 1, height);
}

function describe() {
  const { sounding, changes } = picture;
  const most = largest(sounding);
  const entries = [['c0', `sounding: ${most === 0 ? 'nothing' : `at most ${plural(most, 'emitter')}, at ${placeOf(sounding)}`}`],
    ['c1', `changes: ${largest(changes) === 0 ? 'none' : `most at ${placeOf(changes)}`}`]];
  if (state.cues.length > 0) entries.push(['', `lines: ${count(state.cues.length)} cues`]);
  canvas.setAttribute('aria-label', `Activity over the time. ${entries.map(([, text]) => text).join('; ')}`);
  legend.replaceChildren(...entries.map(([colour, text]) => {
    const item = make('li');
    if (colour) item.append(make('span', `sign square ${colour}`));
    item.append(text);
    return item;
  }));
}

async function load() {
  asked = performance.now();
  const response = await fetch('api/desk/picture', { cache: 'no-store' });
  if (!response.ok) return;
  picture = await response.json();
  describe();
  draw();
}

/// Puts the picture behind a control of the same size, and its legend behind both.
export function showBehind(frame) {
  frame.prepend(canvas);
  frame.after(legend);
  new ResizeObserver(draw).observe(canvas);
  matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => setTimeout(draw));
  onState(() => {
    if (!state || state.end === undefined || (picture && picture.end === state.end)) return;
    if (performance.now() - asked > kRetryPeriod) load().catch(() => {}); // the monitor shows a lost server
  });
}
