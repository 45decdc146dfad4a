/**
 * A glob over a whole path, byte by byte, as quillmere-archive find has it. It is cut at its stars into
 * segments, in which each token takes one byte: so the first and the last have fixed places, and each
 * of the others is where it is found first.
 */
class Glob {
  static STAR = null;

  constructor(text) {
    this.tokens = [];  // STAR, or 256 numbers: 1 of each byte that it takes
    this.impossible = false;
    const bytes = bytesOf(text);
    for (let at = 0; at < bytes.length; ++at) {
      const sign = String.fromCharCode(bytes[at]);
      if (sign === "*") {
        this.tokens.push(Glob.STAR);
      } else if (sign === "?") {
        this.tokens.push(new Uint8Array(256).fill(1));
      } else if (sign === "[") {
        at = this.takeSet(bytes, at);
      } else {
        if (sign === "\\" && ++at === bytes.length) this.impossible = true;
        else this.takeByte(bytes[at]);
      }
    }
    const segments = [[]];
    for (const token of this.tokens) {
      if (token === Glob.STAR) segments.push([]);
      else segments.at(-1).push(token);
    }
    const made = segments.map((tokens) => new Segment(tokens));
    this.first = made[0];
    this.last = made.length > 1 ? made.at(-1) : null;
    this.inner = made.slice(1, -1).filter((segment) => segment.length > 0);
  }

  takeByte(byte) {
    this.tokens.push(new Uint8Array(256).fill(1, byte, byte + 1));
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
        this.takeByte(bytes[start]);
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
}

/** Tokens that stand behind each other. */
class Segment {
  constructor(tokens) {
    this.length = tokens.length;
    this.table = new Uint8Array(256 * tokens.length);
    tokens.forEach((token, at) => this.table.set(token, 256 * at));
    const single = tokens.every((token) => token.indexOf(1) === token.lastIndexOf(1) && token.includes(1));
    this.literal = single ? String.fromCharCode(...tokens.map((token) => token.indexOf(1))) : null;
    this.next = -1;  // where the literal was found last
  }

  isAt(bytes, place) {
    for (let at = 0; at < this.length; ++at) {
      if (this.table[256 * at + bytes[place + at]] === 0) return false;
    }
    return true;
  }

  /** The first place from `place` on, beyond `end` if there is none before it; never less than last time. */
  find({text, bytes}, place, end) {
    if (this.literal !== null) {
      if (this.next < place) {
        const found = text.indexOf(this.literal, place);
        this.next = found < 0 ? Infinity : found;
      }
      return this.next;
    }
    const {table} = this;
    for (const last = end - this.length; place <= last; ++place) {
      if (table[bytes[place]] === 1 && (this.length === 1 || this.isAt(bytes, place))) return place;
    }
    return end;
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

/** Paths as the bytes that they stand for, and as a text in which each character is one of these. */
class PathBytes {
  constructor(paths) {
    this.text = paths.text;
    this.bytes = new TextEncoder().encode(paths.text);
    this.starts = paths.starts;  // of each path; one before the next one, it ends
    if (this.bytes.length > paths.text.length) this.bringTogether(paths.length);
  }

  /** Where characters take several bytes: finds where paths start, and makes one of each carried byte. */
  bringTogether(length) {
    const CHUNK = 8192;  // arguments of a call
    const {bytes} = this, starts = new Uint32Array(length + 1), texts = [];
    let to = 0, line = 0;
    for (let from = 0; from < bytes.length; ++from) {
      const byte = bytes[from];
      if (byte === 0xF4 && bytes[from + 1] === 0x8F && bytes[from + 2] >= 0xBC) {  // from CARRIED on
        bytes[to++] = (bytes[from + 2] & 3) << 6 | bytes[from + 3] & 0x3F;
        from += 3;
      } else {
        bytes[to++] = byte;
        if (byte === 10 && line < length) starts[++line] = to;
      }
    }
    for (let from = 0; from < to; from += CHUNK) {
      texts.push(String.fromCharCode(...bytes.subarray(from, Math.min(from + CHUNK, to))));
    }
    this.text = texts.join("");
    this.starts = starts;
  }
}

/** Finds the paths of one image. */
class PathSearch {
  constructor(paths) {
    this.found = new Uint8Array(paths.length);  // 1 for each line that was found last
    this.bytes = new PathBytes(paths);
    // Escapes can be searched for as they are seen.
    const plain = !/[^\n -~]/.test(paths.text);
    const text = plain ? paths.text : paths.text.replace(/[^\n -~]+/g, seen);
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
      : this.text(query.toLowerCase(), first, end);
  }

  text(query, first, end) {
    const {text, starts} = this.folded;
    const limit = starts[end];
    let count = 0;
    for (let line = first; line < end; ++line) {
      const place = text.indexOf(query, starts[line]);
      if (place < 0 || place >= limit) break;
      if (place >= starts[line + 1]) line = lineAt(starts, place, line + 1);
      this.found[line] = 1;
      ++count;
    }
    return count;
  }

  glob(glob, begin, end) {
    if (glob.impossible) return 0;
    const {first, inner, last} = glob, {bytes, starts} = this.bytes;
    let count = 0;
    for (let line = begin; line < end; ++line) {
      const to = starts[line + 1] - 1 - (last?.length ?? 0);
      let place = starts[line] + first.length;
      if (last === null ? place !== to : place > to) continue;
      if (!first.isAt(bytes, starts[line]) || !(last?.isAt(bytes, to) ?? true)) continue;
      let missing = null;
      for (const segment of inner) {
        const at = segment.find(this.bytes, place, to);
        if (at + segment.length > to) {
          missing = segment;
          break;
        }
        place = at + segment.length;
      }
      if (missing === null) {
        this.found[line] = 1;
        ++count;
      } else if (missing.next >= starts[line + 1]) {  // no line before that has it
        line = missing.next < starts[end] ? lineAt(starts, missing.next, line + 1) - 1 : end;
      }
    }
    return count;
  }
}
