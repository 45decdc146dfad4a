"use strict";

// Every text of a document reaches the page as a text node, through show(). Nothing here makes
// markup from texts.

const $ = (id) => document.getElementById(id);

// Characters that would not be seen, or would change how others are seen. A byte that is no UTF-8
// stands as a lone surrogate U+DC00 + byte.
const UNSEEN = /[\p{Cc}\p{Cs}\p{Zl}\p{Zp}]|(?![\u200C\u200D])\p{Cf}/u;
const EACH_UNSEEN = new RegExp(UNSEEN, "gu");

function escaped(character) {
  const code = character.codePointAt(0);
  const hex = (number, width) => number.toString(16).toUpperCase().padStart(width, "0");
  if (code >= 0xDC80 && code <= 0xDCFF) return "\\x" + hex(code - 0xDC00, 2);
  return code > 0xFFFF ? `\\u{${hex(code, 5)}}` : "\\u" + hex(code, 4);
}

/** The text as it is seen. */
const seen = (text) => UNSEEN.test(text) ? text.replace(EACH_UNSEEN, escaped) : text;

/** Adds a text to an element. Escapes are marked, so that no name can pretend to hold one. */
function show(element, text) {
  let from = 0;
  for (const match of text.matchAll(EACH_UNSEEN)) {
    element.append(text.slice(from, match.index),
      make("span", {className: "escape"}, escaped(match[0])));
    from = match.index + match[0].length;
  }
  element.append(text.slice(from));
}

/** A new element, with its properties and children: texts or elements. */
function make(tag, properties = {}, ...children) {
  const element = Object.assign(document.createElement(tag), properties);
  for (const child of children) {
    if (typeof child === "string") show(element, child);
    else element.append(child);
  }
  return element;
}

function draw(tag, attributes, ...children) {
  const element = document.createElementNS("http://www.w3.org/2000/svg", tag);
  for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, value);
  element.append(...children);
  return element;
}

/** The data of a block that make_report.py wrote. */
async function unpacked(id) {
  const packed = atob($(id).textContent);
  const bytes = new Uint8Array(packed.length);
  for (let at = 0; at < packed.length; ++at) bytes[at] = packed.charCodeAt(at);
  const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream("deflate"));
  return new Response(stream).json();
}

// Numbers are BigInt all the way: sizes have 64 bits, and sums of them more.

const number = (text) => /^-?\d{1,20}$/.test(text) ? BigInt(text) : 0n;
const compare = (a, b) => a < b ? -1 : a > b ? 1 : 0;
const grouped = (value) => value.toLocaleString("en");
const plural = (count, one, many) => `${grouped(count)} ${count == 1 ? one : many}`;

/** About how much this is: "1.4 GiB". */
function rounded(bytes) {
  let value = Number(bytes), unit = 0;
  while (Math.abs(value) >= 1024 && unit < 6) {
    value /= 1024;
    ++unit;
  }
  const digits = unit > 0 && Math.abs(value) < 100 ? 1 : 0;
  return `${value.toFixed(digits)} ${["B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"][unit]}`;
}

/** Seconds since 1970 as a date; "" for what is none, like the time 0 of images without a time. */
function date(seconds) {
  if (seconds <= 0n || seconds > 253402300799n) return "";
  return new Date(Number(seconds) * 1000).toISOString().slice(0, 19).replace("T", " ") + " UTC";
}

// ---- Backup sets

/** What all of these agree on, or "". */
const agreed = (images, key) =>
  images.length > 0 && images.every((image) => image[key] === images[0][key]) ? images[0][key] : "";

/** Every set with what its images tell. They are in a directory with the set's time as its name. */
function describedSets(index) {
  const images_in = Map.groupBy(index.images, (image) => image.where);
  return index.lists.flatMap(({where, sets}) => sets.map(([time, size]) => {
    const images = images_in.get(where ? `${where}/${time}` : time) ?? [];
    const [client, policy, schedule] =
      ["client", "policy", "schedule"].map((key) => agreed(images, key));
    return {where, images, client, policy, schedule, time: BigInt(time), size: BigInt(size)};
  }));
}

