#!/usr/bin/env bash
# serve.sh BUILD-FOLDER [--data DIR] [option of kvx-server …]: server and broker on this machine until
# Ctrl-C. Called by ./run serve.
set -eu
here=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")
build=$1
shift
data=$HOME/kvx-data
if [ "${1:-}" = --data ]; then
    [ $# -gt 1 ] || { echo "serve: --data needs a folder" >&2; exit 2; }
    data=$2
    shift 2
fi
broker_port=${KVX_BROKER_PORT:-61616}
mkdir -p "$data"
umask 077

"$here/../../server/broker/kvx-broker" --port "$broker_port" --data "$data/broker" &
broker=$!
server=
stop() {
    trap - EXIT INT TERM
    [ -z "$server" ] || kill "$server" 2>/dev/null || true
    [ -z "$server" ] || wait "$server" 2>/dev/null || true
    kill "$broker" 2>/dev/null || true
    wait "$broker" 2>/dev/null || true
}
trap stop EXIT
trap 'stop; exit 0' INT TERM

"$build/server/kvx-server" serve --data "$data" --broker.url "tcp://127.0.0.1:$broker_port" \
    --broker.publicPort "$broker_port" "$@" &
server=$!
wait -n "$server" "$broker"
