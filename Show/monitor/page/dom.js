// Helpers for the document. Everything from the server is inserted as text, never as markup.

const kMaxCell = 200; // characters of a cell

export const byId = (id) => document.getElementById(id);

/// Creates an element with a class and a text, both optional.
export function make(tag, className, text) {
  const element = document.createElement(tag);
  if (className) element.className = className;
  if (text !== undefined) element.textContent = text;
  return element;
}

export function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

/// A text, truncated for a table cell.
const brief = (text) => (text.length > kMaxCell ? `${text.slice(0, kMaxCell)}…` : text);

/// Fills a table with columns [title, class]; a cell is a text, or [text, class]. Rows are reused
/// and only texts change, so that a selection is kept. `keys`: the ids of rows that can be chosen.
export function fill(table, columns, rows, keys, chosen) {
  if (!table.tHead) {
    const head = table.createTHead().insertRow();
    for (const [title, className] of columns) head.append(make('th', className, title));
    table.createTBody();
  }
  const body = table.tBodies[0];
  while (body.rows.length > rows.length) body.lastChild.remove();
  rows.forEach((cells, i) => {
    let row = body.rows[i];
    if (!row) {
      row = body.insertRow();
      for (const [, className] of columns) row.append(make('td', className));
    }
    cells.forEach((cell, j) => {
      const [text, className] = Array.isArray(cell) ? cell : [cell, ''];
      setText(row.cells[j], brief(text));
      row.cells[j].className = `${columns[j][1]} ${className}`.trim();
    });
    if (keys) {
      row.dataset.id = keys[i];
      row.className = keys[i] === chosen ? 'pick chosen' : 'pick';
    }
  });
}
