/**
 * A glob over a whole path, byte by byte, as quillmere-archive find has it. It is cut at its stars into
 * segments, in which each token takes one byte: so the first and the last have fixed places, and each
 * of the others is where it is found first.
 */
class Glob {
  static ANY = -1;
  static STAR = -2;

  constructor(text) {
    this.tokens = [];  // a byte, ANY, STAR, or a set of bytes
    this.impossible = false;
    const bytes = bytesOf(text);
    for (let at = 0; at < bytes.length; ++at) {
      const sign = String.fromCharCode(bytes[at]);
      if (sign === "*") {
        this.tokens.push(Glob.STAR);
      } else if (sign === "?") {
        this.tokens.push(Glob.ANY);
      } else if (sign === "[") {
        at = this.takeSet(bytes, at);
      } else {
        if (sign === "\\" && ++at === bytes.length) this.impossible = true;
        else this.tokens.push(bytes[at]);
      }
    }
    this.literal = this.longestLiteral();
    this.cut();
  }

  cut() {
    const segments = [[]];
    for (const token of this.tokens) {
      if (token === Glob.STAR) segments.push([]);
      else segments.at(-1).push(token);
    }
    const made = segments.map((tokens) => ({tokens, length: tokens.length,
      literal: tokens.every((token) => token >= 0) ? String.fromCharCode(...tokens) : null}));
    this.first = made[0];
    this.last = made.length > 1 ? made.at(-1) : null;
    this.inner = made.slice(1, -1).filter((segment) => segment.length > 0);
    // *literal*: whatever has the literal in it matches.
    this.isLiteral = this.last !== null && this.first.length + this.last.length === 0
      && this.inner.length === 1 && this.inner[0].literal === this.literal;
  }

