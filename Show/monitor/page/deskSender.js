// Sends the desk's requests: a worker, so that they do not wait for the page's thread. One at a time,
// and of the changes of a gesture only the latest.
const kPatience = 5000; // ms to wait for an answer
const kPeriod = 8; // ms between two requests, as the server limits their rate

const now = () => performance.timeOrigin + performance.now();
const pause = (ms) => new Promise((resolve) => { setTimeout(resolve, ms); });

const queue = []; // messages of deskLink.js, with `changes` by part in place of `id` and `values`
let sending = false;

const call = (more) => fetch('api/desk',
  { cache: 'no-store', signal: AbortSignal.timeout(kPatience), ...more });

async function send({ token, gesture, changes, request }) {
  const body = request || { gesture, changes: [...changes].map(([id, values]) => (
    id === 0 ? { listener: true, ...values } : { emitter: id, ...values })) };
  const response = await call({
    method: 'POST', body: JSON.stringify(body),
    headers: { 'Content-Type': 'application/vnd.orvel.desk+json', Authorization: `Bearer ${token}` },
  });
  const answer = await response.json();
  if (!response.ok) return { refused: response.status === 401, error: `Not done: ${answer.error}` };
  // The playback jumps after the answer.
  const jumps = ['go', 'cue', 'seek', 'pause'].some((key) => key in body);
  return { state: jumps ? await (await call()).json() : answer };
}

async function sendAll() {
  sending = true;
  while (queue.length > 0) {
    const due = performance.now() + kPeriod;
    const { number, since, done, ...message } = queue.shift();
    let result;
    try {
      result = await send(message);
    } catch (error) {
      result = { error: error.name === 'TimeoutError' ? 'The server does not answer.'
        : `Not done: ${error.message}` };
    }
    const last = result.refused ? queue.splice(0).pop() : null;
    postMessage({ number: last ? last.number : number, since, done, answered: now(), ...result });
    await pause(Math.max(0, due - performance.now()));
  }
  sending = false;
}

addEventListener('message', ({ data: { id, values, ...message } }) => {
  const last = queue[queue.length - 1];
  if (message.request) {
    if (message.request.seek !== undefined && last && last.request && last.request.seek !== undefined) queue.pop();
    queue.push(message);
  } else if (message.gesture && last && last.gesture === message.gesture) {
    last.changes.set(id, { ...last.changes.get(id), ...values });
    last.number = message.number;
  } else {
    queue.push({ ...message, changes: new Map([[id, values]]) });
  }
  if (!sending) sendAll();
});