/** The lanes of the time line: one for each list, or for each client and policy in it. */
function lanesOf(sets) {
  const series = (set) => JSON.stringify([set.client, set.policy]);
  return [...Map.groupBy(sets, (set) => set.where)].flatMap(([where, members]) => {
    const of_series = Map.groupBy(members, series);
    const known = members.filter((set) => set.client || set.policy);
    // A list of which one series is known most likely holds no other.
    const parts = new Set(known.map(series)).size < 2 ? [[known[0] ?? members[0], members]]
      : [...of_series.values()].map((part) => [part[0], part]);
    return parts.map(([{client, policy}, part]) =>
      ({name: client || where || "All sets", policy, sets: part}));
  });
}

const DAY = 86400;

/** Times between two times, in seconds, at which a line helps: at most 10. */
function ticks(from, to) {
  const step = [DAY / 24, DAY / 4, DAY, 2 * DAY, 7 * DAY].find((one) => (to - from) / one <= 10);
  if (step) {
    const first = Math.ceil(from / step);
    return Array.from({length: Math.floor(to / step) - first + 1}, (_, at) => (first + at) * step);
  }
  const months = Math.max(1, Math.ceil((to - from) / (30 * DAY) / 10));
  const start = new Date(from * 1000);
  const all = [];
  for (let month = 1; ; month += months) {
    const time = Date.UTC(start.getUTCFullYear(), start.getUTCMonth() + month) / 1000;
    if (time > to) return all;
    all.push(time);
  }
}

function tickLabel(time, from, to) {
  const text = new Date(time * 1000).toISOString();
  return to - from < 3 * DAY ? text.slice(5, 16).replace("T", " ") : text.slice(0, 10);
}

function drawTimeline(sets, schedules, choose) {
  const LANE = 76, TOP = 30, NAMES = 190, RIGHT = 62;
  const lanes = lanesOf(sets);
  const dated = sets.filter((set) => date(set.time)).map((set) => Number(set.time));
  const undated = dated.length < sets.length ? 70 : 0;  // the column's width
  const width = Math.max(680, $("timeline").clientWidth);
  const height = TOP + LANE * lanes.length + 6;
  let from = dated.reduce((a, b) => Math.min(a, b), Infinity);
  let to = dated.reduce((a, b) => Math.max(a, b), -Infinity);
  const margin = Math.max(DAY / 24, (to - from) * 0.03);
  [from, to] = [from - margin, to + margin];
  const left = NAMES + undated;
  const along = (time) => left + (time - from) / (to - from) * (width - left - RIGHT);
  const x = (set) => date(set.time) ? along(Number(set.time)) : NAMES + undated / 2;

  // Sizes go from bytes to pebibytes, so the height is their logarithm.
  const level = (size) => Math.log2(Math.max(1, Number(size)));
  const levels = sets.filter((set) => set.size > 0n).map((set) => level(set.size));
  const lowest = Math.floor(levels.reduce((a, b) => Math.min(a, b), 60) / 10) * 10;
  const highest = levels.reduce((a, b) => Math.max(a, b), lowest + 10);
  const rise = (size) => 4 + (level(size) - lowest) / (highest - lowest) * (LANE - 26);

  const svg = draw("svg", {width, height, "aria-hidden": "true"});
  const text = (at_x, at_y, kind, words, anchor = "start") => {
    const element = draw("text", {x: at_x, y: at_y, class: kind, "text-anchor": anchor});
    element.append(seen(words));
    svg.append(element);
    return element;
  };
  if (undated > 0) text(NAMES + undated / 2, 18, "tick", "no date", "middle");
  for (const time of dated.length > 0 ? ticks(from, to) : []) {
    const at = along(time);
    svg.append(draw("line", {x1: at, x2: at, y1: TOP - 4, y2: height, class: "grid"}));
    text(at, 18, "tick", tickLabel(time, from, to), "middle");
  }
  const units = [];
  for (let power = lowest; power <= highest; power += 10) units.push(power);
  const marks = new Map();
  lanes.forEach((lane, at) => {
    const base = TOP + LANE * (at + 1) - 6;
    const name = text(16, base - 30, "lane", lane.name);
    const count = plural(lane.sets.length, "set", "sets");
    const policy = text(16, base - 13, "tick lane-policy",
      lane.policy ? `${count} \u00B7 ${lane.policy}` : count);
    for (const [element, most] of [[name, 22], [policy, 28]]) {
      const whole = element.textContent;
      if (whole.length > most) element.textContent = whole.slice(0, most - 1) + "\u2026";
      element.append(draw("title", {}, whole));
    }
    units.forEach((power, nth) => {
      const y = base - rise(2n ** BigInt(power));
      svg.append(draw("line", {x1: NAMES, x2: width - RIGHT, y1: y, y2: y, class: "grid"}));
      if (nth % Math.ceil(units.length / 4) === 0) {
        text(width - RIGHT + 8, y + 3, "tick", rounded(2n ** BigInt(power)).replace(".0", ""));
      }
    });
    svg.append(draw("line", {x1: NAMES, x2: width - RIGHT, y1: base, y2: base, class: "base"}));
    for (const set of lane.sets) {
      const y = base - (set.size > 0n ? rise(set.size) : 0);
      const kind = set.schedule ? `schedule-${schedules.indexOf(set.schedule) % 6}` : "unknown";
      const mark = draw("g", {class: `set ${kind}`},
        draw("line", {x1: x(set), x2: x(set), y1: base, y2: y}),
        draw("circle", {cx: x(set), cy: y, r: 5}),
        draw("title", {}, `${date(set.time) || set.time}, ${rounded(set.size)}`));
      mark.addEventListener("click", () => choose(set));
      marks.set(set, mark);
      svg.append(mark);
    }
  });
  $("timeline").replaceChildren(svg);
  return marks;
}

