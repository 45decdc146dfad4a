// The folders of an image as areas.

/**
 * The root of the folders of paths that are in order, so that each folder is the stretch of lines
 * [first, end). A folder's path ends in "/", the root's is "".
 */
function foldersOf(paths, lengths) {
  const {text, starts} = paths;
  const zero = typeof lengths[0] === "bigint" ? 0n : 0;
  const folder = (path, parent, first) =>
    ({path, parent, first, end: first, folders: [], bytes: zero, count: 0, own_bytes: zero,
      own_count: 0});
  const root = folder("", null, 0);
  let top = root;
  const close = (line) => {
    top.end = line;
    top.bytes += top.own_bytes;
    top.count = line - top.first;
    if (top.parent) top.parent.bytes += top.bytes;
    top = top.parent;
  };
  for (let line = 0; line < paths.length; ++line) {
    const from = starts[line], to = starts[line + 1] - 1;
    while (!text.startsWith(top.path, from) || from + top.path.length > to) close(line);
    for (;;) {
      const slash = text.indexOf("/", from + top.path.length);
      if (slash < 0 || slash >= to) break;
      const inner = folder(text.slice(from, slash + 1), top, line);
      top.folders.push(inner);
      top = inner;
    }
    top.own_bytes += lengths[line];
    ++top.own_count;
  }
  while (top) close(paths.length);
  return root;
}

/** Down to where there is something to see: past folders that hold one folder and nothing else. */
function unwrapped(folder) {
  while (folder.folders.length === 1 && folder.own_count === 0) [folder] = folder.folders;
  return folder;
}

/**
 * Rectangles {left, top, width, height} as large as `areas`, which fall and fill `width` x `height`.
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
      rectangles.push(upright ? {left: x, top: y + along, width: thickness, height: length}
        : {left: x + along, top: y, width: length, height: thickness});
      along += length;
    }
    if (upright) x += thickness;
    else y += thickness;
  }
  return rectangles;
}

const MOST_TILES = 60;
const LEVELS = 2;
const LEAST_WIDTH = 64, LEAST_HEIGHT = 30;  // of a tile that one can read and hit
const INSET = {left: 5, top: 28, right: 5, bottom: 5};

/** What a folder holds, the largest first: its folders, and the entries in none of them. */
function partsOf(folder, measure) {
  const parts = folder.folders.map((inner) => {
    const last = unwrapped(inner);
    return {name: last.path.slice(folder.path.length), folder: last, bytes: last.bytes,
      count: last.count};
  });
  if (folder.own_count > 0) {
    parts.push({name: "entries here", bytes: folder.own_bytes, count: folder.own_count});
  }
  return parts.filter((part) => part[measure] > 0)
    .sort((a, b) => compare(b[measure], a[measure]));
}

/**
 * The places of as many parts as are legible, true to scale among themselves. Those that are left over
 * share a strip of a fixed height below.
 */
function placesOf(parts, measure, width, height) {
  for (let most = Math.min(parts.length, MOST_TILES); most > 0; --most) {
    const rest = parts.length - most;
    const room = rest > 0 ? height - LEAST_HEIGHT : height;
    if (room < LEAST_HEIGHT) continue;
    const sizes = parts.slice(0, most).map((part) => Number(part[measure]));
    const scale = width * room / sizes.reduce((sum, size) => sum + size, 0);
    const places = squarified(sizes.map((size) => size * scale), width, room);
    if (places.every((place) => place.width >= LEAST_WIDTH && place.height >= LEAST_HEIGHT)) {
      return {places, strip: rest > 0 ? {left: 0, top: room, width, height: LEAST_HEIGHT} : null};
    }
  }
  return {places: [], strip: {left: 0, top: 0, width, height}};
}

