// The connection to the desk: its state, and requests that change something.
import { held, pinned } from './scene.js';

const kPeriod = 400; // ms between two requests of the state
const kPublishPeriod = 50; // ms
const kPatience = 5000; // ms to wait for an answer
const kKey = 'orvel-desk-token';

/// The token of the address, which is not kept there: it would stand in the history and on
/// screenshots.
function takeToken() {
  const given = /^#token=([0-9a-f]+)$/.exec(location.hash);
  if (given) {
    sessionStorage.setItem(kKey, given[1]);
    history.replaceState(null, '', location.pathname);
  }
  return sessionStorage.getItem(kKey);
}

let token = takeToken();
addEventListener('hashchange', () => { token = takeToken(); }); // pasted into a tab that watches
export let state = null; // the latest one
/// ms from an event of a pointer or a key until the scene had its change (`applied`) and until the
/// answer was here (`answered`); the latest 200.
export const latencies = [];
const listeners = [];
let failure = '';

/// Calls `listener` with a message, or an empty text, when the state may have changed.
export const onState = (listener) => listeners.push(listener);
export const mayChange = () => token !== null && state !== null && state.canChange;
export const mayControl = () => token !== null && state !== null && state.state !== undefined;

let taken = 0; // when the latest state came
let wanted = null; // the time that is being asked for
/// The present time in the scene, in seconds.
export function stateTime() {
  if (wanted !== null) return wanted;
  const passed = state.state === 'playing' ? (performance.now() - taken) / 1000 : 0;
  return Math.min(state.time + passed, Math.max(state.end, state.time));
}

function publish(message = '') {
  if (!token) message = 'Watching only. To make changes, open the address of the desk that was printed.';
  else if (state && !state.canChange) message = message || 'A capture cannot be changed.';
  for (const listener of listeners) listener(message);
}

let publishing = false;
/// Publishes a little later, as answers to a drag come faster than the page could show them.
function publishSoon() {
  if (publishing) return;
  publishing = true;
  setTimeout(() => {
    publishing = false;
    publish(failure);
  }, kPublishPeriod);
}

function take(next) {
  state = next;
  taken = performance.now();
  held.clear();
  for (const part of next.parts) if (part.position || part.rotation) held.add(part.id);
}

export const partState = (id) => (state && state.parts.find((part) => part.id === id)) || {};

const sender = new Worker('deskSender.js', { type: 'module' });
let sent = 0; // number of the latest message to it
let answered = 0;
const isBusy = () => answered < sent;

function post(message) {
  sent += 1;
  sender.postMessage({ ...message, number: sent, token });
  return sent;
}

sender.addEventListener('message', ({ data }) => {
  answered = data.number;
  if (data.state) {
    take(data.state);
    if (data.since) {
      latencies.push({ applied: data.state.clock * 1000 - data.since, answered: data.answered - data.since });
    }
    if (latencies.length > 200) latencies.shift();
  }
  if (data.refused) {
    token = null;
    sessionStorage.removeItem(kKey);
  }
  failure = data.error || data.done || '';
  // The next scene that is asked for has the new places.
  for (const pin of pinned.values()) {
    if (pin.number <= answered && pin.sent === Infinity) pin.sent = performance.now();
  }
  if (!isBusy()) wanted = null;
  publishSoon();
});

/// Sets values of a part, the listener's id being 0. Changes of one gesture are undone together,
/// and only the latest of them is sent. `since`: the time stamp of the event.
export function change(id, values, gesture = '', since = 0) {
  if (!mayChange()) return;
  const number = post({ gesture, id, values, since: since && performance.timeOrigin + since });
  if (values.position) pinned.set(id, { position: values.position, number, sent: Infinity });
}

/// Sends another request, such as { undo: true }. `done`: the message when it has been carried out.
export function request(body, done = '') {
  if (!token) return;
  if (body.seek !== undefined) wanted = body.seek;
  post({ request: body, done });
}

async function ask() {
  const response = await fetch('api/desk', { cache: 'no-store', signal: AbortSignal.timeout(kPatience) });
  return response.json();
}

async function poll() {
  for (;;) {
    if (document.visibilityState !== 'hidden' && !isBusy()) {
      try {
        const next = await ask();
        if (!isBusy()) take(next);
        publish(failure);
      } catch {
        // The monitor shows that the server is not reachable.
      }
    }
    await new Promise((resolve) => { setTimeout(resolve, kPeriod); });
  }
}
poll();
