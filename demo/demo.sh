#!/bin/sh
# A short story: what the kernel reports, what the daemon logs, and what reaches the management agent.
# Usage: demo.sh FOLDER-OF-THE-PROGRAMS. Ends with status 1 when an event does not arrive.
set -eu
bin=$1
. "$(dirname "$0")/stage.sh"

shown_log=0
shown_events=0
# Show what the log and the agent have gained, once the agent has shown $1 (nothing to wait for when empty).
show_new() {
  if [ -n "$1" ]; then wait_for "$root/events" "$1"; else sleep 0.2; fi
  sleep 0.1
  tail -n "+$((shown_log + 1))" "$root/log" | sed "s/^/    ${dim}log   /; s/\$/${plain}/"
  shown_log=$(wc -l <"$root/log")
  tail -n "+$((shown_events + 1))" "$root/events" | sed "s/^/  event /"
  shown_events=$(wc -l <"$root/events")
}

# The kernel reports an observation: a sentence for the reader, the event to wait for, then what is submitted.
kernel_reports() {
  sentence=$1; event=$2; shift 2
  printf '\n%s%s%s\n  $ rynctl submit %s\n' "$bold" "$sentence" "$plain" "$*"
  "$bin/rynctl" submit "$@"
  show_new "$event"
}

printf '%sA management agent and the daemon, on a root of their own: %s%s\n' "$bold" "$root" "$plain"
start_agent
start_daemon
show_new ""

kernel_reports "All paths to a device are gone." "amb.problem.storage.apd.start" \
  ryn.storage.apd.start naa.60016045
kernel_reports "They stay gone: the kernel stops waiting for them." "amb.problem.storage.apd.timeout" \
  ryn.storage.apd.timeout naa.60016045 140
kernel_reports "An observation that no correlator knows is logged and posts nothing." "" \
  ryn.storage.apd.unheard-of naa.60016045
kernel_reports "The paths are back: the problem is cleared." "amb.clear.storage.apd.exit" \
  ryn.storage.apd.exit naa.60016045

printf '\n%sThe daemon is told to stop.%s\n  $ kill -TERM %s\n' "$bold" "$plain" "$daemon"
kill -TERM "$daemon"
status=0
wait "$daemon" || status=$?
show_new ""
printf '\nThe daemon ended with status %s; %s events arrived, each once and in order.\n' "$status" \
  "$(grep -c 'amb\.' "$root/events")"
[ "$status" = 0 ] && [ "$(grep -c 'amb\.' "$root/events")" = 3 ]