function fillSetTable(sets) {
  const body = $("set-table").querySelector("tbody");
  if (body.rows.length > 0) return;
  const cell = (text, kind = "") => make("td", {className: kind}, text);
  body.append(...sets.map((set) => make("tr", {}, cell(set.where || "."), cell(date(set.time)),
    cell(String(set.time), "number"), cell(rounded(set.size), "number"),
    cell(String(set.size), "number"), cell(set.client), cell(set.policy), cell(set.schedule),
    cell(String(set.images.length), "number"))));
}

function showSets(index, open_image) {
  const sets = describedSets(index);
  if (sets.length === 0) return sets;
  $("sets").hidden = false;
  const schedules = [...new Set(sets.map((set) => set.schedule))].filter(Boolean).sort();
  $("legend").append(...schedules.map((schedule, at) =>
    make("li", {className: `schedule-${at % 6}`}, schedule)));
  if (sets.some((set) => !set.schedule)) {
    $("legend").append(make("li", {className: "unknown"}, "schedule not told"));
  }

  const in_time = [...sets].sort((a, b) => compare(a.time, b.time));
  let marks, chosen;
  const choose = (set) => {
    marks.get(chosen)?.classList.remove("chosen");
    chosen = set;
    marks.get(set).classList.add("chosen");
    const facts = [date(set.time), `time ${set.time}`, `${grouped(set.size)} bytes`,
      set.client, set.policy, set.schedule, set.where && `in ${set.where}`];
    $("set-details").replaceChildren(
      ...facts.filter(Boolean).map((fact) => make("span", {className: "fact"}, fact)),
      ...set.images.map((image) =>
        make("button", {type: "button", onclick: () => open_image(image)}, image.id)));
  };
  $("timeline").addEventListener("keydown", (event) => {
    const step = {ArrowRight: 1, ArrowDown: 1, ArrowLeft: -1, ArrowUp: -1}[event.key];
    if (!step) return;
    event.preventDefault();
    const at = in_time.indexOf(chosen) + step;
    choose(in_time[Math.min(Math.max(at, 0), in_time.length - 1)]);
  });
  const redraw = () => {
    marks = drawTimeline(sets, schedules, choose);
    marks.get(chosen)?.classList.add("chosen");
  };
  redraw();
  choose(in_time.at(-1));
  window.addEventListener("resize", redraw);
  $("set-table").addEventListener("toggle", () => fillSetTable(sets));
  return sets;
}

// ---- Folders

/** The root of the folders. A folder's path ends in "/", the root's is "". */
function foldersOf(paths, lengths) {
  const folder = (path, parent) =>
    ({path, parent, folders: [], bytes: 0n, count: 0, own_bytes: 0n, own_count: 0});
  const root = folder("", null);
  const all = new Map([["", root]]);
  const find = (path) => {
    const missing = [];
    while (!all.has(path)) {
      missing.push(path);
      path = path.slice(0, path.slice(0, -1).lastIndexOf("/") + 1);
    }
    let found = all.get(path);
    while (missing.length > 0) {
      const inner = folder(missing.pop(), found);
      found.folders.push(inner);
      all.set(inner.path, inner);
      found = inner;
    }
    return found;
  };
  paths.forEach((path, at) => {
    const of = find(path.slice(0, path.lastIndexOf("/") + 1));
    of.own_bytes += lengths[at];
    ++of.own_count;
  });
  for (const one of [...all.values()].reverse()) {  // a folder stands behind its parent
    one.bytes += one.own_bytes;
    one.count += one.own_count;
    if (one.parent) {
      one.parent.bytes += one.bytes;
      one.parent.count += one.count;
    }
  }
  return root;
}

