// The bar of the desk: undo, release and save, and messages.
import { onState, mayChange, request, state } from './deskLink.js';
import { byId, make, setText } from './dom.js';
import { plural } from './texts.js';

const bar = make('section', 'wide deskbar');
bar.setAttribute('aria-label', 'Desk');
byId('scene').before(bar);

function button(text, title, press) {
  const element = make('button', 'action', text);
  Object.assign(element, { type: 'button', title });
  element.addEventListener('click', press);
  bar.append(element);
  return element;
}

const undo = button('Undo', 'Undo the latest change (Ctrl+Z)', () => request({ undo: true }));
const redo = button('Redo', 'Redo what was undone (Ctrl+Shift+Z)', () => request({ redo: true }));
const release = button('Release all', 'Give everything back to the timeline',
  () => request({ releaseAll: true }));
const save = button('Save', 'Write the values set by hand into the scene file',
  () => request({ save: '' }, `Saved ${state.file}.`));
const name = Object.assign(make('input'), {
  type: 'text', placeholder: 'new-scene.json', maxLength: 100, spellcheck: false,
});
const label = make('label', '', 'new file');
label.append(name);
bar.append(label);
const saveAs = button('Save as', 'Write a new scene file in the same folder', () => {
  const file = name.value.trim();
  request({ save: file.endsWith('.json') ? file : `${file}.json` }, `Saved a new file.`);
});
const summary = make('p', 'nothing');
const message = make('p', 'message');
message.setAttribute('role', 'status');
bar.append(summary, message);

onState((text) => {
  const ready = mayChange();
  undo.disabled = !ready || state.undo === 0;
  redo.disabled = !ready || state.redo === 0;
  const parts = state ? state.parts.length : 0;
  release.disabled = !ready || parts === 0;
  save.disabled = !ready || !state.file || !state.unsaved;
  saveAs.disabled = name.disabled = !ready || !state.file;
  setText(summary, state && state.canChange
    ? `${parts ? plural(parts, 'part') : 'nothing'} by hand${state.unsaved ? ', not saved' : ''}` : '');
  setText(message, text);
});
