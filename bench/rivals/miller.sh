#!/bin/sh
# miller.sh METADATA <ENTRIES >DOCUMENT: Miller makes the array and streams it; the shell puts it
# behind the metadata, which stay as the product lays them out. The last line of METADATA is "}".
set -eu
keys=filenum,length,plength,dlength,blknum,in_image,raw_partition_sz,gigabytes,device_num,path,data
sed '$d' "$1"
echo ', "fentries":'
# shellcheck disable=SC2016  # $1 is the first field of a record
mlr --inidx --ifs tab --ojson -S filter '!($1 =~ "^0" || $1 == "num")' 'then' label "$keys"
echo '}'
