#!/usr/bin/env bash
# The main job on a fresh machine: build the tool and walk through what it does, first against
# the embedded simulated modem, then against the daemon tarvik-modemd shared by several tool runs,
# with a property store and modem state directories of its own under build/demo.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset default >/dev/null
cmake --build --preset default --target tarvik-qmi tarvik-modemd
bin=$PWD/build/default/bin
demo=$PWD/build/demo
export TARVIK_PROPERTY_DIR="${TARVIK_PROPERTY_DIR:-$demo/properties}"
export TARVIK_MODEM_STATE="${TARVIK_MODEM_STATE:-$demo/modem}"
mkdir -p "$TARVIK_PROPERTY_DIR" "$TARVIK_MODEM_STATE"

step() { printf '\n$ tarvik-qmi %s\n' "$*"; "$bin/tarvik-qmi" "$@"; }
# A step that must fail (the demo shows the error).
fails() {
  printf '\n$ tarvik-qmi %s   # fails on purpose\n' "$*"
  if "$bin/tarvik-qmi" "$@"; then
    echo "demo: expected a failure" >&2
    exit 1
  fi
}

echo "== the embedded simulated modem (one per tool run; its state in $TARVIK_MODEM_STATE)"
step log debug "hello from the service tool"
step prop set persist.vendor.radio.demo "set in one run"
step prop get persist.vendor.radio.demo
step build
step send 255 68656c6c6f
step send 255 68656c6c6f 2
step watch --for 1 --inject 3:0a0b 3
printf 'modem file written by the demo\n' > "$demo/blob.txt"
step nv write 0 550 0a0b0c0d
step nv read 0 550
fails nv read 2 551
step efs write 0 /nv/item_files/demo/blob "$demo/blob.txt"
step efs read 0 /nv/item_files/demo/blob "$demo/blob.back"
cat "$demo/blob.back"
step --json efs stat 0 /nv/item_files/demo/blob

echo
echo "== the daemon: one modem shared by every tool run"
socket=$demo/modemd.sock
rm -f "$socket"
"$bin/tarvik-modemd" --socket "$socket" --state "$demo/daemon-state" &
daemon=$!
trap 'kill "$daemon" 2>/dev/null || true' EXIT
for _ in $(seq 100); do
  "$bin/tarvik-qmi" --modem "unix:$socket" sim status >/dev/null 2>&1 && break
  sleep 0.05
done
modem=(--modem "unix:$socket")
step "${modem[@]}" nv write 0 550 01020304
step "${modem[@]}" nv read 0 550
step "${modem[@]}" sim fault 0xFFE4 2 transport 2
fails "${modem[@]}" nv read 0 550
step "${modem[@]}" nv read 0 550
printf '\n$ tarvik-qmi %s watch --for 2 3 &   # while another run restarts the service\n' \
  "${modem[*]}"
"$bin/tarvik-qmi" "${modem[@]}" watch --for 2 3 &
watcher=$!
sleep 0.5
step "${modem[@]}" sim event 3 0a0b
step "${modem[@]}" sim restart 0xFFE4 300
sleep 0.8
step "${modem[@]}" sim event 3 0c0d
wait "$watcher"
step "${modem[@]}" --json sim status

echo
echo "== restart level, capabilities, and a restart order the channel survives"
step "${modem[@]}" ssr-level get
step "${modem[@]}" ssr-level set 1
step "${modem[@]}" --json capability ids
step "${modem[@]}" capability string 40
step "${modem[@]}" sim set restart-down-ms 200
printf '\n$ tarvik-qmi %s watch --for 2 3 &   # while another run orders a modem restart\n' \
  "${modem[*]}"
"$bin/tarvik-qmi" "${modem[@]}" watch --for 2 3 &
watcher=$!
sleep 0.5
step "${modem[@]}" ssr restart 0x4
sleep 0.6
step "${modem[@]}" sim event 3 0e0f
wait "$watcher"
step "${modem[@]}" capability card-mode
step "${modem[@]}" ssr counts
step "${modem[@]}" sim status

