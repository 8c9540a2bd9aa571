// The monitor's page: polls the scene ten times a second and the status once, draws, and fills the
// tables.
import { readColours } from './canvas.js';
import { drawChart, showChanges } from './chart.js';
import { fillDetails } from './details.js';
import { byId, setText } from './dom.js';
import { map, recolour, showScene } from './map.js';
import { fillNetwork } from './network.js';
import './pointers.js';
import { kScenePeriod, scene, takeScene } from './scene.js';
import { fillBackends, fillTables } from './tables.js';
import { span } from './texts.js';
import { view } from './view.js';

const kStatusPeriod = 1000; // ms
const kTablePeriod = 400; // ms; a faster update would be unreadable
const kRetryPeriod = 1000;
const kPatience = 5000; // ms to wait for an answer

let lastStatus = null;

function takeStatus(next) {
  const previous = lastStatus && lastStatus.instance === next.instance ? lastStatus : null;
  lastStatus = next;
  fillBackends(next);
  fillNetwork(next, previous);
  showChanges(next.changes);
}

let lastAnswer = 0;

function showLink(state) {
  const link = byId('link');
  const lost = state === 'lost';
  setText(link, { live: 'live', lost: 'not reachable, trying again', rest: 'resting' }[state]);
  link.className = `pill ${state === 'rest' ? 'waiting' : state}`;
  map.classList.toggle('away', lost);
  let notice = '';
  if (lost) {
    notice = lastAnswer === 0 ? 'The server has not answered yet.'
      : `No answer for ${span((performance.now() - lastAnswer) / 1000)}: ` +
        'this is how the scene was.';
  } else if (scene && !scene.enabled) {
    notice = 'The scene is switched off: nothing is heard.';
  }
  byId('notice').hidden = !notice;
  setText(byId('notice'), notice);
}

async function ask(path) {
  const response = await fetch(path, { cache: 'no-store', signal: AbortSignal.timeout(kPatience) });
  if (!response.ok) throw new Error(`${path}: ${response.status}`);
  return response.text();
}

const pause = (ms) => new Promise((resolve) => { setTimeout(resolve, ms); });

/// Resolves when the page is visible; a hidden page does not poll.
async function untilSeen() {
  if (document.visibilityState !== 'hidden') return;
  showLink('rest');
  await new Promise((resolve) => {
    document.addEventListener('visibilitychange', resolve, { once: true });
  });
}

async function run() {
  let nextStatus = 0;
  let nextTables = 0;
  for (;;) {
    await untilSeen();
    const begin = performance.now();
    let text = '';
    let nextScene = null;
    let newStatus = null;
    try {
      text = await ask('api/scene');
      nextScene = JSON.parse(text);
      if (begin >= nextStatus) newStatus = JSON.parse(await ask('api/status'));
    } catch {
      showLink('lost');
      nextStatus = 0;
      nextTables = 0;
      await pause(kRetryPeriod);
      continue;
    }
    lastAnswer = performance.now();
    if (takeScene(nextScene, begin)) view.fitted = false;
    const shown = showScene(text);
    if (newStatus) {
      nextStatus = begin + kStatusPeriod;
      takeStatus(newStatus);
    }
    if (begin >= nextTables) {
      nextTables = begin + kTablePeriod;
      fillTables();
      fillDetails();
    }
    showLink('live');
    await shown;
    await pause(Math.max(10, kScenePeriod - (performance.now() - begin)));
  }
}

matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => {
  readColours();
  recolour();
  drawChart();
});
readColours();
recolour();
run();
