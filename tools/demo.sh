#!/usr/bin/env bash
# The main job on a fresh machine: build the tool and walk through what it does against the
# embedded simulated modem, with a property store and a modem state directory of its own.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset default >/dev/null
cmake --build --preset default --target tarvik-qmi
tool=build/default/bin/tarvik-qmi
export TARVIK_PROPERTY_DIR="${TARVIK_PROPERTY_DIR:-$PWD/build/demo/properties}"
export TARVIK_MODEM_STATE="${TARVIK_MODEM_STATE:-$PWD/build/demo/modem}"
mkdir -p "$TARVIK_PROPERTY_DIR" "$TARVIK_MODEM_STATE"

step() { printf '\n$ tarvik-qmi %s\n' "$*"; "$tool" "$@"; }

step log debug "hello from the service tool"
step sim status
step prop set persist.vendor.radio.demo "set in one run"
step prop get persist.vendor.radio.demo
step device
step build
step send 255 68656c6c6f
step watch --for 1 --inject 3:0a0b 3
printf 'modem file written by the demo\n' > build/demo/blob.txt
step nv write 0 550 0a0b0c0d
step nv read 0 550
step efs write 0 /nv/item_files/demo/blob build/demo/blob.txt
step efs read 0 /nv/item_files/demo/blob build/demo/blob.back
cat build/demo/blob.back
step --json efs stat /nv/item_files/demo/blob
