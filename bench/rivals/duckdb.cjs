// node duckdb.cjs METADATA <ENTRIES >DOCUMENT: DuckDB's reader of separated values, into a JSON array
// with an object on each line. The metadata stay as the product lays them out; the last line of
// METADATA is "}". Its texts are UTF-8, so the lines that are not are passed over, without a word.

const fs = require("node:fs");
const { DuckDBInstance } = require("@duckdb/node-api");

const KEYS = ["filenum", "length", "plength", "dlength", "blknum", "in_image", "raw_partition_sz",
  "gigabytes", "device_num", "path", "data"];

async function main() {
  const metadata = fs.readFileSync(process.argv[2], "utf8").trimEnd();
  fs.writeSync(1, metadata.slice(0, -1) + ', "fentries":\n');
  const columns = KEYS.map((key) => `'${key}': 'VARCHAR'`).join(", ");
  const connection = await (await DuckDBInstance.create()).connect();
  await connection.run(`
    COPY (
      FROM read_csv('/dev/stdin', columns = {${columns}}, delim = '\t', quote = '', escape = '',
        header = false, auto_detect = false, ignore_errors = true)
      WHERE filenum NOT LIKE '0%' AND filenum <> 'num'
    ) TO '/dev/stdout' (FORMAT json, ARRAY true)`);
  fs.writeSync(1, "}\n");
}

main();
