// Texts about the parts of the scene.
import { hearing, sources } from './scene.js';
import { bytes, count, number, plural } from './texts.js';

export function stateText(emitter) {
  const { reason } = hearing(emitter);
  return emitter.state === 'play' && reason ? `play, ${reason}` : emitter.state;
}

/// The level at the listener; empty if it is silent or not known.
export const levelText = (emitter) =>
  (emitter.level === null ? '' : `${number(emitter.level, 1)} dB`);

export function labelsText(emitter) {
  return emitter.labels.join(', ') +
    (emitter.labelsLeftOut ? ` and ${count(emitter.labelsLeftOut)} more` : '');
}

export function dataText(source) {
  if (source.data === 'url') return source.url;
  if (source.data === 'none') return 'no sound';
  return `${count(source.rate)} Hz, ${source.bits} bit, ` +
    `${plural(source.channels, 'channel')}, ${bytes(source.bytes)}`;
}

export function nameOf(emitter) {
  const source = sources.get(emitter.source);
  const own = (emitter.object && emitter.object.name) || (source && source.name);
  const name = own ? ` ${own}` : '';
  const labels = emitter.labels.length ? ` [${labelsText(emitter)}]` : '';
  return `${emitter.id}${name}${labels}`;
}
