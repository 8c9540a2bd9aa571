// The connections of servers and clients.
import { byId, fill, make, setText } from './dom.js';
import { bytes, clock, count, plural } from './texts.js';

const kMaxRows = 200; // rows of a table
const n = 'number';

/// Creates missing parts of the network section; they are updated in place.
function networkPart(i) {
  const section = byId('network');
  let part = section.children[i + 1];
  if (!part) {
    part = make('div');
    part.append(make('h3'), make('p', 'nothing'), make('div', 'scroll'), make('ul', 'drops'));
    Object.assign(part.children[2], { tabIndex: 0, role: 'group', ariaLabel: 'Connections' });
    part.children[2].append(make('table'));
    section.append(part);
  }
  return part;
}

/// `oldStatus`: the previous one of the same server, for rates, or null.
export function fillNetwork(status, oldStatus) {
  const section = byId('network');
  if (!section.firstChild) section.append(make('h2', '', 'Network'));
  section.hidden = status.network.length === 0;
  while (section.children.length > status.network.length + 1) section.lastChild.remove();
  const passed = oldStatus ? status.seconds - oldStatus.seconds : 0;
  status.network.forEach((end, i) => {
    const [title, sums, scroll, drops] = networkPart(i).children;
    const here = end.role === 'server' ? `Server, id ${end.id}, TCP port ${end.port}` : 'Client';
    setText(title, `${here}: ${plural(end.connections.length, 'connection')}`);
    setText(sums, `${count(end.connected)} so far, ${count(end.dropped)} lost, ` +
      `${count(end.refused)} refused; in ${plural(end.eventsIn, 'event')}, ${bytes(end.bytesIn)}; ` +
      `out ${plural(end.eventsOut, 'event')}, ${bytes(end.bytesOut)}; ` +
      `${bytes(end.bytesKept)} kept to be sent` +
      (end.eventsLeftOut ? `; ${plural(end.eventsLeftOut, 'event')} superseded and left out` : '') +
      (end.datagramsIgnored ? `; ${plural(end.datagramsIgnored, 'ignored datagram')}` : ''));
    const before = new Map(((oldStatus && oldStatus.network[i]) || { connections: [] })
      .connections.map((connection) => [connection.peer, connection]));
    const rate = (connection, key) => {
      const old = before.get(connection.peer);
      return old && passed > 0 ? count(Math.round((connection[key] - old[key]) / passed)) : '';
    };
    scroll.hidden = end.connections.length === 0;
    fill(scroll.firstChild, [['peer', ''], ['id', n], ['since', ''], ['events in', n],
      ['a second', n], ['bytes in', n], ['events out', n], ['a second', n], ['bytes out', n],
      ['waiting', n], ['clock', n], ['late', n]],
    end.connections.slice(0, kMaxRows).map((connection) => [
      connection.lost ? [`${connection.peer} (lost)`, 'bad'] : connection.peer,
      String(connection.id), clock(connection.since), count(connection.eventsIn),
      rate(connection, 'eventsIn'), bytes(connection.bytesIn), count(connection.eventsOut),
      rate(connection, 'eventsOut'), bytes(connection.bytesOut),
      connection.bytesWaiting > 65536 ? [bytes(connection.bytesWaiting), 'bad']
        : bytes(connection.bytesWaiting),
      connection.clockKnown ? `± ${(connection.clockError * 1000).toFixed(3)} ms` : '',
      connection.batches
        ? `${count(connection.lateBatches)} of ${count(connection.batches)}` : '']));
    const lines = end.lastDrops.slice(-5).reverse().map((drop) =>
      `${clock(drop.when)} ${drop.peer} is gone: ${drop.reason || 'it closed the connection'}`);
    while (drops.children.length > lines.length) drops.lastChild.remove();
    lines.forEach((line, k) => {
      if (!drops.children[k]) drops.append(make('li'));
      setText(drops.children[k], line);
    });
  });
}
