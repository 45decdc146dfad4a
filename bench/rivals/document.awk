# awk -f document.awk -v metadata=METADATA <ENTRIES >DOCUMENT: each entry is written as soon as it
# is read. awk cannot read JSON, so the metadata stay as the product lays them out.

BEGIN {
  FS = "\t"
  ORS = ""
  while ((getline line < metadata) > 0) {
    text = text line "\n"
  }
  sub(/\n*}\n*$/, "", text)
  print text ",\n    \"fentries\": "
  between = "[\n"
  for (code = 1; code < 32; code++) {
    escape[sprintf("%c", code)] = sprintf("\\u%04X", code)
  }
  escape["\b"] = "\\b"
  escape["\f"] = "\\f"
  escape["\r"] = "\\r"
  names = "filenum length plength dlength blknum in_image raw_partition_sz gigabytes device_num"
  count = split(names " path data", name, " ")
  for (i = 1; i <= count; i++) {
    before[i] = (i == 1 ? "        {\n" : "\",\n") "            \"" name[i] "\": \""
  }
}

# `field` with its control characters escaped.
function escaped(field,    i, char, result) {
  for (i = 1; i <= length(field); i++) {
    char = substr(field, i, 1)
    result = result (char in escape ? escape[char] : char)
  }
  return result
}

/^0/ || /^$/ {
  next
}

!header_seen && /^num\t/ {
  header_seen = 1
  next
}

{
  gsub(/[\\"\/]/, "\\\\&")
  if (/^\t|\t\t|\t$/) {
    gsub(/\t+/, "\t")
    gsub(/^\t|\t$/, "")
  }
  if (NF != count) {
    print "token size mismatch\n" > "/dev/stderr"
    exit failed = 1
  }
  if (/[\001-\010\013-\037]/) {
    for (i = 1; i <= count; i++) {
      $i = escaped($i)
    }
  }
  print between before[1] $1 before[2] $2 before[3] $3 before[4] $4 before[5] $5 before[6] $6 \
    before[7] $7 before[8] $8 before[9] $9 before[10] $10 before[11] $11 "\"\n        }"
  between = ",\n"
}

END {
  if (!failed) {
    print (between == "[\n" ? "\"\"\n}\n" : "\n    ]\n}\n")
  }
}
