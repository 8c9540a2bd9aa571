// The playback: its state, cues and time, and the controls that change them.
import { mayControl, onState, request, state, stateTime } from './deskLink.js';
import { showBehind } from './deskPicture.js';
import { byId, make, setText } from './dom.js';
import { map } from './map.js';

const kTimePeriod = 100; // ms between two changes of the shown time
const kSkip = 5; // seconds that a key goes forward or back

const bar = make('section', 'wide deskbar');
bar.setAttribute('aria-label', 'Playback');
byId('scene').before(bar);

function button(text, title, press, parent = bar) {
  const element = make('button', 'action', text);
  Object.assign(element, { type: 'button', title });
  element.addEventListener('click', press);
  parent.append(element);
  return element;
}

const next = () => { if (state && state.canGo) request({ go: true }); };
const pause = () => { if (state) request({ pause: state.state !== 'paused' }); };
const go = button('Go', 'Play the next cue (space on the map)', next);
const hold = button('Pause', 'Pause the timeline and the sounds, or let them go on (Enter on the map)', pause);
const text = make('p', 'time');
bar.append(text);
const slider = Object.assign(make('input'), { type: 'range', min: 0, step: 0.1 });
slider.setAttribute('aria-label', 'Time in the scene');
const time = make('div', 'scrub');
time.append(slider);
bar.append(time);
showBehind(time);
const cues = make('div', 'row cues');
cues.setAttribute('role', 'group');
cues.setAttribute('aria-label', 'Cues');
bar.append(cues);

function span(seconds) {
  const minutes = Math.floor(seconds / 60);
  return `${minutes}:${(seconds - 60 * minutes).toFixed(1).padStart(4, '0')}`;
}

let scrubbing = false;
slider.addEventListener('pointerdown', () => { scrubbing = true; });
for (const type of ['pointerup', 'pointercancel', 'change']) {
  slider.addEventListener(type, () => { scrubbing = false; });
}
slider.addEventListener('input', () => seek(slider.valueAsNumber));

function seek(seconds) {
  request({ seek: Math.round(Math.min(Math.max(seconds, 0), state.end) * 10) / 10 });
  showTime();
}

function showTime() {
  const seconds = stateTime();
  setText(text, `${state.cue === null ? '' : `${state.cue}, `}${span(seconds)} of ${span(state.end)}, ` +
    `${state.state}${state.next === null ? '' : `; next: ${state.next}`}`);
  if (!scrubbing) slider.value = seconds;
  slider.setAttribute('aria-valuetext', `${span(seconds)} of ${span(state.end)}`);
}
setInterval(() => {
  if (state && state.state === 'playing' && document.visibilityState !== 'hidden') showTime();
}, kTimePeriod);

let listed = '';
function listCues() {
  const key = JSON.stringify(state.cues);
  if (key !== listed) {
    listed = key;
    cues.replaceChildren();
    for (const { name, at } of state.cues) {
      button(name, `Play this cue, from ${span(at)}`, () => request({ cue: name }), cues);
    }
  }
  state.cues.forEach(({ name }, i) => {
    cues.children[i].disabled = !mayControl();
    if (name === state.cue) cues.children[i].setAttribute('aria-current', 'true');
    else cues.children[i].removeAttribute('aria-current');
  });
}

onState(() => {
  bar.hidden = !state || state.state === undefined;
  if (bar.hidden) return;
  listCues();
  cues.hidden = state.cues.length === 0;
  go.disabled = !mayControl() || !state.canGo;
  go.hidden = state.cues.length === 0 && !state.canGo;
  hold.disabled = slider.disabled = !mayControl();
  setText(hold, state.state === 'paused' ? 'Go on' : 'Pause');
  slider.max = state.end;
  showTime();
});

map.addEventListener('keydown', (event) => {
  const action = {
    ' ': next, Enter: pause, ',': () => seek(stateTime() - kSkip), '.': () => seek(stateTime() + kSkip),
  }[event.key];
  if (!action || event.ctrlKey || event.altKey || event.metaKey || !mayControl()) return;
  event.preventDefault();
  action();
});
