// The latest scene, what is heard of it, and where its parts have been.

export const kScenePeriod = 100; // ms between two requests of the scene
export const kPathSeconds = 10;

export let scene = null; // the latest one
export let sources = new Map(); // of that scene, by id
export const tracks = new Map(); // the drawn state of the emitters, by id; the listener's id is 0
/// Positions that this page is setting, by id: `position`, `number` of the change, and `sent`, the
/// time of the answer.
export const pinned = new Map();
export const held = new Set(); // ids of the parts whose place is set by hand
let instance = ''; // of the server whose tracks are stored

/// The sign of an emitter: whether it is heard, and the reason if not.
export function hearing(emitter) {
  const source = sources.get(emitter.source);
  if (emitter.state === 'pause') return { sign: 'pause', reason: 'paused' };
  if (emitter.state !== 'play') return { sign: 'stop', reason: 'not playing' };
  if (emitter.source === null) return { sign: 'muted', reason: 'no source' };
  if (source && source.data === 'none') return { sign: 'muted', reason: 'no sound' };
  if (emitter.hearing === 'refused') return { sign: 'muted', reason: 'cannot be played' };
  if (emitter.hearing === 'loading') return { sign: 'muted', reason: 'is loading' };
  // A back end that accounts for an emitter knows better than the clock.
  if (emitter.hearing === 'over' || (emitter.over && emitter.hearing === null)) {
    return { sign: 'over', reason: 'has ended' };
  }
  if (emitter.gain === 0) return { sign: 'muted', reason: 'gain 0' };
  if (!scene.enabled) return { sign: 'muted', reason: 'scene switched off' };
  if (emitter.hearing === 'waiting') return { sign: 'muted', reason: 'waits for a voice' };
  return { sign: 'play', reason: '' };
}

/// Whether an emitter is heard at its position; otherwise it is heard at the listener.
export const isSpatial = (emitter) => scene.spatialize && emitter.spatial;

/// The distances between which the level of an emitter falls, the same in all directions: `full` and
/// `softest`. Null if distance has no effect or an extent of its hull is not finite.
export const heardReach = (emitter) => (isSpatial(emitter) ? emitter.reach : null);

/// The direction of "ahead" on the map: the clockwise angle from up, in radians. The axes are those
/// of the scene from above: x to the right, z downwards.
export function heading([x, y, z, w]) {
  const aheadX = -2 * (x * z + w * y);
  const aheadZ = -(1 - 2 * (x * x + y * y));
  return Math.hypot(aheadX, aheadZ) < 1e-6 ? 0 : Math.atan2(aheadX, -aheadZ);
}

const isPlace = (part) => part.position.every(Number.isFinite) &&
  (part.hull !== undefined || part.rotation.every(Number.isFinite));

/// Moves a track to where it is drawn at that time: between the places of the two latest answers.
/// Returns whether it still moves.
export function advance(track, now) {
  const part = Math.min(1, Math.max(0, now - track.since) / kScenePeriod);
  track.x = track.fromX + (track.toX - track.fromX) * part;
  track.z = track.fromZ + (track.toZ - track.fromZ) * part;
  return part < 1 && (track.fromX !== track.toX || track.fromZ !== track.toZ);
}

/// Moves a track to a place at once.
export function put(id, [x, , z]) {
  const track = tracks.get(id);
  if (track) Object.assign(track, { x, z, fromX: x, fromZ: z, toX: x, toZ: z });
}

function follow(id, part, now) {
  if (!isPlace(part)) {
    tracks.delete(id);
    return;
  }
  const [x, , z] = pinned.has(id) ? pinned.get(id).position : part.position;
  let track = tracks.get(id);
  if (track) {
    advance(track, now);
  } else {
    track = { x, z, path: [] };
    tracks.set(id, track);
  }
  // Interpolates from the drawn position to the current one over the frames until the next answer.
  const sign = id === 0 ? '' : hearing(part).sign;
  Object.assign(track, { part, sign, fromX: track.x, fromZ: track.z, toX: x, toZ: z, since: now });
  const last = track.path[track.path.length - 1];
  if (!last || last.x !== x || last.z !== z) {
    if (last && now - last.until > 5 * kScenePeriod) track.path.push({ ...last, at: now });
    track.path.push({ x, z, at: now, until: now });
  } else {
    last.until = now;
  }
  while (track.path.length > 1 && track.path[1].at < now - kPathSeconds * 1000) track.path.shift();
}

/// Takes the next scene, which was asked for at that time. Returns whether another server has sent
/// it than the one before.
export function takeScene(next, asked) {
  const now = performance.now();
  const restarted = next.instance !== instance && instance !== '';
  if (next.instance !== instance) {
    tracks.clear();
    instance = next.instance;
  }
  scene = next;
  sources = new Map(next.sources.map((source) => [source.id, source]));
  for (const [id, pin] of pinned) {
    if (pin.sent <= asked) pinned.delete(id);
  }
  const present = new Set([0]);
  follow(0, next.listener, now);
  for (const emitter of next.emitters) {
    present.add(emitter.id);
    follow(emitter.id, emitter, now);
  }
  for (const id of tracks.keys()) {
    if (!present.has(id)) tracks.delete(id);
  }
  return restarted;
}
