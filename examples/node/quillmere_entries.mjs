// Reads the file entries of documents of any size, also those that are too long for a string of Node's:
//
//     import { entries } from "./quillmere_entries.mjs";
//     for await (const entry of entries("alpha_1500086460.json"))
//       console.log(entry.length, entry.path.toString());
//
// An entry's "path" and "data" are Buffers, because nobody knows their encoding; the other fields are
// strings. A document whose name ends in ".zst" takes the command zstd. There is nothing to install.

import { spawn } from "node:child_process";
import { once } from "node:events";
import { open } from "node:fs/promises";

const BLOCK = 2 ** 16; // bytes that are read at a time: with more, there is more garbage at a time
const LONGEST_ENTRY = 25 * 2 ** 20; // bytes

// The layout of a document is a contract: four blanks a level, each member on a line of its own, no
// newline in a value. So nothing but a member of the root looks like this.
const FENTRIES = Buffer.from('\n    "fentries": ');
const FIELDS = ["filenum", "length", "plength", "dlength", "blknum", "in_image", "raw_partition_sz",
  "gigabytes", "device_num", "path", "data"];
const ENTRY = new RegExp(
  ` {8}\\{\\n${FIELDS.map((name) => ` {12}"${name}": "([^\\n]*)"`).join(",\\n")}\\n {8}\\}(,?)\\n`, "y");
const ESCAPE = /\\(?:u00([01][0-9A-F])|(.?))/gs;
const STANDS_FOR = new Map([['"', '"'], ["\\", "\\"], ["b", "\b"], ["f", "\f"], ["n", "\n"], ["r", "\r"],
  ["t", "\t"]]);

/**
 * Gives the file entries of a document one after the other. A document that is cut or was changed is an
 * Error, behind the entries that are whole: use none of them before the last one has come.
 *
 * @param {string | Buffer} document its path
 * @returns {AsyncGenerator<{filenum: string, length: string, plength: string, dlength: string,
 *   blknum: string, in_image: string, raw_partition_sz: string, gigabytes: string, device_num: string,
 *   path: Buffer, data: Buffer}>}
 */
export async function* entries(document) {
  let offset = await entriesOffset(document); // of the text
  let text = ""; // of Latin-1: each byte is a character
  let at = 0;
  let end;
  let hasNext = false;
  let wanted = 0; // characters
  function* wholeEntries() {
    for (let found; hasNext && (found = entryAt(text, at)) !== undefined;) {
      yield found.entry;
      ({ at, hasNext } = found);
    }
  }
  for await (const piece of piecesFrom(document, offset)) {
    text += piece.toString("latin1");
    if (end === undefined && text.length >= 2) {
      hasNext = text.startsWith("[\n");
      [at, end] = hasNext ? [2, "    ]\n}\n"] : [0, '""\n}\n'];
    }
    if (text.length < wanted) continue;
    for (const entry of wholeEntries()) yield entry;
    text = text.slice(at);
    offset += at;
    at = 0;
    if (text.length > LONGEST_ENTRY) break;
    wanted = 2 * text.length; // so that a long entry is not looked at with each piece of it
  }
  for (const entry of wholeEntries()) yield entry;
  if (hasNext || text.slice(at) !== end) throw notWholeBehind(document, offset + at);
}

/** The entry that begins there, where it ends, and whether another follows; nothing if it is not whole. */
function entryAt(text, begin) {
  ENTRY.lastIndex = begin;
  const found = ENTRY.exec(text);
  if (found === null) return undefined;
  const entry = {};
  for (let field = 0; field < FIELDS.length; ++field) {
    const value = unescaped(found[field + 1]);
    if (value === undefined) return undefined;
    entry[FIELDS[field]] = value;
  }
  entry.path = Buffer.from(entry.path, "latin1");
  entry.data = Buffer.from(entry.data, "latin1");
  return { entry, at: begin + found[0].length, hasNext: found[12] === "," };
}

/** What a value stands for; nothing if an escape in it is none. */
function unescaped(value) {
  // No slash is without its backslash, so these two belong together wherever they are.
  if (!value.includes("\\")) return value;
  const text = value.replaceAll("\\/", "/");
  if (!text.includes("\\")) return text;
  let isRight = true;
  const plain = text.replace(ESCAPE, (_, code, sign) => {
    if (code !== undefined) return String.fromCharCode(parseInt(code, 16));
    isRight &&= STANDS_FOR.has(sign);
    return STANDS_FOR.get(sign);
  });
  return isRight ? plain : undefined;
}

/** Where the value of the last "fentries" begins: any before it is of the product's metadata. */
async function entriesOffset(document) {
  let found = 0;
  let position = 0;
  let kept = Buffer.alloc(0);
  for await (const piece of pieces(document)) {
    const seam = Buffer.concat([kept, piece.subarray(0, FENTRIES.length - 1)]);
    for (const [block, begin] of [[seam, position - kept.length], [piece, position]]) {
      const at = block.lastIndexOf(FENTRIES);
      if (at >= 0) found = begin + at + FENTRIES.length;
    }
    position += piece.length;
    kept = Buffer.concat([kept, piece.subarray(1 - FENTRIES.length)]).subarray(1 - FENTRIES.length);
  }
  if (found === 0) throw notWholeBehind(document, position);
  return found;
}

async function* piecesFrom(document, offset) {
  let skip = offset;
  for await (const piece of pieces(document)) {
    if (skip < piece.length) yield piece.subarray(skip);
    skip = Math.max(0, skip - piece.length);
  }
}

/** The document as it was before it was packed. A piece lasts until the next one is asked for. */
async function* pieces(document) {
  const file = await open(document);
  try {
    if (!document.toString().endsWith(".zst")) {
      const block = Buffer.alloc(BLOCK);
      for (;;) {
        const { bytesRead } = await file.read(block, 0, BLOCK, null);
        if (bytesRead === 0) return;
        yield block.subarray(0, bytesRead);
      }
    }
    const zstd = spawn("zstd", ["--decompress", "--stdout", "--quiet"],
      { stdio: [file.fd, "pipe", "ignore"] });
    const ended = once(zstd, "close");
    ended.catch(() => {}); // it is waited for when all is read
    yield* zstd.stdout;
    const [status] = await ended;
    if (status !== 0) throw new Error(`${document} is no whole zstd file`);
  } finally {
    await file.close();
  }
}

function notWholeBehind(document, offset) {
  return new Error(`${document}: no whole document: wrong behind byte ${offset}`);
}
