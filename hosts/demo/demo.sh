#!/usr/bin/env bash
# demo.sh BUILD-FOLDER: runs the demo with the sample files beside this script. Called by ./run demo.
set -eu
here=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")
exec "$1/bin/kvx-demo" "$1" "$1/server/broker/kvx-broker" "$here"
