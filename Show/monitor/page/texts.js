// Values as texts for people.

/// A number for people; the server writes null for NaN and infinity.
export function number(value, decimals = 3) {
  if (typeof value !== 'number') return 'not a number';
  const factor = 10 ** decimals;
  return String(Math.round(value * factor) / factor).replace('-', '−');
}
export const numbers = (values) => values.map((value) => number(value)).join(', ');
export const count = (value) => value.toLocaleString('en-GB');

export function bytes(value) {
  const units = ['B', 'KiB', 'MiB', 'GiB', 'TiB'];
  let unit = 0;
  while (value >= 1024 && unit < units.length - 1) {
    value /= 1024;
    unit += 1;
  }
  return `${number(value, unit === 0 ? 0 : 1)} ${units[unit]}`;
}

export function span(seconds) {
  if (seconds < 60) return `${number(seconds, 0)} s`;
  const minutes = Math.floor(seconds / 60);
  if (minutes < 60) return `${minutes} min ${Math.floor(seconds % 60)} s`;
  return `${Math.floor(minutes / 60)} h ${minutes % 60} min`;
}

export const clock = (unix) => new Date(unix * 1000).toLocaleTimeString('en-GB');
export const plural = (n, word) => `${count(n)} ${word}${n === 1 ? '' : 's'}`;
