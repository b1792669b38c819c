# Sourced by the demo's scripts: a private root, the programs on it, and their clean end.
# Wants $bin, the folder of the programs. Everything that it starts is stopped when the script ends.

root=$(mktemp -d /tmp/rynd-demo-XXXXXX)
export CORVANE_ROOT=$root
mkdir -p "$root/var/run/corvane"
pids=""
# The daemon's flight recording is kept in the folder $DEMO_FLIGHT, where that is set.
if [ -n "${DEMO_FLIGHT:-}" ]; then
  mkdir -p "$root/var/lib/corvane/host/sysinfo/config/intOpts/Flight"
  echo 16 >"$root/var/lib/corvane/host/sysinfo/config/intOpts/Flight/Megabytes"
fi

cleanup() {
  status=$?
  trap - EXIT INT TERM
  for pid in $pids; do kill -TERM "$pid" 2>/dev/null || true; done
  for pid in $pids; do wait "$pid" 2>/dev/null || true; done
  [ -z "${DEMO_FLIGHT:-}" ] || cp -r "$root/var/lib/corvane/flight" "$DEMO_FLIGHT"
  rm -rf "$root"
  exit $status
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

if [ -t 1 ] && [ -z "${NO_COLOR:-}" ]; then
  bold=$(printf '\033[1m'); dim=$(printf '\033[2m'); plain=$(printf '\033[0m'); color=always
else
  bold=""; dim=""; plain=""; color=never
fi

# Wait until the file $1 holds the text $2.
wait_for() {
  for _ in $(seq 1 500); do
    grep -qF "$2" "$1" 2>/dev/null && return 0
    sleep 0.02
  done
  echo "demo: '$2' did not appear in $1:" >&2
  cat "$1" >&2
  exit 1
}

# Wait until $1 events have arrived.
wait_for_events() {
  for _ in $(seq 1 750); do
    [ "$(wc -l <"$root/events")" -ge "$1" ] && return 0
    sleep 0.02
  done
  echo "demo: fewer than $1 events arrived:" >&2
  cat "$root/events" >&2
  exit 1
}

# The management agent, with its options.
start_agent() {
  "$bin/rynmgmtd" "$@" 2>>"$root/mgmtd.log" &
  agent=$!
  pids="$agent $pids"
  wait_for "$root/mgmtd.log" "Receiving events"
}

# Follow what it keeps, a line each, into $root/events.
follow_events() {
  : >"$root/events"
  "$bin/rynctl" history --follow --color "$color" >"$root/events" 2>/dev/null &
  pids="$! $pids"
}

start_daemon() {
  : >>"$root/log"
  before=$(grep -c "rynd setup completed" "$root/log" || true)
  "$bin/rynd" -e 2>>"$root/log" &
  daemon=$!
  pids="$daemon $pids"
  for _ in $(seq 1 500); do
    [ "$(grep -c "rynd setup completed" "$root/log")" -gt "$before" ] && return 0
    sleep 0.02
  done
  echo "demo: the daemon does not start:" >&2
  cat "$root/log" >&2
  exit 1
}
