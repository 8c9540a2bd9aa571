// The controls of the selected part, beside its values.
import { change, mayChange, onState, partState } from './deskLink.js';
import { moveTo, positionOf, rotationTo } from './deskMove.js';
import { byId, make, setText } from './dom.js';
import { nameOf } from './parts.js';
import { heading, scene } from './scene.js';
import { choose, chosen, onChoice } from './selection.js';
import { number } from './texts.js';

const panel = make('div', 'controls');
const title = byId('chosen');
title.after(panel);

function labelled(text, element) {
  const label = make('label', '', text);
  label.append(element);
  return label;
}

function button(text, press, title = '') {
  const element = make('button', 'action', text);
  element.type = 'button';
  element.title = title;
  element.addEventListener('click', press);
  return element;
}

/// A field for a number; `set` gets the value that the user has entered.
function field(text, step, set) {
  const input = Object.assign(make('input'), { type: 'number', step });
  input.addEventListener('change', () => {
    if (Number.isFinite(input.valueAsNumber)) set(input.valueAsNumber);
  });
  return { input, label: labelled(text, input) };
}

const group = (name, ...elements) => {
  const element = make('div', 'row');
  element.setAttribute('role', 'group');
  element.setAttribute('aria-label', name);
  element.append(...elements);
  panel.append(element);
  return element;
};

const parts = make('select');
group('Part', labelled('part', parts));
parts.addEventListener('change', () => choose(parts.value === '' ? null : Number(parts.value)));

const axes = ['x', 'y', 'z'].map((name, axis) => field(name, 'any', (value) => {
  const position = positionOf(chosen);
  if (position) moveTo(chosen, position.map((old, i) => (i === axis ? value : old)));
}));
const angle = field('heading °', 'any', (value) => change(chosen,
  { rotation: rotationTo(value * Math.PI / 180) }));
const place = group('Place', ...axes.map(({ label }) => label), angle.label);

const gain = field('gain', 0.05, (value) => change(chosen, { gain: Math.min(16, Math.max(0, value)) }));
const fader = Object.assign(make('input'), { type: 'range', min: 0, max: 2, step: 0.01 });
fader.setAttribute('aria-label', 'Gain, as a fader');
Object.assign(gain.input, { min: 0, max: 16 });
let fades = 0;
fader.addEventListener('pointerdown', () => { fades += 1; });
fader.addEventListener('input', (event) => change(chosen, { gain: fader.valueAsNumber },
  `fader ${fades} ${chosen} ${performance.timeOrigin}`, event.timeStamp));
const level = group('Gain', gain.label, fader);

const toggle = (text, key) => {
  const element = button(text, () => change(chosen, { [key]: !partState(chosen)[key] }));
  element.setAttribute('aria-pressed', 'false');
  return element;
};
const mute = toggle('Mute', 'mute');
const solo = toggle('Solo', 'solo');
const states = ['play', 'pause', 'stop'].map((name) => button(
  name[0].toUpperCase() + name.slice(1), () => change(chosen, { state: name })));
const playing = group('Play', mute, solo, ...states);

const hand = make('p', 'nothing');
const release = button('Release', () => change(chosen, { release: true }),
  'Give the part back to the timeline');
const releasing = group('By hand', hand, release);

const show = (input, value) => {
  if (document.activeElement !== input) input.value = value;
};

/// The list of parts is only changed when they come or go, so that an open list stays usable.
let listed = '';
let listedScene = null;
function listParts() {
  const key = scene === listedScene ? listed : scene.emitters.map(({ id }) => id).join();
  listedScene = scene;
  if (key !== listed || parts.options.length === 0) {
    listed = key;
    const option = (value, text) => Object.assign(make('option', '', text), { value });
    parts.replaceChildren(option('', 'none'), option(0, 'listener'),
      ...(scene ? scene.emitters.map((emitter) => option(emitter.id, nameOf(emitter).slice(0, 60))) : []));
  }
  show(parts, chosen === null ? '' : String(chosen));
}

export function fillControls() {
  listParts();
  const part = scene && chosen !== null &&
    (chosen === 0 ? scene.listener : scene.emitters.find(({ id }) => id === chosen));
  const isEmitter = chosen !== 0;
  for (const row of [place, level, playing, releasing]) row.hidden = !part;
  if (!part) return;
  level.hidden = playing.hidden = !isEmitter;
  const own = partState(chosen);
  for (const element of panel.querySelectorAll('input, button')) element.disabled = !mayChange();
  positionOf(chosen).forEach((value, i) => show(axes[i].input, Math.round(value * 1e3) / 1e3));
  show(angle.input, Math.round(heading(part.rotation) * 1800 / Math.PI) / 10);
  if (isEmitter) {
    const value = own.level === undefined ? part.gain : own.level;
    show(gain.input, Math.round(value * 1e3) / 1e3);
    show(fader, value);
    fader.setAttribute('aria-valuetext', number(value, 2));
    mute.setAttribute('aria-pressed', String(own.mute === true));
    solo.setAttribute('aria-pressed', String(own.solo === true));
  }
  const values = ['position', 'rotation', 'gain'].filter((key) => own[key]);
  setText(hand, values.length ? `by hand: ${values.join(', ')}` : 'as the timeline has it');
  release.disabled = !mayChange() || (values.length === 0 && !own.mute && !own.solo);
}

onChoice(fillControls);
onState(fillControls);
