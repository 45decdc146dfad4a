# jq -nR --indent 4 --slurpfile metadata METADATA -f document.jq <ENTRIES >DOCUMENT: the whole
# document as one value. jq writes "/" as it is, U+FFFD for what is no UTF-8, and reads numbers as
# numbers, so that -1.5e-3 comes out as -0.0015.

["filenum", "length", "plength", "dlength", "blknum", "in_image", "raw_partition_sz", "gigabytes",
  "device_num", "path", "data"] as $keys
| def as_strings:
    if type == "object" or type == "array" then
      if length == 0 then "" else map_values(as_strings) end
    else tostring end;
  def entry:
    (split("\t") | map(select(. != ""))) as $fields
    | if $fields | length != 11 then error("token size mismatch") else . end
    | reduce range(11) as $i ({}; .[$keys[$i]] = $fields[$i]);
  ($metadata[0] | as_strings)
  + {fentries: [inputs
      | select((startswith("0") or startswith("num\t") or . == "") | not)
      | entry]}