/** Down to where there is something to see: past folders that hold one folder and nothing else. */
function unwrapped(folder) {
  while (folder.folders.length === 1 && folder.own_count === 0) [folder] = folder.folders;
  return folder;
}

/**
 * Rectangles {x, y, width, height} as large as `areas`, which fall and fill `width` x `height`.
 * Rows are laid along the shorter side, and a row ends when one more would make the worst of its
 * rectangles longer.
 */
function squarified(areas, width, height) {
  const rectangles = [];
  let x = 0, y = 0, start = 0;
  while (start < areas.length) {
    const side = Math.min(width - x, height - y);
    let row = 0, worst = Infinity, end = start;
    for (; end < areas.length; ++end) {
      const square = ((row + areas[end]) / side) ** 2;
      const longest = Math.max(areas[start] / square, square / areas[end]);
      if (longest > worst) break;
      worst = longest;
      row += areas[end];
    }
    const thickness = row / side;
    const upright = width - x > height - y;
    for (let along = 0; start < end; ++start) {
      const length = areas[start] / thickness;
      rectangles.push(upright ? {x, y: y + along, width: thickness, height: length}
        : {x: x + along, y, width: length, height: thickness});
      along += length;
    }
    if (upright) x += thickness;
    else y += thickness;
  }
  return rectangles;
}

const MOST_TILES = 60;
const LEVELS = 3;

/** The tiles of a folder, largest first: its folders, its own entries, and what is too small. */
function tilesOf(folder, measure) {
  const tiles = folder.folders.map((inner) => {
    const last = unwrapped(inner);
    return {name: last.path.slice(folder.path.length), folder: last, bytes: last.bytes,
      count: last.count};
  });
  if (folder.own_count > 0) {
    tiles.push({name: "entries here", bytes: folder.own_bytes, count: folder.own_count});
  }
  tiles.sort((a, b) => compare(b[measure], a[measure]));
  const rest = tiles.splice(MOST_TILES);
  if (rest.length > 0) {
    const sum = {name: plural(rest.length, "smaller one", "smaller ones"), bytes: 0n, count: 0};
    for (const tile of rest) {
      sum.bytes += tile.bytes;
      sum.count += tile.count;
    }
    tiles.push(sum);
    tiles.sort((a, b) => compare(b[measure], a[measure]));
  }
  return tiles.filter((tile) => tile[measure] > 0);
}

/** Fills `box` with the tiles of a folder, and these with tiles of their own, down to LEVELS. */
function layTiles(box, folder, measure, level, open) {
  const {clientWidth: width, clientHeight: height} = box;
  const tiles = tilesOf(folder, measure);
  const sizes = tiles.map((tile) => Number(tile[measure]));
  const scale = width * height / sizes.reduce((sum, size) => sum + size, 0);
  squarified(sizes.map((size) => size * scale), width, height).forEach((place, at) => {
    const tile = tiles[at];
    const about = `${grouped(tile.bytes)} bytes, ${plural(tile.count, "entry", "entries")}`;
    const label = make(tile.folder ? "button" : "div",
      {className: "label", title: `${seen(tile.name)}\n${about}`},
      make("span", {className: "name"}, tile.name),
      make("span", {className: "size"}, measure === "bytes" ? rounded(tile.bytes)
        : plural(tile.count, "entry", "entries")));
    label.setAttribute("aria-label", `${seen(tile.name)}: ${about}`);
    const element = make("div", {className: tile.folder ? "tile" : "tile rest"}, label);
    for (const [side, part, whole] of [["left", place.x, width], ["top", place.y, height],
      ["width", place.width, width], ["height", place.height, height]]) {
      element.style[side] = `${part / whole * 100}%`;
    }
    if (level === 1) element.style.setProperty("--hue", String(250 + at * 67));
    if (tile.folder) {
      label.type = "button";
      label.onclick = () => open(tile.folder);
    }
    box.append(element);
    const roomy = place.width > 90 && place.height > 70;
    if (tile.folder?.folders.length > 0 && level < LEVELS && roomy) {
      const inner = make("div", {className: "inner"});
      element.append(inner);
      layTiles(inner, tile.folder, measure, level + 1, open);
    }
  });
}

