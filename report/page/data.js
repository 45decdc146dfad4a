/** The bytes of a block that quillmere-report wrote. */
async function unpacked(id) {
  const packed = $(id).textContent;
  const bytes = Uint8Array.fromBase64?.(packed)
    ?? Uint8Array.from(atob(packed), (character) => character.charCodeAt(0));
  const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream("deflate"));
  return new Uint8Array(await new Response(stream).arrayBuffer());
}

const decoded = (bytes) => new TextDecoder("utf-8", {ignoreBOM: true}).decode(bytes);

/** Values one below the other in one text: an array of them would take several times the memory. */
class Column {
  constructor(text, count) {
    // What a TextDecoder returns lies outside of the script's heap, where each search takes a detour.
    this.text = [text, "\n"].join("");
    this.length = count;
    this.starts = new Uint32Array(count + 1);  // of each line; the last one is beyond the end
    let from = 0;
    for (let line = 1; line <= count; ++line) {
      from = this.text.indexOf("\n", from) + 1;
      this.starts[line] = from;
    }
  }

  at(line) {
    return this.text.slice(this.starts[line], this.starts[line + 1] - 1);
  }
}

/** The line in which a place is, from where lines start; it is no line before `from`. */
function lineAt(starts, place, from) {
  const length = starts.length - 1;
  let step = 1;
  while (from + step < length && starts[from + step] <= place) {
    from += step;
    step *= 2;
  }
  for (; step >= 1; step /= 2) {
    if (from + step < length && starts[from + step] <= place) from += step;
  }
  return from;
}

const IN_TABLE = ["path", "length", "filenum", "data"];
const OTHERS = ["plength", "dlength", "blknum", "in_image", "raw_partition_sz", "gigabytes",
  "device_num"];
/** As an entry stands in its document. */
const FIELDS = ["filenum", "length", ...OTHERS, "path", "data"];

/** The columns of a block, between which there are zero bytes. */
async function columnsOf(block, names, count) {
  const bytes = await unpacked(block);
  let from = 0;
  return Object.fromEntries(names.map((name) => {
    const zero = bytes.indexOf(0, from);
    const to = zero < 0 ? bytes.length : zero;
    const column = new Column(decoded(bytes.subarray(from, to)), count);
    from = to + 1;
    return [name, column];
  }));
}

/**
 * Lengths, as doubles where their sum is exact in one, otherwise as BigInt. What is no number counts
 * 0.
 */
function lengthsOf(column) {
  const doubles = new Float64Array(column.length);
  let magnitude = 0;
  for (let line = 0; line < column.length; ++line) {
    const text = column.at(line);
    doubles[line] = /^-?\d{1,20}$/.test(text) ? Number(text) : 0;
    magnitude += Math.abs(doubles[line]);
  }
  if (magnitude < 2 ** 53) return doubles;
  return Array.from(doubles, (_, line) => number(column.at(line)));
}

/** Rows of columns, as objects. */
function rowsOf(columns) {
  const names = Object.keys(columns);
  return columns[names[0]].map((_, at) =>
    Object.fromEntries(names.map((name) => [name, columns[name][at]])));
}

/** What the index says, with texts in place of their numbers, and sets that know their images. */
function modelOf(index) {
  const {strings} = index;
  const words = (row) => {
    for (const key of ["client", "policy", "schedule"]) row[key] = strings[row[key]];
  };
  const images = rowsOf(index.images);
  images.forEach((image, at) => {
    words(image);
    image.number = at;
    image.size = strings[image.size];
    image.complaints = image.complaints.map((pair) => pair.map((one) => strings[one]));
    image.warned = image.complaints.length > 0 || image.entries !== image.files;
    image.sets = [];
    image.block = -1;
  });
  index.shown.forEach((at, block) => { images[at].block = block; });
  const sets = rowsOf(index.sets);
  for (const set of sets) {
    words(set);
    set.images = set.images.map((at) => images[at]);
    for (const image of set.images) image.sets.push(set);
    set.warned = set.images.some((image) => image.warned);
    // A set of a series without parents carries the size of the series: its images say its own.
    set.bytes = set.images.reduce((sum, image) => sum + BigInt(image.size_bytes), 0n);
  }
  for (const change of index.changes) {
    change.before = sets[change.before];
    change.after = sets[change.after];
  }
  return {...index, images, sets};
}
