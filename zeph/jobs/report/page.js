"use strict";

// Sorts the rows of a table by a column. Numbers are compared by the full value that a cell keeps
// in data-v, residuals by their size whatever the sign; cells without a number come last either way.
function sortBy(head, descending) {
  const table = head.closest("table");
  const column = head.cellIndex;
  const bySize = head.dataset.by === "size";
  const sign = descending ? -1 : 1;
  const key = (row) => {
    const cell = row.cells[column];
    if (cell.dataset.v === undefined) return cell.textContent;
    const value = parseFloat(cell.dataset.v);
    return bySize ? Math.abs(value) : value;
  };
  const order = (a, b) => {
    if (typeof a === "string") return sign * a.localeCompare(b, "en", { numeric: true });
    if (Number.isNaN(a) || Number.isNaN(b)) return Number.isNaN(a) - Number.isNaN(b);
    return sign * (a - b);
  };
  const rows = Array.from(table.tBodies[0].rows, (row) => ({ row, key: key(row) }));
  rows.sort((a, b) => order(a.key, b.key));
  table.tBodies[0].append(...rows.map((entry) => entry.row));

  for (const other of table.tHead.rows[0].cells) other.removeAttribute("aria-sort");
  head.setAttribute("aria-sort", descending ? "descending" : "ascending");
  document.getElementById("said").textContent =
    `Sorted by ${head.textContent}, ${descending ? "descending" : "ascending"}`;
}

// The first click on a figure shows the largest on top, on an index or a name the first; another
// click turns the order round.
for (const head of document.querySelectorAll("th")) {
  head.querySelector("button").addEventListener("click", () => {
    const now = head.getAttribute("aria-sort");
    sortBy(head, now === null ? head.dataset.first === "descending" : now === "ascending");
  });
}