// ---- Table of entries

const ROW = 30;  // pixels, as in page.css
const TALLEST = 15e6;  // pixels; browsers cut off elements that are much taller
const COLUMNS = [["filenum", "File", true], ["path", "Path", false], ["length", "Length", true],
  ["data", "Data", false]];

/** The table on the page. fill() gives it the entries of an image, narrow() a folder. */
function entryTable() {
  const table = $("table");
  let sorted = {key: "length", down: true};
  let columns, keys, haystacks;  // of the image
  let order, inside, rows;  // numbers of entries, sorted: all; those in the folder; those found
  let chosen, folder = "";

  const view = () => table.clientHeight - ROW;
  const space = () => Math.min(rows.length * ROW, TALLEST);
  /** The row at the top, with a fraction: all of them share the way that can be scrolled. */
  const top = () => table.scrollTop / Math.max(1, space() - view())
    * Math.max(0, rows.length - view() / ROW);

  function cellsOf(entry) {
    return COLUMNS.map(([key, , numeric]) => {
      const cell = make("div", {className: numeric ? "cell number" : `cell ${key}`},
        columns[key][entry]);
      cell.setAttribute("role", "gridcell");
      return cell;
    });
  }

  function render() {
    const first = Math.floor(top());
    const shown = rows.slice(first, first + Math.ceil(view() / ROW) + 1);
    $("table-rows").style.top = `${table.scrollTop - (top() - first) * ROW}px`;
    $("table-rows").replaceChildren(...shown.map((entry, at) => {
      const row = make("div", {className: entry === chosen ? "row chosen" : "row",
        onclick: () => choose(entry)}, ...cellsOf(entry));
      row.setAttribute("role", "row");
      row.setAttribute("aria-rowindex", first + at + 2);
      row.setAttribute("aria-selected", entry === chosen);
      return row;
    }));
  }

  function choose(entry) {
    chosen = entry;
    $("entry-details").replaceChildren(...Object.keys(columns).flatMap((key) =>
      [make("dt", {}, key), make("dd", {}, columns[key][entry])]));
    render();
  }

  function search() {
    const wanted = $("search").value.toLowerCase();
    rows = inside.filter((entry) => haystacks[entry].includes(wanted));
    table.scrollTop = 0;
    table.setAttribute("aria-rowcount", rows.length + 1);
    $("table-space").style.height = `${space()}px`;
    $("found").textContent =
      `${grouped(rows.length)} of ${plural(order.length, "entry", "entries")}`;
    render();
  }

  function narrow() {
    inside = order.filter((entry) => columns.path[entry].startsWith(folder));
    search();
  }

  function sort() {
    const {key, down} = sorted;
    const [, , numeric] = COLUMNS.find(([one]) => one === key);
    const values = keys[key] ??= numeric ? columns[key].map(number) : columns[key];
    order = Array.from(columns.path.keys());
    order.sort((a, b) => (down ? compare(values[b], values[a]) : compare(values[a], values[b])));
    for (const head of $("table-head").children) {
      head.setAttribute("aria-sort",
        head.dataset.key !== key ? "none" : down ? "descending" : "ascending");
    }
  }

  for (const [key, title, numeric] of COLUMNS) {
    const head = make("div", {className: numeric ? "cell number" : `cell ${key}`},
      make("button", {type: "button", onclick: () => {
        sorted = {key, down: sorted.key === key ? !sorted.down : key === "length"};
        sort();
        narrow();
      }}, title));
    head.dataset.key = key;
    head.setAttribute("role", "columnheader");
    $("table-head").append(head);
  }
  $("search").addEventListener("input", search);
  table.addEventListener("scroll", render);
  table.addEventListener("keydown", (event) => {
    if (event.target !== table || rows.length === 0) return;
    const page = Math.floor(view() / ROW);
    const at = rows.indexOf(chosen);
    const goal = {ArrowDown: at + 1, ArrowUp: at - 1, PageDown: at + page, PageUp: at - page,
      Home: 0, End: rows.length - 1}[event.key];
    if (goal === undefined) return;
    event.preventDefault();
    const next = Math.min(Math.max(goal, 0), rows.length - 1);
    const way = (row) => row / Math.max(1, rows.length - view() / ROW) * (space() - view());
    if (next < top()) table.scrollTop = way(next);
    if (next + 1 > top() + view() / ROW) table.scrollTop = way(next + 1 - view() / ROW);
    choose(rows[next]);
  });
  window.addEventListener("resize", () => rows && render());

  return {
    fill(image_columns) {
      columns = image_columns;
      keys = {};
      chosen = undefined;
      haystacks = columns.path.map((path) => seen(path).toLowerCase());
      $("entry-details").replaceChildren();
      sort();
    },
    /** Shows the entries below a folder's path, "" for all, from the top. */
    narrow(path) {
      folder = path;
      narrow();
    },
  };
}

