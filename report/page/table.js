const ROW = 32;  // pixels, as in page.css
const TALLEST = 15e6;  // pixels; browsers cut off elements that are much taller
const HEADS = [["filenum", "File"], ["path", "Path"], ["length", "Length in bytes"], ["data", "Data"]];

/** The table of entries on the page. fill() gives it the entries of an image, narrow() a folder. */
function entryTable(loadOthers) {
  const table = $("table");
  let sorted = {key: "length", down: true};
  let columns, lengths, finder, others;  // of the image
  let order;  // all lines, sorted
  let rows = new Uint32Array(0);  // those that were found
  let chosen = -1, folder;

  const view = () => table.clientHeight - ROW;
  const space = () => Math.min(rows.length * ROW, TALLEST);
  /** The row at the top, with a fraction: all of them share the way that can be scrolled. */
  const top = () => table.scrollTop / Math.max(1, space() - view())
    * Math.max(0, rows.length - view() / ROW);

  function pathCell(path) {
    const name = path.lastIndexOf("/", path.length - 2) + 1;
    return make("div", {className: "cell path", role: "gridcell"},
      make("span", {className: "folder"}, path.slice(0, name)), make("span", {}, path.slice(name)));
  }

  function lengthText(line) {
    const text = columns.length.at(line);
    return /^-?\d{1,20}$/.test(text) ? grouped(BigInt(text)) : text;
  }

  function cellsOf(line) {
    const cell = (kind, text) => make("div", {className: `cell ${kind}`, role: "gridcell"}, text);
    return [cell("filenum", columns.filenum.at(line)), pathCell(columns.path.at(line)),
      cell("length", lengthText(line)), cell("data", columns.data.at(line))];
  }

  function render() {
    const first = Math.max(0, Math.floor(top()));
    const shown = rows.subarray(first, first + Math.ceil(view() / ROW) + 1);
    $("table-rows").style.top = `${table.scrollTop - (top() - first) * ROW}px`;
    table.removeAttribute("aria-activedescendant");
    $("table-rows").replaceChildren(...Array.from(shown, (line, at) => {
      if (line === chosen) table.setAttribute("aria-activedescendant", `row-${line}`);
      return make("div", {className: line === chosen ? "row chosen" : "row", role: "row",
        id: `row-${line}`, "aria-rowindex": first + at + 2, "aria-selected": line === chosen,
        onclick: () => choose(line)}, ...cellsOf(line));
    }));
  }

  function describe() {
    const texts = Object.fromEntries(Object.entries({...columns, ...others})
      .map(([name, column]) => [name, column.at(chosen)]));
    $("entry-details").replaceChildren(...FIELDS.filter((name) => name in texts).flatMap((name) =>
      [make("dt", {}, name), make("dd", {}, texts[name])]));
    $("entry-details").hidden = false;
  }

  async function choose(line) {
    chosen = line;
    render();
    describe();
    if (others) return;
    const of_image = columns, loaded = await loadOthers();
    if (columns !== of_image) return;
    others = loaded;
    if (chosen >= 0) describe();
  }

  function search() {
    const query = $("search").value;
    const count = finder.search(query, folder.first, folder.end);
    const {found} = finder;
    rows = new Uint32Array(count);
    for (let at = 0, next = 0; next < count; ++at) {
      if (found[order[at]]) rows[next++] = order[at];
    }
    table.scrollTop = 0;
    table.setAttribute("aria-rowcount", rows.length + 1);
    $("table-space").style.height = `${space()}px`;
    $("found").textContent = `${grouped(count)} of ${plural(order.length, "entry", "entries")}`;
    $("table-card").hidden = count === 0;
    $("table-none").hidden = count > 0;
    $("table-none").replaceChildren();
    if (count === 0) show($("table-none"), sayNothingFound(query));
    render();
  }

  function sayNothingFound(query) {
    if (query === "") return "There is no entry here.";
    const where = folder.end - folder.first < order.length ? ` below ${folder.path}` : "";
    return /[*?[]/.test(query)
      ? `No path${where} matches the pattern \u201C${query}\u201D. With *, ? or [..] it has to match the `
        + "whole path, and capitals count: *.db finds what ends in .db."
      : `No path${where} has \u201C${query}\u201D in it. Type less of it, or a pattern such as *.db.`;
  }

  function sort() {
    const {key, down} = sorted;
    order = Uint32Array.from({length: columns.path.length}, (_, line) => line);
    if (key === "path") {
      if (down) order.reverse();
    } else {
      let values = lengths;
      if (key === "filenum") values = lengthsOf(columns.filenum);
      if (key === "data") values = Array.from(order, (line) => columns.data.at(line));
      if (values instanceof Float64Array) {
        order.sort(down ? (a, b) => values[b] - values[a] || a - b
          : (a, b) => values[a] - values[b] || a - b);
      } else {
        order.sort(down ? (a, b) => compare(values[b], values[a]) || a - b
          : (a, b) => compare(values[a], values[b]) || a - b);
      }
    }
    for (const head of $("table-head").children) {
      head.setAttribute("aria-sort",
        head.dataset.key !== key ? "none" : down ? "descending" : "ascending");
    }
  }

  for (const [key, title] of HEADS) {
    const head = make("div", {className: `cell ${key}`, role: "columnheader"},
      make("button", {type: "button", onclick: () => {
        sorted = {key, down: sorted.key === key ? !sorted.down : key === "length"};
        sort();
        search();
      }}, title));
    head.dataset.key = key;
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
  window.addEventListener("resize", () => columns && render());

  return {
    fill(of_image, image_lengths) {
      columns = of_image;
      lengths = image_lengths;
      finder = new PathSearch(columns.path);
      others = null;
      chosen = -1;
      $("entry-details").replaceChildren();
      $("entry-details").hidden = true;
      sort();
    },
    /** Shows the entries of a folder from the top. */
    narrow(to) {
      folder = to;
      search();
    },
  };
}
