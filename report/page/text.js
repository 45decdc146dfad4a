// Every text of the archive reaches the page as a text node, through show(). Nothing here makes
// markup from texts.

const $ = (id) => document.getElementById(id);

// A byte that is no UTF-8, and one that would part values, is carried as U+10FF00 + byte.
const CARRIED = 0x10FF00;
// Characters that would not be seen, or would change how others are seen.
const UNSEEN = /[\p{Cc}\p{Cs}\p{Zl}\p{Zp}\u{10FF00}-\u{10FFFF}]|(?![\u200C\u200D])\p{Cf}/u;
const EACH_UNSEEN = new RegExp(UNSEEN, "gu");
const SHORT = new Map([["\n", "\\n"], ["\t", "\\t"], ["\r", "\\r"]]);

/** How a character is shown that would not be seen: a byte as \xE9, any other as \u202E. */
function escaped(character) {
  const code = character.codePointAt(0);
  const hex = (number, width) => number.toString(16).toUpperCase().padStart(width, "0");
  if (code >= CARRIED && code < CARRIED + 0x80) return escaped(String.fromCharCode(code - CARRIED));
  if (code >= CARRIED) return "\\x" + hex(code - CARRIED, 2);
  if (SHORT.has(character)) return SHORT.get(character);
  if (code < 0x20) return "\\x" + hex(code, 2);
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
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) {
    if (name === "role" || name.startsWith("aria-")) element.setAttribute(name, value);
    else element[name] = value;
  }
  for (const child of children) {
    if (typeof child === "string") show(element, child);
    else element.append(child);
  }
  return element;
}

/** Puts an element where `place` says, in pixels. */
function put(element, place) {
  for (const [side, value] of Object.entries(place)) element.style[side] = `${value}px`;
  return element;
}

// Sizes have 64 bits, and sums of them more: what may not fit into a double is BigInt.

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

const DAY = 86400;
const LAST_SECOND = 253402300799;  // of the year 9999

/** Whether these seconds since 1970 are a date, unlike the time 0 of images without a time. */
const isDate = (seconds) => seconds > 0 && seconds <= LAST_SECOND;

const isoTime = (seconds) => new Date(Number(seconds) * 1000).toISOString();
const isoDay = (seconds) => isoTime(seconds).slice(0, 10);

/** Seconds since 1970 as a date and a time, or what stands there in place of one. */
const moment = (seconds) =>
  isDate(seconds) ? isoTime(seconds).slice(0, 16).replace("T", " ") + " UTC" : `time ${seconds}`;

const dayText = (seconds) => isDate(seconds) ? isoDay(seconds) : `time ${seconds}`;

/** Whether each of these words is in the text. */
const holdsWords = (text, words) => words.every((word) => text.includes(word));
const wordsOf = (text) => text.toLowerCase().split(/\s+/).filter(Boolean);
