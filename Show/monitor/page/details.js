// All values of the selected part.
import { byId, make, setText } from './dom.js';
import { dataText, labelsText, levelText } from './parts.js';
import { heading, heardReach, hearing, isSpatial, scene, sources } from './scene.js';
import { chosen, onChoice } from './selection.js';
import { number, numbers } from './texts.js';

function valuesOf(emitter) {
  const source = sources.get(emitter.source);
  const listener = scene.listener.position;
  const distance = Math.hypot(...emitter.position.map((value, i) => value - listener[i]));
  const { hull } = emitter;
  const heard = heardReach(emitter);
  const { reason } = hearing(emitter);
  const rows = [['state', emitter.state],
    ['heard', reason ? `no: ${reason}` : isSpatial(emitter) ? 'yes' : 'at the listener'],
    ['level', levelText(emitter) || 'not known']];
  if (emitter.source === null) {
    rows.push(['source', 'none']);
  } else if (!source) {
    rows.push(['source', String(emitter.source)]);
  } else {
    const length = source.duration > 0 ? `${number(source.duration, 2)} s` : 'length not known';
    rows.push(['source', `${source.id} ${source.name}`.trim()], ['its state', source.state],
      ['its sound', `${dataText(source)}; ${length}${source.loop ? ', looped' : ''}`],
      ['its pitch', number(source.pitch)]);
  }
  const { object } = emitter;
  if (object) {
    if (object.name) rows.unshift(['name', object.name]);
    const inner = (hull.minBack + hull.minFront) / 2 / object.unit;
    rows.push(['w', number(emitter.radius / object.unit)], ['dref', number(Math.min(1, inner))],
      ['dmax', number(object.unit)]);
  }
  rows.push(['labels', labelsText(emitter) || 'none: every back end'],
    ['position', numbers(emitter.position)],
    ['rotation', numbers(emitter.rotation)],
    ['heading', `${number(heading(emitter.rotation) * 180 / Math.PI, 1)}°`],
    ['distance', `${number(distance)} from the listener`],
    ['spatial', emitter.spatial ? 'yes' : 'no: heard at the listener'],
    ['gain', number(emitter.gain)],
    ['full level', heard ? `up to ${number(heard.full)}` : 'at any distance'],
    ['softest from', heard ? number(heard.softest) : 'nowhere'],
    ['hull', `${number(hull.minFront)} to ${number(hull.maxFront)} in front, ` +
      `${number(hull.minBack)} to ${number(hull.maxBack)} behind; OpenAL uses the means`],
    ['radius', number(emitter.radius)],
    ['value', number(emitter.value)]);
  return rows;
}

export function fillDetails() {
  let title = 'Nothing chosen';
  let rows = [];
  if (scene && chosen === 0) {
    title = 'Listener';
    rows = [['position', numbers(scene.listener.position)],
      ['rotation', numbers(scene.listener.rotation)],
      ['heading', `${number(heading(scene.listener.rotation) * 180 / Math.PI, 1)}°`],
      ['the scene', scene.enabled ? 'is heard' : 'is switched off'],
      ['emitters', scene.spatialize ? 'are spatial' : 'are all heard at the listener']];
  } else if (scene && chosen !== null) {
    const emitter = scene.emitters.find(({ id }) => id === chosen);
    title = `Emitter ${chosen}`;
    rows = emitter ? valuesOf(emitter) : [['', 'is not in the scene now']];
  }
  byId('chosen').textContent = title;
  byId('hint').hidden = rows.length > 0;
  const list = byId('values');
  while (list.children.length < rows.length * 2) list.append(make('dt'), make('dd'));
  while (list.children.length > rows.length * 2) list.lastChild.remove();
  rows.forEach(([name, value], i) => {
    setText(list.children[2 * i], name);
    setText(list.children[2 * i + 1], value);
  });
}

onChoice(fillDetails);