  /** Takes the set that begins at `start`, or the bracket itself where no set does; returns its end. */
  takeSet(bytes, start) {
    const CLASSES = {alpha: /[A-Za-z]/, digit: /\d/, alnum: /[A-Za-z\d]/, upper: /[A-Z]/,
      lower: /[a-z]/, space: /[\t-\r ]/, blank: /[\t ]/, punct: /[!-/:-@[-`{-~]/,
      xdigit: /[\dA-Fa-f]/, cntrl: /[\0-\x1F\x7F]/, print: /[ -~]/, graph: /[!-~]/};
    const text = String.fromCharCode(...bytes.slice(start));
    const set = new Uint8Array(256);
    let at = 1;
    const negated = text[at] === "!" || text[at] === "^";
    if (negated) ++at;
    for (let first = true; ; first = false) {
      if (at >= text.length) {
        this.tokens.push(bytes[start]);
        return start;
      }
      if (text[at] === "]" && !first) break;
      const named = /^\[:([a-z]+):\]/.exec(text.slice(at));
      if (named && CLASSES[named[1]]) {
        for (let byte = 0; byte < 128; ++byte) {
          if (CLASSES[named[1]].test(String.fromCharCode(byte))) set[byte] = 1;
        }
        at += named[0].length;
        continue;
      }
      if (text[at] === "\\" && at + 1 < text.length) ++at;
      const low = text.charCodeAt(at++);
      let high = low;
      if (text[at] === "-" && at + 1 < text.length && text[at + 1] !== "]") {
        ++at;
        if (text[at] === "\\" && at + 1 < text.length) ++at;
        high = text.charCodeAt(at++);
      }
      for (let byte = low; byte <= high; ++byte) set[byte] = 1;
    }
    this.tokens.push(negated ? set.map((one) => 1 - one) : set);
    return start + at;
  }

  /** The longest text of ASCII that each path has in it that matches. */
  longestLiteral() {
    let longest = "", text = "";
    for (const token of [...this.tokens, Glob.STAR]) {
      if (typeof token === "number" && token >= 0 && token < 0x80 && token !== 10 && token !== 0) {
        text += String.fromCharCode(token);
      } else {
        if (text.length > longest.length) longest = text;
        text = "";
      }
    }
    return longest;
  }

  static isAt({literal, tokens}, text, place) {
    if (literal !== null) return text.startsWith(literal, place);
    for (let at = 0; at < tokens.length; ++at) {
      const token = tokens[at], code = text.charCodeAt(place + at);
      if (token !== Glob.ANY && token !== code && !(typeof token === "object" && token[code] === 1)) {
        return false;
      }
    }
    return true;
  }

  static find(segment, text, place) {
    if (segment.literal !== null) return text.indexOf(segment.literal, place);
    const [set] = segment.tokens;
    if (segment.length === 1 && typeof set === "object") {
      while (place < text.length && set[text.charCodeAt(place)] !== 1) ++place;
      return place < text.length ? place : -1;
    }
    for (; place + segment.length <= text.length; ++place) {
      if (Glob.isAt(segment, text, place)) return place;
    }
    return -1;
  }

  /** Whether [from, to) of a text matches, in which each character is a byte. */
  matches(text, from, to) {
    const {first, last, inner} = this;
    if (!last) return to - from === first.length && Glob.isAt(first, text, from);
    const end = to - last.length;
    if (from + first.length > end || !Glob.isAt(first, text, from) || !Glob.isAt(last, text, end)) {
      return false;
    }
    if (inner.length === 0) return true;
    const between = text.slice(from + first.length, end);
    let place = 0;
    for (const segment of inner) {
      place = Glob.find(segment, between, place);
      if (place < 0) return false;
      place += segment.length;
    }
    return true;
  }
}

/** The bytes that a text stands for. */
function bytesOf(text) {
  const bytes = [];
  for (const part of text.split(/([\u{10FF00}-\u{10FFFF}])/u)) {
    const code = part.codePointAt(0);
    if (code >= CARRIED) bytes.push(code - CARRIED);
    else bytes.push(...new TextEncoder().encode(part));
  }
  return bytes;
}

/** Finds the paths of one image. */
class PathSearch {
  constructor(paths) {
    this.paths = paths;
    this.found = new Uint8Array(paths.length);  // 1 for each line that was found last
    this.bytes = new Map();  // of lines that hold more than ASCII
    // Escapes can be searched for as they are seen.
    const plain = !/[^\n -~]/.test(paths.text);
    const text = plain ? paths.text : paths.text.replace(/[^\n -~]+/g, seen);
    this.ascii = plain || !/[^\0-\x7F]/.test(paths.text);
    this.folded = new Column(text.toLowerCase(), paths.length);
  }

  /** Marks the lines in [first, end) that a query finds, and returns their number. */
  search(query, first, end) {
    this.found.fill(0);
    if (/^\**$/.test(query)) {
      this.found.fill(1, first, end);
      return end - first;
    }
    return /[*?[]/.test(query) ? this.glob(new Glob(query), first, end)
      : this.walk(this.folded, query.toLowerCase(), first, end, () => true);
  }

  /** Looks at each line that has `literal` in it once. */
  walk(column, literal, first, end, accept) {
    const {text, starts} = column;
    const limit = starts[end];
    let count = 0;
    for (let line = first; line < end;) {
      const place = text.indexOf(literal, starts[line]);
      if (place < 0 || place >= limit) break;
      if (place >= starts[line + 1]) line = column.lineOf(place, line + 1);
      if (accept(line)) {
        this.found[line] = 1;
        ++count;
      }
      ++line;
    }
    return count;
  }

  glob(glob, first, end) {
    if (glob.impossible) return 0;
    const {text, starts} = this.paths;
    const accept = (line) => {
      const bytes = this.ascii ? null : this.bytesOf(line);
      return bytes === null ? glob.matches(text, starts[line], starts[line + 1] - 1)
        : glob.matches(bytes, 0, bytes.length);
    };
    if (glob.literal) {
      return this.walk(this.paths, glob.literal, first, end, glob.isLiteral ? () => true : accept);
    }
    let count = 0;
    for (let line = first; line < end; ++line) {
      if (accept(line)) {
        this.found[line] = 1;
        ++count;
      }
    }
    return count;
  }

  /** A path that holds more than ASCII, each byte a character; null of any other. */
  bytesOf(line) {
    let bytes = this.bytes.get(line);
    if (bytes === undefined) {
      const path = this.paths.at(line);
      bytes = /[^\0-\x7F]/.test(path)
        ? bytesOf(path).map((byte) => String.fromCharCode(byte)).join("") : null;
      this.bytes.set(line, bytes);
    }
    return bytes;
  }
}
