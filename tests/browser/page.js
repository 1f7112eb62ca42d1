// What report_test.py asks of a page.
"use strict";

function channels(colour) {
  const numbers = colour.match(/[\d.]+/g).map(Number);
  return numbers.length < 4 ? [...numbers, 1] : numbers;
}

function luminance(colour) {
  const [r, g, b] = channels(colour).map((c) => {
    const s = c / 255;
    return s <= 0.04045 ? s / 12.92 : ((s + 0.055) / 1.055) ** 2.4;
  });
  return 0.2126 * r + 0.7152 * g + 0.0722 * b;
}

function ground(element) {
  const paper = element.closest("svg")?.querySelector(".zn-paper");
  if (paper) return getComputedStyle(paper).fill;
  for (let e = element; e; e = e.parentElement) {
    const colour = getComputedStyle(e).backgroundColor;
    if (channels(colour)[3] === 1) return colour;
  }
  return "rgb(255, 255, 255)";
}

// Texts whose contrast (WCAG 2.1) is below `least`, with it.
function faint(least) {
  const found = [];
  for (const e of document.body.querySelectorAll("*")) {
    const own = [...e.childNodes].some((n) => n.nodeType === 3 && n.data.trim() !== "");
    if (!own || e.closest("script, style")) continue;
    const ink = e instanceof SVGElement ? getComputedStyle(e).fill : getComputedStyle(e).color;
    const [low, high] = [luminance(ink), luminance(ground(e))].sort((a, b) => a - b);
    const contrast = (high + 0.05) / (low + 0.05);
    if (contrast < least) found.push(`${e.tagName} "${e.textContent.trim()}" ${contrast}`);
  }
  return found;
}

// The rows of a table: [full value, text shown] of each cell.
function rows(id) {
  return [...document.querySelectorAll(`#${id} tbody tr`)].map((row) =>
    [...row.cells].map((cell) => [cell.dataset.v, cell.textContent]));
}

// The full values, or the texts, in one column of a table.
function column(id, k) {
  return [...document.querySelectorAll(`#${id} tbody tr`)].map((row) => row.cells[k].dataset.v ??
    row.cells[k].textContent);
}

function figures() {
  return Object.fromEntries([...document.querySelectorAll(".figures dt")].map((dt) =>
    [dt.textContent, dt.nextElementSibling.textContent]));
}
