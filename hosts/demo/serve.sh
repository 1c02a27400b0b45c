#!/usr/bin/env bash
# serve.sh BUILD-FOLDER [--data DIR] [--broker-port N] [option of kvx-server …]: server and broker on
# this machine until Ctrl-C. Called by ./run serve.
set -eu
build=$1
shift
data=$HOME/kvx-data
broker_port=61616
while [ $# -gt 0 ]; do
    case $1 in
    --data | --broker-port)
        [ $# -gt 1 ] || { echo "serve: $1 needs a value" >&2; exit 2; }
        if [ "$1" = --data ]; then data=$2; else broker_port=$2; fi
        shift 2
        ;;
    *) break ;;
    esac
done
umask 077
mkdir -p "$data" || exit 2

server=
broker=
stop() {
    trap - EXIT INT TERM HUP
    # The server first: it still has its last notifications to send.
    for process in $server $broker; do
        kill "$process" 2>/dev/null || true
        wait "$process" 2>/dev/null || true
    done
}
trap stop EXIT
trap 'stop; exit 0' INT TERM HUP

# The server's account at the broker, whose guard hears nobody else.
password=$data/broker.password
if [ ! -s "$password" ]; then
    head -c 32 /dev/urandom | base64 -w 0 >"$password"
fi
export KVX_BROKER_USER=kvx-server
KVX_BROKER_PASSWORD=$(<"$password")
export KVX_BROKER_PASSWORD

# Both end with this script, however it ends.
setpriv --pdeathsig TERM "$build/server/broker/kvx-broker" --port "$broker_port" \
    --data "$data/broker" --server "$KVX_BROKER_USER:$password" >/dev/null &
broker=$!
setpriv --pdeathsig TERM "$build/server/kvx-server" serve --data "$data" \
    --broker.url "tcp://127.0.0.1:$broker_port" --broker.publicPort "$broker_port" "$@" &
server=$!
# What ends first has said why; its exit code is ours.
wait -n "$server" "$broker"
