// How much was backed up in each night, and what changed between two full backups.

const MOST_BARS = 120;

/** Bytes in each stretch of so many days, the first and the last day of each with it. */
function growthOf(sets) {
  const dated = sets.filter((set) => isDate(set.time));
  if (dated.length === 0) return [];
  const days = dated.map((set) => dayOf(set.time));
  const first = days.reduce((a, b) => Math.min(a, b));
  const last = days.reduce((a, b) => Math.max(a, b));
  const step = Math.ceil((last - first + 1) / MOST_BARS);
  // The newest stretch is a whole one.
  const bars = Array.from({length: Math.ceil((last - first + 1) / step)}, (_, at) =>
    ({to: last - at * step, from: last - (at + 1) * step + 1, bytes: 0n})).reverse();
  dated.forEach((set, at) => {
    bars[bars.length - 1 - Math.floor((last - days[at]) / step)].bytes += set.bytes;
  });
  return bars;
}

function stretch(bar) {
  const [from, to] = [isoDay(bar.from * DAY), isoDay(bar.to * DAY)];
  return from === to ? from : `${from} to ${to}`;
}

/** What the bars show. */
function inWords(bars, most) {
  const used = bars.filter((bar) => bar.bytes > 0n);
  if (used.length === 0) return "No set here has a date and a size.";
  const [first, last] = [used[0], used.at(-1)];
  const days = bars[0].to - bars[0].from + 1;
  return `A bar for each ${days === 1 ? "night" : `${days} nights`}, up to ${rounded(most)}. `
    + `${stretch(first)}: ${rounded(first.bytes)}; ${stretch(last)}: ${rounded(last.bytes)}.`;
}

function growthView(model) {
  const chart = $("growth-chart"), choice = $("growth-choice");
  const of_series = [...Map.groupBy(model.sets, (set) => nameOf(seriesOf(set)))];
  choice.append(make("option", {value: "-1"}, "All series"), ...of_series.map(([name], at) =>
    make("option", {value: String(at)}, name)));

  function draw() {
    const sets = choice.value === "-1" ? model.sets : of_series[Number(choice.value)][1];
    const bars = growthOf(sets);
    const most = bars.reduce((a, bar) => bar.bytes > a ? bar.bytes : a, 1n);
    chart.replaceChildren(...bars.map((bar) => {
      const element = make("span", {className: "bar", title: `${stretch(bar)}: ${rounded(bar.bytes)}`});
      element.style.setProperty("--rise", Number(bar.bytes) / Number(most));
      return element;
    }));
    $("growth-text").textContent = inWords(bars, most);
    chart.setAttribute("aria-label", `Bytes backed up. ${$("growth-text").textContent}`);
  }
  choice.addEventListener("change", draw);
  draw();
}

const signed = (bytes) => bytes < 0n ? `\u2212${rounded(-bytes)}` : `+${rounded(bytes)}`;

function changeTable(caption, changes) {
  const size = (value, none) => value === null ? none : rounded(BigInt(value));
  const rows = changes.map(([path, before, after]) => make("tr", {},
    make("th", {scope: "row", className: "path"}, path),
    make("td", {className: "number"}, size(before, "new")),
    make("td", {className: "number"}, size(after, "gone")),
    make("td", {className: "number"}, signed(BigInt(after ?? 0) - BigInt(before ?? 0)))));
  const heads = [caption, "Before", "After", "Change"].map((text, at) =>
    make("th", {scope: "col", className: at > 0 ? "number" : ""}, text));
  return make("table", {}, make("thead", {}, make("tr", {}, ...heads)), make("tbody", {}, ...rows));
}

function changesView(model) {
  $("changes").hidden = model.changes.length === 0;
  $("changes-list").append(...model.changes.map(({before, after, folders, files}, at) => {
    const heading = make("summary", {}, `${nameOf(seriesOf(after))}: ${dayText(before.time)} to `
      + `${dayText(after.time)}, ${signed(after.bytes - before.bytes)}`);
    const element = make("details", {}, heading);
    element.addEventListener("toggle", () => {
      if (element.children.length > 1) return;
      element.append(files.length === 0 ? make("p", {className: "muted"}, "No file changed its length.")
        : make("div", {className: "card scroll", tabIndex: 0, role: "region",
          "aria-label": "Largest changes"}, changeTable("Folder", folders), changeTable("File", files)));
    });
    element.open = at === 0;
    return element;
  }));
}
