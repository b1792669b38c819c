#!/bin/sh
# The daemon and a management agent on a root of their own until Ctrl-C, events as they come. Usage: run.sh FOLDER.
set -eu
bin=$1
. "$(dirname "$0")/stage.sh"
start_agent
follow_events
start_daemon
# A root sees its own host too: links that are called demo... count as its NICs.
if [ "$(id -u)" = 0 ]; then
  "$bin/rynlinuxd" --nics 'demo*' 2>>"$root/log" &
  pids="$! $pids"
fi
printf 'rynd and rynmgmtd run. In another terminal:\n\n  export CORVANE_ROOT=%s PATH=%s:$PATH\n' "$root" "$(cd "$bin" && pwd)"
printf '  rynctl submit ryn.storage.apd.start naa.1\n  rynctl problems\n  rynctl trace\n\n'
printf 'Their logs are %s/log and %s/mgmtd.log. Ctrl-C ends them.\n\n' "$root" "$root"
tail -f -n +1 "$root/events" &
pids="$! $pids"
wait "$daemon"
