// The connection to the desk: its state, and requests that change something, one at a time.
import { held, pinned } from './scene.js';

const kPeriod = 400; // ms between two requests of the state
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
export const latencies = []; // ms from a pointer's or key's event to the answer, the latest 200
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
/// Publishes with the next frame, as answers to a drag come faster.
function publishSoon() {
  if (publishing) return;
  publishing = true;
  requestAnimationFrame(() => {
    publishing = false;
    publish(failure);
  });
}

function take(next) {
  state = next;
  taken = performance.now();
  held.clear();
  for (const part of next.parts) if (part.position || part.rotation) held.add(part.id);
}

export const partState = (id) => (state && state.parts.find((part) => part.id === id)) || {};

const queue = []; // batches: { gesture, changes: by part, since, request }
let sending = false;

async function send(batch) {
  const request = batch.request || { gesture: batch.gesture,
    changes: [...batch.changes].map(([id, values]) => (
      id === 0 ? { listener: true, ...values } : { emitter: id, ...values })) };
  const response = await fetch('api/desk', {
    method: 'POST', cache: 'no-store', signal: AbortSignal.timeout(kPatience),
    headers: { 'Content-Type': 'application/vnd.orvel.desk+json', Authorization: `Bearer ${token}` },
    body: JSON.stringify(request),
  });
  if (response.status === 401) {
    token = null;
    sessionStorage.removeItem(kKey);
  }
  const answer = await response.json();
  if (!response.ok) throw new Error(answer.error);
  return answer;
}

async function flush() {
  if (sending) return;
  sending = true;
  while (queue.length > 0 && token) {
    const batch = queue.shift();
    try {
      take(await send(batch));
      // The playback jumps after the answer.
      if (['go', 'cue', 'seek', 'pause'].some((key) => batch.request && key in batch.request)) take(await ask());
      failure = batch.done || '';
      if (batch.since) latencies.push(performance.now() - batch.since);
      if (latencies.length > 200) latencies.shift();
    } catch (error) {
      failure = error.name === 'TimeoutError' ? 'The server does not answer.' : `Not done: ${error.message}`;
    }
    // The next scene that is asked for has the new places.
    for (const id of batch.changes ? batch.changes.keys() : []) {
      const pin = pinned.get(id);
      if (pin && !queue.some(({ changes }) => changes && changes.has(id))) pin.sent = performance.now();
    }
    publishSoon();
  }
  queue.length = 0;
  sending = false;
  wanted = null;
}

/// Sets values of a part, the listener's id being 0. Changes of one gesture are undone together,
/// and only the latest of them is sent. `since`: the time stamp of the event.
export function change(id, values, gesture = '', since = 0) {
  if (!mayChange()) return;
  if (values.position) pinned.set(id, { position: values.position, sent: Infinity });
  const last = queue[queue.length - 1];
  if (gesture && last && last.gesture === gesture) {
    last.changes.set(id, { ...last.changes.get(id), ...values });
  } else {
    queue.push({ gesture, changes: new Map([[id, values]]), since });
  }
  flush();
}

/// Sends another request, such as { undo: true }. `done`: the message when it has been carried out.
export function request(body, done = '') {
  if (!token) return;
  const last = queue[queue.length - 1];
  if (body.seek !== undefined) wanted = body.seek;
  if (body.seek !== undefined && last && last.request && last.request.seek !== undefined) queue.pop();
  queue.push({ request: body, done });
  flush();
}

async function ask() {
  const response = await fetch('api/desk', { cache: 'no-store', signal: AbortSignal.timeout(kPatience) });
  return response.json();
}

async function poll() {
  for (;;) {
    if (document.visibilityState !== 'hidden' && !sending) {
      try {
        const next = await ask();
        if (!sending) take(next);
        publish(failure);
      } catch {
        // The monitor shows that the server is not reachable.
      }
    }
    await new Promise((resolve) => { setTimeout(resolve, kPeriod); });
  }
}
poll();
