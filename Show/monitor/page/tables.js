// The tables of emitters, sources and back ends.
import { byId, fill } from './dom.js';
import { dataText, labelsText, levelText, nameOf, stateText } from './parts.js';
import { heardReach, scene, sources } from './scene.js';
import { choose, chosen, onChoice } from './selection.js';
import { count, number, numbers, plural, span } from './texts.js';

const kMaxRows = 200; // rows of a table
const n = 'number';

export function fillTables() {
  if (!scene) return;
  const wanted = byId('filter').value.trim().toLowerCase();
  const fitting = scene.emitters.filter((emitter) => !wanted ||
    `${nameOf(emitter)} ${stateText(emitter)}`.toLowerCase().includes(wanted));
  const emitters = fitting.slice(0, kMaxRows);
  byId('emitterCount').textContent = emitters.length < scene.emitters.length
    ? `${count(emitters.length)} of ${count(scene.emitters.length)}` : count(emitters.length);
  fill(byId('emitters'), [['id', n], ['state', ''], ['source', ''], ['position x, y, z', ''],
    ['gain', n], ['level', n], ['full level', n], ['softest', n], ['labels', 'long']],
  emitters.map((emitter) => {
    const source = sources.get(emitter.source);
    const reach = heardReach(emitter);
    return [String(emitter.id), stateText(emitter),
      emitter.source === null ? 'none' : `${emitter.source} ${source ? source.name : ''}`,
      numbers(emitter.position), number(emitter.gain), levelText(emitter),
      reach ? number(reach.full) : '', reach ? number(reach.softest) : '',
      labelsText(emitter)];
  }), emitters.map(({ id }) => id), chosen);
  const some = scene.sources.slice(0, kMaxRows);
  byId('sourceCount').textContent = some.length < scene.sources.length
    ? `${count(some.length)} of ${count(scene.sources.length)}` : count(some.length);
  fill(byId('sources'), [['id', n], ['name', ''], ['state', ''], ['sound', 'long'], ['length', n],
    ['pitch', n], ['looped', ''], ['emitters', n]],
  some.map((source) => [String(source.id), source.name, source.state, dataText(source),
    source.duration > 0 ? `${number(source.duration, 2)} s` : '', number(source.pitch),
    source.loop ? 'yes' : 'no', count(source.emitters)]));
  byId('summary').textContent = `${plural(scene.emitters.length, 'emitter')}, ` +
    `${plural(scene.sources.length, 'source')}, ` +
    `${scene.enabled ? '' : 'switched off, '}for ${span(scene.seconds)}`;
}

byId('emitters').addEventListener('click', (event) => {
  const row = event.target.closest('tr[data-id]');
  if (row) choose(Number(row.dataset.id));
});
byId('filter').addEventListener('input', fillTables);
onChoice(fillTables);

export function fillBackends(status) {
  fill(byId('backends'), [['kind', ''], ['works', ''], ['device', 'long'], ['latency', n],
    ['voices', n], ['waiting', n], ['refused', n], ['streams', n], ['gaps', n], ['labels', 'long']],
  status.backends.map((backend) => [backend.kind,
      backend.working && backend.enabled ? 'yes' : ['no', 'bad'],
      backend.device || (backend.deviceState === 'none' ? '' : [backend.deviceState, 'bad']),
      backend.latency === null ? '' : `${number(backend.latency * 1000, 0)} ms`,
      backend.voicesAllowed > 0
        ? `${count(backend.voicesUsed)} of ${count(backend.voicesAllowed)}` : '',
      backend.waiting > 0 ? count(backend.waiting) : '',
      backend.refused > 0 ? [count(backend.refused), 'bad'] : '',
      backend.streams > 0 ? count(backend.streams) : '',
      backend.gaps > 0 ? [count(backend.gaps), 'bad'] : '',
      backend.labels.join(', ') || 'none: every emitter']));
}