/** The treemap on the page. `open` is told which folder was chosen, and past how many of its parts. */
function treemapView(open) {
  const box = $("treemap");
  const pen = document.createElement("canvas").getContext("2d");
  let shown;  // {folder, skipped, measure}

  const wide = (text) => pen.measureText(text).width;

  /** As much of a text as fits, with its end cut off; "" where that would be next to nothing. */
  function fitting(text, room) {
    if (wide(text) <= room) return text;
    const letters = [...text];
    let most = 0, least = letters.length;
    while (most < least) {
      const middle = (most + least + 1) >> 1;
      if (wide(letters.slice(0, middle).join("") + "\u2026") <= room) most = middle;
      else least = middle - 1;
    }
    return most >= 4 ? letters.slice(0, most).join("") + "\u2026" : "";
  }

  const amount = (part, measure) =>
    measure === "bytes" ? rounded(part.bytes) : plural(part.count, "entry", "entries");

  function tile(part, place, measure, style) {
    const about = `${grouped(part.bytes)} bytes, ${plural(part.count, "entry", "entries")}`;
    const name = seen(part.name), size = amount(part, measure);
    const label = put(make("button", {type: "button", tabIndex: -1, className: `tile ${style}`,
      title: `${name}\n${about}`, "aria-label": `${name}: ${about}`}),
    {left: place.left + 1.5, top: place.top + 1.5, width: place.width - 3, height: place.height - 3});
    const room = place.width - 22;  // without gap and padding
    const short = fitting(name, room);
    if (short === name) label.append(make("span", {className: "name"}, part.name));
    else if (short) label.append(make("span", {className: "name"}, short));
    if (short && wide(name) + wide(size) + 14 <= room) {
      label.append(make("span", {className: "size"}, size));
    } else if (short && place.height >= 50 && !part.is_outer && wide(size) <= room) {
      label.append(make("span", {className: "size"}, size));
      label.classList.add("two-lines");
    }
    label.place = place;
    if (part.go) label.onclick = part.go;
    else label.setAttribute("aria-disabled", "true");
    box.append(label);
    return label;
  }

  function lay(folder, skipped, measure, area, level, hue) {
    const parts = partsOf(folder, measure).slice(skipped);
    if (parts.length === 0) return 0;
    const {places, strip} = placesOf(parts, measure, area.width, area.height);
    const within = (place) => ({...place, left: place.left + area.left, top: place.top + area.top});
    places.forEach((place, at) => {
      const part = parts[at], outer = within(place);
      part.is_outer = level < LEVELS && part.folder?.folders.length > 0
        && outer.width > 160 && outer.height > 100;
      if (part.folder) part.go = () => open(part.folder, 0);
      const label = tile(part, outer, measure, part.folder ? `level-${level}` : "own");
      const own_hue = hue ?? 250 + at * 67;
      label.style.setProperty("--hue", own_hue);
      if (part.is_outer) {
        lay(part.folder, 0, measure, {left: outer.left + INSET.left, top: outer.top + INSET.top,
          width: outer.width - INSET.left - INSET.right,
          height: outer.height - INSET.top - INSET.bottom}, level + 1, own_hue);
      }
    });
    if (!strip) return parts.length;
    const rest = parts.slice(places.length);
    const more = {name: `${grouped(rest.length)} more`,
      bytes: rest.reduce((sum, part) => sum + part.bytes, typeof folder.bytes === "bigint" ? 0n : 0),
      count: rest.reduce((sum, part) => sum + part.count, 0),
      go: level > 1 ? () => open(folder, 0)
        : places.length > 0 ? () => open(folder, skipped + places.length) : null};
    tile(more, within(strip), measure, "more");
    return parts.length;
  }

  /** Shows a folder, without its first `skipped` parts. */
  function draw(folder, skipped, measure) {
    const had_focus = box.contains(document.activeElement);
    shown = {folder, skipped, measure};
    box.replaceChildren();
    const style = getComputedStyle(box);
    pen.font = `500 13px ${style.fontFamily}`;
    const laid = folder
      ? lay(folder, skipped, measure, {left: 0, top: 0, width: box.clientWidth, height: box.clientHeight},
        1) : 0;
    if (laid === 0) {
      box.append(make("p", {className: "muted"}, folder?.count ? "No entry here has a length."
        : "This image has no entries."));
      return;
    }
    const first = box.querySelector("button");
    first.tabIndex = 0;
    if (had_focus) first.focus();
  }

  /** The tile whose label is next in a direction. */
  function next(from, [x, y]) {
    const point = ({place}) =>
      [place.left + Math.min(place.width, LEAST_WIDTH) / 2, place.top + LEAST_HEIGHT / 2];
    const [from_x, from_y] = point(from);
    let best = from, least = Infinity;
    for (const one of box.querySelectorAll("button")) {
      const [one_x, one_y] = point(one);
      const ahead = (one_x - from_x) * x + (one_y - from_y) * y;
      const aside = Math.abs((one_x - from_x) * y) + Math.abs((one_y - from_y) * x);
      if (ahead > 1 && ahead + 2 * aside < least) [best, least] = [one, ahead + 2 * aside];
    }
    return best;
  }

  box.addEventListener("keydown", (event) => {
    const all = [...box.querySelectorAll("button")];
    const at = all.indexOf(document.activeElement);
    if (at < 0) return;
    const way = {ArrowRight: [1, 0], ArrowLeft: [-1, 0], ArrowDown: [0, 1], ArrowUp: [0, -1]}[event.key];
    const goal = way ? next(all[at], way) : {Home: all[0], End: all.at(-1)}[event.key];
    if (goal) {
      event.preventDefault();
      all[at].tabIndex = -1;
      goal.tabIndex = 0;
      goal.focus();
    } else if (event.key === "Backspace" || event.key === "Escape") {
      event.preventDefault();
      if (shown.skipped > 0) open(shown.folder, 0);
      else open(null, 0);
    }
  });
  window.addEventListener("resize", () => {
    if (shown) draw(shown.folder, shown.skipped, shown.measure);
  });
  return draw;
}
