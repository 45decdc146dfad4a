/** A glob over a whole path, byte by byte, as quillmere-archive find has it. */
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
        if (this.tokens.at(-1) !== Glob.STAR) this.tokens.push(Glob.STAR);
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

  /** Whether codes [from, to) match, each of which `code(at)` tells. */
  matches(code, from, to) {
    const {tokens} = this;
    let token = 0, star = -1, again = from;
    for (let at = from; at < to;) {
      const wanted = tokens[token];
      if (wanted === Glob.STAR) {
        star = token++;
        again = at;
      } else if (wanted !== undefined && (wanted === Glob.ANY || wanted === code(at)
          || (typeof wanted === "object" && wanted[code(at)] === 1))) {
        ++token;
        ++at;
      } else if (star >= 0) {
        token = star + 1;
        at = ++again;
      } else {
        return false;
      }
    }
    while (tokens[token] === Glob.STAR) ++token;
    return token === tokens.length;
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
    if (query === "") {
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
    const code = (at) => text.charCodeAt(at);
    const accept = (line) => {
      const bytes = this.ascii ? null : this.bytesOf(line);
      return bytes ? glob.matches((at) => bytes[at], 0, bytes.length)
        : glob.matches(code, starts[line], starts[line + 1] - 1);
    };
    if (glob.literal) return this.walk(this.paths, glob.literal, first, end, accept);
    let count = 0;
    for (let line = first; line < end; ++line) {
      if (accept(line)) {
        this.found[line] = 1;
        ++count;
      }
    }
    return count;
  }

  /** The bytes of a path that holds more than ASCII; null of any other. */
  bytesOf(line) {
    let bytes = this.bytes.get(line);
    if (bytes === undefined) {
      const path = this.paths.at(line);
      bytes = /[^\0-\x7F]/.test(path) ? bytesOf(path) : null;
      this.bytes.set(line, bytes);
    }
    return bytes;
  }
}
