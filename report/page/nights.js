// The nights: a lane for each series, a column for each day in UTC, and in it the sets of that day.

const dayOf = (seconds) => Math.floor(seconds / DAY);
const weekday = (day) => (((day + 3) % 7) + 7) % 7;  // 0 is Monday; 1970 began on a Thursday
const WEEKDAYS = ["Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday", "Sunday"];
const MOST_GAPLESS = 4000;  // columns; of more days, only those with a set have one

const seriesOf = (one) => [one.client, one.policy, one.schedule];
const nameOf = (series) => series.map((part) => part || "(none)").join(" \u00B7 ");

/**
 * The days up to `last` on which a series has no set, though on more than half of the same days of the
 * week, and on two of them at least, it has one. `held` are its days, in order.
 */
function missingDays(held, last) {
  const first = held[0], newest = held.at(-1), is_held = new Set(held);
  if (held.length < 2 || newest - first > MOST_GAPLESS || last - newest > MOST_GAPLESS) return [];
  const all = Array(7).fill(0), kept = Array(7).fill(0);
  for (let day = first; day <= newest; ++day) {
    ++all[weekday(day)];
    if (is_held.has(day)) ++kept[weekday(day)];
  }
  const missing = [];
  for (let day = first + 1; day <= last; ++day) {
    const on = weekday(day);
    if (!is_held.has(day) && kept[on] >= 2 && 2 * kept[on] > all[on]) missing.push(day);
  }
  return missing;
}

/** The lanes, each with its stops: sets and missing days in the order of time. */
function lanesOf(model) {
  const dated = model.sets.filter((set) => isDate(set.time)).map((set) => dayOf(set.time));
  const newest = dated.reduce((a, b) => Math.max(a, b), -Infinity);
  const last = Math.min(newest, dayOf(model.made) - 1);  // today is not over
  const of_series = Map.groupBy(model.sets, (set) => JSON.stringify(seriesOf(set)));
  return [...of_series.values()].map((sets) => {
    const lane = {series: seriesOf(sets[0]), sets};
    const stops = sets.map((set) => ({lane, set, day: isDate(set.time) ? dayOf(set.time) : null}));
    const held = [...new Set(stops.map((stop) => stop.day).filter((day) => day !== null))];
    held.sort((a, b) => a - b);
    lane.missing = held.length > 0 ? missingDays(held, last) : [];
    for (const day of lane.missing) stops.push({lane, set: null, day});
    const key = (stop) => stop.day ?? -Infinity;
    lane.stops = stops.sort((a, b) => compare(key(a), key(b))
      || compare(Number(a.set.time), Number(b.set.time)));
    // Sets of one day share its cell.
    for (const shared of Map.groupBy(lane.stops, key).values()) {
      shared.forEach((stop, at) => Object.assign(stop, {part: at, parts: shared.length}));
    }
    lane.words = nameOf(lane.series).toLowerCase();
    return lane;
  });
}

/** The day of each column; null, for sets without a date, comes first. */
function columnsOfDays(lanes) {
  const days = new Set(lanes.flatMap((lane) => lane.stops.map((stop) => stop.day)));
  const dated = [...days].filter((day) => day !== null).sort((a, b) => a - b);
  const undated = days.has(null) ? [null] : [];
  const length = dated.length > 0 ? dated.at(-1) - dated[0] + 1 : 0;
  if (length > MOST_GAPLESS) return [...undated, ...dated];
  return [...undated, ...Array.from({length}, (_, at) => dated[0] + at)];
}

function stopLabel(stop) {
  const day = stop.day === null ? "no date" : isoDay(stop.day * DAY);
  if (!stop.set) return `${day}: missing`;
  const facts = [`${stop.day === null ? day : moment(stop.set.time)}: ${rounded(stop.set.bytes)}`,
    plural(stop.set.images.length, "image", "images")];
  if (stop.set.warned) facts.push("with warnings");
  return facts.join(", ");
}

