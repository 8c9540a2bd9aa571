// The chart of changes over time.
import { colours, niceStep, prepareElement } from './canvas.js';
import { byId, make, setText } from './dom.js';
import { count } from './texts.js';

const groups = [
  ['movement', 'c0', ['listener', 'transforms']],
  ['hulls and gains', 'c2', ['hulls', 'params']],
  ['play states', 'c1', ['states', 'sourceStates']],
  ['comings and goings', 'c3', ['emitters', 'sources', 'connections', 'scene']],
];

let perSecond = null; // the counts by kind of change

export function drawChart() {
  const { context, width, height } = prepareElement(byId('chart'));
  if (!perSecond) return;
  const rows = groups.map(([, , kinds]) => perSecond[kinds[0]].map((_, i) =>
    kinds.reduce((sum, kind) => sum + perSecond[kind][i], 0)));
  const seconds = 119;
  const filled = rows[0].length;
  const sums = rows[0].map((_, i) => rows.reduce((sum, row) => sum + row[i], 0));
  const step = niceStep(Math.max(10, ...sums), 4);
  const top = step * Math.ceil(Math.max(10, ...sums) / step);
  const left = 48;
  const bottom = height - 20;
  const y = (value) => bottom - (bottom - 8) * value / top;
  const bar = (width - left) / seconds;
  context.font = '11px system-ui, sans-serif';
  context.textAlign = 'right';
  for (let value = 0; value <= top; value += step) {
    context.fillStyle = colours.faint;
    context.fillText(count(value), left - 6, y(value) + 4);
    context.fillStyle = value === 0 ? colours.zero : colours.grid;
    context.fillRect(left, Math.round(y(value)), width - left, 1);
  }
  for (let i = 0; i < filled; i += 1) {
    const x = width - (filled - i) * bar;
    let base = 0;
    rows.forEach((row, k) => {
      context.fillStyle = colours[groups[k][1]];
      context.fillRect(x, y(base + row[i]), Math.max(1, bar - 1), y(base) - y(base + row[i]));
      base += row[i];
    });
  }
  context.fillStyle = colours.faint;
  for (let ago = 0; ago < seconds; ago += 30) {
    context.textAlign = ago === 0 ? 'right' : 'center';
    context.fillText(ago === 0 ? 'now' : `−${ago} s`, width - ago * bar, height - 5);
  }
  const list = byId('groups');
  groups.forEach(([name], k) => {
    if (!list.children[k]) {
      const item = make('li');
      item.append(make('span', 'sign square'), make('span'));
      list.append(item);
    }
    list.children[k].firstChild.style.cssText =
      `background:${colours[groups[k][1]]};border-color:${colours[groups[k][1]]}`;
    setText(list.children[k].lastChild, `${name}: ${count(rows[k][filled - 1] || 0)}`);
  });
}
new ResizeObserver(drawChart).observe(byId('chart'));

export function showChanges(changes) {
  perSecond = changes.perSecond;
  drawChart();
}