// ---- One image

function imageView(index) {
  const table = entryTable();
  let start, here, measure = "bytes";

  function layTreemap() {
    const box = $("treemap");
    box.replaceChildren();
    if (here) layTiles(box, here, measure, 1, open);
    if (!box.firstChild) {
      box.append(make("p", {className: "muted"}, here?.count ? "No entry here has a length."
        : "This image has no entries."));
    }
  }

  function open(folder) {
    here = folder;
    const way = [];
    for (let one = here; one !== start.parent; one = one.parent) {
      if (unwrapped(one) === one) way.unshift(one);
    }
    $("crumbs").replaceChildren(...way.map((one, at) => {
      const name = at > 0 ? one.path.slice(way[at - 1].path.length) : one.path || "All entries";
      const crumb = make("button", {type: "button", onclick: () => {
        open(one);
        $("crumbs").lastChild.focus();
      }}, name);
      if (one === here) crumb.setAttribute("aria-current", "location");
      return crumb;
    }));
    layTreemap();
    table.narrow(here.path);
  }

  async function openImage(image) {
    const at = index.images.indexOf(image);
    document.querySelector("main").setAttribute("aria-busy", "true");
    $("image-choice").value = String(at);
    const {metadata, columns} = await unpacked(`image-${at}`);
    if ($("image-choice").value !== String(at)) return;  // another one was chosen meanwhile
    $("metadata").querySelector("tbody").replaceChildren(...metadata.map(([name, text]) =>
      make("tr", {}, make("th", {scope: "row"}, name), make("td", {}, text))));
    const root = foldersOf(columns.path, columns.length.map(number));
    $("image-total").textContent =
      `${plural(root.count, "entry", "entries")}, ${grouped(root.bytes)} bytes`;
    $("search").value = "";
    table.fill(columns);
    start = unwrapped(root);
    open(start);
    document.querySelector("main").setAttribute("aria-busy", "false");
  }

  for (const input of document.querySelectorAll('input[name="measure"]')) {
    input.addEventListener("change", () => {
      measure = input.value;
      layTreemap();
    });
  }
  for (const [where, images] of Map.groupBy(index.images, (image) => image.where)) {
    const group = make("optgroup", {label: seen(where || ".")});
    group.append(...images.map((image) => make("option",
      {value: String(index.images.indexOf(image)),
        text: seen([image.id, image.policy, image.schedule].filter(Boolean).join(" \u00B7 "))})));
    $("image-choice").append(group);
  }
  $("image-choice").addEventListener("change", (event) =>
    openImage(index.images[Number(event.target.value)]));
  window.addEventListener("resize", layTreemap);
  return openImage;
}

async function main() {
  const index = await unpacked("index");
  show($("title"), index.title);
  document.title = `${seen(index.title)} \u2013 backup report`;
  if (index.skipped.length > 0) {
    $("skipped").hidden = false;
    $("skipped-list").append(...index.skipped.map(([path, reason]) =>
      make("li", {}, make("b", {}, path), ` ${reason}`)));
  }
  const open_image = imageView(index);
  const sets = showSets(index, async (image) => {
    await open_image(image);
    $("image").scrollIntoView();
  });
  const entries = index.images.reduce((sum, image) => sum + image.entries, 0);
  $("summary").textContent = [plural(sets.length, "backup set", "backup sets"),
    plural(index.images.length, "image", "images"),
    plural(entries, "file entry", "file entries")].join(" \u00B7 ");
  if (index.images.length > 0) {
    $("image").hidden = false;
    await open_image(index.images.reduce((a, b) => b.entries > a.entries ? b : a));
  }
  document.querySelector("main").setAttribute("aria-busy", "false");
}

main();