function nightsView(model, openImage) {
  const HEAD = 26, NARROWEST = 18, WIDEST = 44;
  const box = $("nights"), space = $("nights-space");
  const schedules = [...new Set(model.sets.map((set) => set.schedule))].sort();
  const lanes = lanesOf(model);
  const columns = columnsOfDays(lanes);
  const column_of = new Map(columns.map((day, at) => [day, at]));
  const gapless = columns.length < 2 || columns.at(-1) - columns[columns[0] === null ? 1 : 0]
    < columns.length;
  let shown = lanes, active, lane_height, names, width, asked = false;

  // Sizes go from bytes to pebibytes, so the height is their logarithm.
  const level = (set) => Math.log2(Math.max(1, Number(set.bytes)));
  const levels = model.sets.filter((set) => set.bytes > 0n).map(level);
  const lowest = Math.floor(levels.reduce((a, b) => Math.min(a, b), 60)) - 2;
  const highest = levels.reduce((a, b) => Math.max(a, b), lowest + 3);
  const rise = (set) => set.bytes > 0n ? (level(set) - lowest) / (highest - lowest) : 0;

  const left = (stop) => names + column_of.get(stop.day) * width;
  lanes.forEach((lane, nth) => lane.stops.forEach((stop, at) => { stop.id = `night-${nth}-${at}`; }));

  function cell(stop) {
    const part = (width - 2) / stop.parts;
    const element = put(make("div", {
      className: stop.set ? `night schedule-${schedules.indexOf(stop.set.schedule) % 6}`
        : "night missing",
      role: "gridcell", id: stop.id, title: stopLabel(stop), "aria-label": stopLabel(stop),
      "aria-colindex": column_of.get(stop.day) + 2, "aria-selected": stop === active,
      onclick: () => choose(stop)}), {left: left(stop) + 1 + stop.part * part, width: part});
    if (stop.set?.warned) element.classList.add("warned");
    if (stop.set) element.style.setProperty("--rise", rise(stop.set));
    return element;
  }

  /** The stops of a lane in these columns, and the one that is active. */
  function stopsIn(lane, from, to) {
    return lane.stops.filter((stop) => {
      const at = column_of.get(stop.day);
      return (at >= from && at <= to) || stop === active;
    });
  }

  function row(lane, from, to) {
    const at = shown.indexOf(lane);
    const [client, ...rest] = lane.series;
    const name = put(make("div", {className: "lane-name", role: "rowheader",
      title: seen(nameOf(lane.series)), "aria-colindex": 1},
    make("b", {}, client || "(none)"), make("span", {}, nameOf(rest))),
    names ? {width: names} : {});
    const element = put(make("div", {className: "lane", role: "row", "aria-rowindex": at + 1}, name,
      ...stopsIn(lane, from, to).map(cell)), {top: HEAD + at * lane_height, height: lane_height});
    return element;
  }

  const APART = 84;  // pixels from one date to the next
  function isTick(at) {
    if (columns[at] === null) return false;
    if (!gapless || columns.length < 21) return (columns.length - 1 - at) % Math.ceil(APART / width) === 0;
    const weeks = Math.ceil(APART / (7 * width));
    return weekday(columns[at]) === 0 && Math.floor((columns[at] + 3) / 7) % weeks === 0;
  }

  function dates(from, to) {
    const all = [put(make("span", {className: "corner"}), {width: names})];
    for (let at = Math.max(0, from - 7); at <= Math.min(to, columns.length - 1); ++at) {
      const place = {left: names + at * width};
      if (columns[at] === null) all.push(put(make("span", {className: "tick"}, "?"), place));
      if (!isTick(at)) continue;
      const fits = place.left + APART - 12 <= space.clientWidth;
      all.push(put(make("span", {className: "tick"}, fits ? isoDay(columns[at] * DAY) : ""), place));
    }
    return all;
  }

  function render() {
    const from = Math.floor((box.scrollLeft) / width) - 2;
    const to = Math.ceil((box.scrollLeft + box.clientWidth) / width) + 2;
    const first = Math.max(0, Math.floor((box.scrollTop - HEAD) / lane_height) - 2);
    const drawn = shown.slice(first, Math.ceil((box.scrollTop + box.clientHeight) / lane_height) + 2);
    if (active && shown.includes(active.lane) && !drawn.includes(active.lane)) drawn.push(active.lane);
    $("nights-dates").replaceChildren(...dates(from, to));
    $("nights-lanes").replaceChildren(...drawn.map((lane) => row(lane, from, to)));
    if (active && shown.includes(active.lane)) box.setAttribute("aria-activedescendant", active.id);
    else box.removeAttribute("aria-activedescendant");
  }

  function renderSoon() {
    if (asked) return;
    asked = true;
    requestAnimationFrame(() => {
      asked = false;
      render();
    });
  }

  function measure() {
    const narrow = box.clientWidth < 620;
    names = narrow ? 0 : Math.min(260, Math.max(180, box.clientWidth * 0.2));
    lane_height = narrow ? 64 : 44;
    width = Math.floor(Math.min(WIDEST, Math.max(NARROWEST,
      (box.clientWidth - names - 12) / columns.length)));
    box.classList.toggle("narrow", narrow);
    put(space, {width: Math.max(names + columns.length * width + 12, box.clientWidth),
      height: HEAD + shown.length * lane_height + 4});
    box.setAttribute("aria-rowcount", shown.length);
    box.setAttribute("aria-colcount", columns.length + 1);
  }

  function layout() {
    measure();
    render();
  }

  /** Scrolls the lanes, and then the page, to where the active set is seen. */
  function follow() {
    const x = left(active), y = HEAD + shown.indexOf(active.lane) * lane_height;
    if (x - names < box.scrollLeft + width) box.scrollLeft = x - names - width;
    else if (x + 2 * width > box.scrollLeft + box.clientWidth) {
      box.scrollLeft = x + 2 * width - box.clientWidth;
    }
    if (y - HEAD < box.scrollTop) box.scrollTop = y - HEAD;
    else if (y + lane_height > box.scrollTop + box.clientHeight) {
      box.scrollTop = y + lane_height - box.clientHeight;
    }
    render();
    $(active.id).scrollIntoView({block: "nearest", inline: "nearest"});
  }

  function describe(stop) {
    const facts = [make("b", {className: "fact"}, nameOf(stop.lane.series))];
    const fact = (text) => facts.push(make("span", {className: "fact"}, text));
    const buttons = [];
    if (stop.set) {
      const {set} = stop;
      fact(moment(set.time));
      fact(`${grouped(set.bytes)} bytes (${rounded(set.bytes)}) in `
        + plural(set.images.length, "image", "images"));
      fact(`set ${set.backup_id}`);
      for (const image of set.images) {
        buttons.push(make("button", {type: "button", onclick: () => openImage(image)},
          `${image.backup_id}: ${plural(image.entries, "entry", "entries")}`));
      }
      for (const image of set.images.filter((one) => one.warned)) {
        buttons.push(make("p", {className: "warning"}, `${image.backup_id}: ${warningOf(image)}`));
      }
    } else {
      fact(`no set on ${WEEKDAYS[weekday(stop.day)]}, ${isoDay(stop.day * DAY)}`);
      fact("most weeks have one on this day");
    }
    $("set-details").replaceChildren(make("p", {}, ...facts), ...buttons);
  }

  function choose(stop) {
    active = stop;
    describe(stop);
    follow();
  }

  /** The stop of a lane that is nearest to a day. */
  function nearest(lane, day) {
    const far = (stop) => stop.day === day ? 0 : Math.abs((stop.day ?? -1e9) - (day ?? -1e9));
    return lane.stops.reduce((best, stop) => far(stop) <= far(best) ? stop : best);
  }

  box.addEventListener("keydown", (event) => {
    if (!active || !shown.includes(active.lane)) return;
    const {stops} = active.lane;
    const at = stops.indexOf(active), lane = shown.indexOf(active.lane);
    const lane_at = (next) => {
      const other = shown[Math.min(Math.max(next, 0), shown.length - 1)];
      return other === active.lane ? active : nearest(other, active.day);
    };
    const go = {
      ArrowLeft: () => stops[Math.max(0, at - 1)],
      ArrowRight: () => stops[Math.min(stops.length - 1, at + 1)],
      Home: () => event.ctrlKey ? shown[0].stops[0] : stops[0],
      End: () => event.ctrlKey ? shown.at(-1).stops.at(-1) : stops.at(-1),
      ArrowUp: () => lane_at(lane - 1),
      ArrowDown: () => lane_at(lane + 1),
      PageUp: () => lane_at(lane - 8),
      PageDown: () => lane_at(lane + 8),
    }[event.key];
    if (go) {
      event.preventDefault();
      choose(go());
    } else if (event.key === "Enter" && active.set?.images.length > 0) {
      event.preventDefault();
      openImage(active.set.images[0]);
    }
  });
  box.addEventListener("scroll", renderSoon);
  window.addEventListener("resize", layout);

  $("nights-filter").addEventListener("input", () => {
    const words = wordsOf($("nights-filter").value);
    shown = lanes.filter((lane) => holdsWords(lane.words, words));
    const none = shown.length === 0;
    $("nights-none").hidden = !none;
    box.hidden = none;
    if (none) {
      $("nights-none").textContent = "";
      show($("nights-none"), `No series has \u201C${$("nights-filter").value}\u201D in its client,`
        + " policy or schedule. Type less of it.");
      return;
    }
    layout();
    if (!shown.includes(active.lane)) {
      active = shown[0].stops.at(-1);
      describe(active);
      render();
    }
  });

  $("legend").append(...schedules.map((schedule, at) =>
    make("li", {className: `schedule-${at % 6}`}, schedule || "(no schedule)")),
  make("li", {className: "warned"}, "with warnings"), make("li", {className: "missing"}, "missing"));
  $("nights-total").textContent = [plural(lanes.length, "series", "series"),
    plural(lanes.reduce((sum, lane) => sum + lane.missing.length, 0), "missing night",
      "missing nights"),
    plural(model.sets.filter((set) => set.warned).length, "set with warnings",
      "sets with warnings")].join(" \u00B7 ");

  measure();
  // The newest night is what one comes for.
  box.scrollLeft = box.scrollWidth;
  const in_sight = lanes.slice(0, Math.max(1, Math.floor(box.clientHeight / lane_height) - 1));
  const stops = in_sight.flatMap((lane) => lane.stops).filter((stop) => stop.set);
  const age = (stop) => isDate(stop.set.time) ? Number(stop.set.time) : -1;
  active = stops.reduce((a, b) => age(b) > age(a) ? b : a);
  describe(active);
  render();
  return active.set;
}

/** What was complained of when an image was exported. */
function warningOf(image) {
  const lines = image.complaints.map(([command, line]) => `${command}: ${line}`);
  if (image.entries !== image.files) {
    lines.push(`${plural(image.entries, "entry", "entries")}, but ${grouped(image.files)} files listed`);
  }
  return lines.join("; ");
}