step "${modem[@]}" uim status
step "${modem[@]}" uim eid 2
step "${modem[@]}" uim power 1 down
step "${modem[@]}" uim power 1 up ignore-hotswap
step "${modem[@]}" uim open 2
step "${modem[@]}" uim apdu 2 1 80E2910006BF3E035C015A
step "${modem[@]}" uim close 2 1
step "${modem[@]}" uim purge 0
step "${modem[@]}" sim card purge failed 50
fails "${modem[@]}" uim purge 1

# Five-tuple blacklist filters: a run's filters go with its clients; the modem keeps the filter
# mode per data path between runs. A trace of the data filter service shows what the first enter
# sent and what the modem answered.
printf '\n$ tarvik-qmi %s sim trace 0x30 --for 1 &   # what the next run exchanges\n' \
  "${modem[*]}"
"$bin/tarvik-qmi" "${modem[@]}" sim trace 0x30 --for 1 > "$demo/trace.txt" &
tracer=$!
for _ in $(seq 100); do grep -q tracing "$demo/trace.txt" && break; sleep 0.05; done
step "${modem[@]}" dfs enter rmnet_data0 IPV4 TCP 10.0.0.1 10.0.0.2 1000 443 ipv6 udp 2001:db8::1 2001:db8::2 53 5353
wait "$tracer"
awk '/^[0-9]/ { show = /add_filters/ } show' "$demo/trace.txt"  # the add-filters entries
fails "${modem[@]}" dfs enter rmnet_data0 IPV4 TCP 10.0.0.1 10.0.0.2 80x 443
step "${modem[@]}" dfs mode rmnet_data0 4
step "${modem[@]}" sim status
step "${modem[@]}" --json dfs exit rmnet_data0
kill "$daemon"
wait "$daemon"
trap - EXIT
echo
echo "tarvik-modemd stopped"

echo
echo "== two radio processes (instance 0 and 1) on one modem: NAS, SAR, sensor"
socket2=$demo/modemd2.sock
rm -f "$socket2"
"$bin/tarvik-modemd" --socket "$socket2" &
daemon=$!
trap 'kill "$daemon" 2>/dev/null || true' EXIT
for _ in $(seq 100); do
  "$bin/tarvik-qmi" --modem "unix:$socket2" sim status >/dev/null 2>&1 && break
  sleep 0.05
done
modem=(--modem "unix:$socket2")
step "${modem[@]}" --instance 0 nas nr-mode 1
step "${modem[@]}" --instance 1 nas nr-mode 2
step "${modem[@]}" --instance 1 nas endc 0
step "${modem[@]}" --instance 0 nas show
step "${modem[@]}" --instance 1 --json nas show
fails "${modem[@]}" --instance 2 nas endc 1
step "${modem[@]}" sar set 21
step "${modem[@]}" sar set 20
step "${modem[@]}" sar get
step "${modem[@]}" sensor send 0a0b0c --flag
step "${modem[@]}" sim status
kill "$daemon"
wait "$daemon"
trap - EXIT

echo "== QMUX: the simulated modem as a QMI device, driven by the tool and by qmicli"
socket3=$demo/modemd3.sock
qmi=$demo/qmi0
rm -f "$socket3" "$qmi"
"$bin/tarvik-modemd" --socket "$socket3" --qmux "$qmi" &
daemon=$!
trap 'kill "$daemon" 2>/dev/null || true' EXIT
for _ in $(seq 100); do
  [ -L "$qmi" ] && "$bin/tarvik-qmi" --modem "unix:$socket3" sim status >/dev/null 2>&1 && break
  sleep 0.05
done
step --modem "qmux:$qmi" sar set 7
step --modem "qmux:$qmi" --json sar get
step --modem "qmux:$qmi" --instance 0 nas show
if command -v qmicli >/dev/null; then
  qmicli -d "$qmi" --device-open-qmi --sar-rf-get-state 2>/dev/null
  qmicli -d "$qmi" --device-open-qmi --uim-sim-power-off=1 2>/dev/null
fi
step --modem "unix:$socket3" sim status
kill "$daemon"
wait "$daemon"
trap - EXIT
