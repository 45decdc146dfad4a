#!/usr/bin/env bash
# Runs two ClickHouse servers on this machine's loopback, as two shards with their data below FOLDER,
# for as long as COMMAND runs, and ends with its status:
#
#   two_shards.sh FOLDER COMMAND [ARGUMENT...]
#
# They listen on the ports $QUILLMERE_SHARD_1 and $QUILLMERE_SHARD_2, or 9001 and 9002. Whoever can
# reach these ports can read and change all that is there.
set -euo pipefail

here=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")
export QUILLMERE_SHARD_1=${QUILLMERE_SHARD_1:-9001} QUILLMERE_SHARD_2=${QUILLMERE_SHARD_2:-9002}
readonly SECONDS_TO_START=60
PATH=$PATH:/usr/sbin # where Debian has the server

if (($# < 2)); then
  echo "usage: two_shards.sh FOLDER COMMAND [ARGUMENT...]" >&2
  exit 2
fi
mkdir -p "$1"
folder=$(readlink -f "$1")
shift
umask 077

servers=()
end_servers() {
  if ((${#servers[@]} > 0)); then
    kill "${servers[@]}" 2>/dev/null || true
    wait "${servers[@]}" || true
  fi
}
trap end_servers EXIT
trap 'exit 143' TERM
trap 'exit 130' INT
trap 'exit 129' HUP

# start_shard NUMBER PORT
start_shard() {
  local data=$folder/$1
  mkdir -p "$data/tmp"
  cp "$here/shard.xml" "$data" # the server writes its own form of it beside it
  # Without this script, they end as well.
  QUILLMERE_SHARD_PORT=$2 QUILLMERE_SHARD_DATA=$data/ QUILLMERE_SHARD_TMP=$data/tmp/ \
    QUILLMERE_SHARD_LOG=$data/log setpriv --pdeathsig TERM \
    clickhouse-server --config-file="$data/shard.xml" </dev/null >"$data/output" 2>&1 &
  servers+=($!)
}

# prepare_shard PORT SERVER: makes the tables as soon as it listens.
prepare_shard() {
  local end=$((SECONDS + SECONDS_TO_START))
  until clickhouse-client --host 127.0.0.1 --port "$1" --query 'SELECT 1' >/dev/null 2>&1; do
    if ! kill -0 "$2" 2>/dev/null || ((SECONDS > end)); then
      echo "two_shards.sh: no server on port $1; $folder has its log" >&2
      exit 1
    fi
    sleep 0.1
  done
  clickhouse-client --host 127.0.0.1 --port "$1" --multiquery <"$here/schema.sql"
}

start_shard 1 "$QUILLMERE_SHARD_1"
start_shard 2 "$QUILLMERE_SHARD_2"
prepare_shard "$QUILLMERE_SHARD_1" "${servers[0]}"
prepare_shard "$QUILLMERE_SHARD_2" "${servers[1]}"
"$@"
