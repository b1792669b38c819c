#!/bin/sh
# The daemon and a management agent on a root of their own until Ctrl-C, events as they come. Usage: run.sh FOLDER.
set -eu
bin=$1
. "$(dirname "$0")/stage.sh"
start_agent --http 127.0.0.1:0
page=$(sed -n 's/.*Serving //p' "$root/mgmtd.log")
follow_events
start_daemon
# A root sees its own host too: links that are called demo... count as its NICs.
if [ "$(id -u)" = 0 ]; then
  "$bin/rynlinuxd" --nics 'demo*' 2>>"$root/log" &
  pids="$! $pids"
fi
printf 'rynd and rynmgmtd run. In another terminal:\n\n  export CORVANE_ROOT=%s PATH=%s:$PATH\n' "$root" "$(cd "$bin" && pwd)"
printf '  rynctl submit ryn.storage.apd.start naa.1\n  rynctl problems\n  rynctl trace\n\n'
printf 'What is wrong, live, in a browser: %s\n\n' "$page"
printf 'Their logs are %s/log and %s/mgmtd.log. Ctrl-C ends them.\n\n' "$root" "$root"
tail -f -n +1 "$root/events" &
pids="$! $pids"
wait "$daemon"
