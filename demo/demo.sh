#!/bin/sh
# Short stories: what the kernel reports, what the daemon logs, and what reaches the management agent.
# Usage: demo.sh FOLDER-OF-THE-PROGRAMS [STORY...], a story being a file of demo/stories without its ending; all by
# default. Ends with status 1 when an event does not arrive, or one that no story tells of.
set -eu
bin=$1
shift
here=$(dirname "$0")
. "$here/stage.sh"

shown_log=0
shown_events=0
expected=0
# Show what the log and the agent have gained, once the agent has got every event that is expected so far.
show_new() {
  wait_for_events "$expected"
  sleep 0.2
  tail -n "+$((shown_log + 1))" "$root/log" | sed "s/^/    ${dim}log   /; s/\$/${plain}/"
  shown_log=$(wc -l <"$root/log")
  tail -n "+$((shown_events + 1))" "$root/events" | sed "s/^/  event /"
  shown_events=$(wc -l <"$root/events")
}

say() {
  printf '\n%s%s%s\n' "$bold" "$*" "$plain"
}

# Submit one observation, showing the command.
submit() {
  printf '  $ rynctl submit'
  for word in "$@"; do
    case $word in
      *[!A-Za-z0-9_.,:/=+-]* | "") printf " '%s'" "$word" ;;
      *) printf ' %s' "$word" ;;
    esac
  done
  printf '\n'
  "$bin/rynctl" submit "$@"
}

# The kernel reports an observation: a sentence for the reader, how many events follow, then what is submitted.
kernel_reports() {
  sentence=$1; expected=$((expected + $2)); shift 2
  say "$sentence"
  submit "$@"
  show_new
}

# Set a value of the host's state, showing the command: a path of the host tree, then what it holds.
set_host() {
  file=$root/var/lib/corvane/host/$1
  mkdir -p "$(dirname "$file")"
  printf '  $ echo %s > host/%s\n' "$2" "$1"
  echo "$2" >"$file"
}

# Show a value of the host's state.
show_host() {
  printf '  $ cat host/%s\n' "$1"
  sed 's/^/    /' "$root/var/lib/corvane/host/$1"
}

# Stop the daemon and start it again.
restart_daemon() {
  printf '  $ kill -TERM %s; rynd -e\n' "$daemon"
  kill -TERM "$daemon"
  wait "$daemon"
  start_daemon
  show_new
}

# Show what the daemon has done to the kernel so far.
show_actions() {
  printf '  $ cat actions.log\n'
  cut -f2- "$root/var/lib/corvane/actions.log" | sed 's/^/    /'
}

say "A management agent and the daemon, on a root of their own: $root"
start_agent
follow_events
start_daemon
show_new

[ $# -gt 0 ] || set -- $(cd "$here/stories" && ls | sed 's/\.sh$//')
for story in "$@"; do . "$here/stories/$story.sh"; done

say "The daemon is told to stop."
printf '  $ kill -TERM %s\n' "$daemon"
kill -TERM "$daemon"
status=0
wait "$daemon" || status=$?
show_new
arrived=$(wc -l <"$root/events")

# Ask the management agent, showing the command; problems that are open are no failure.
ask() {
  printf '  $ rynctl %s\n' "$*"
  "$bin/rynctl" "$@" --color "$color" >"$root/said" 2>/dev/null || [ $? = 1 ]
  sed 's/^/  /' "$root/said"
}
say "The management agent has kept them all. What is wrong now, the worst first:"
ask problems
say "What has happened, of which this is only what storage said:"
ask history --since -10min --name storage

printf '\nThe daemon ended with status %s; %s events arrived, each once and in order.\n' "$status" "$arrived"
[ "$status" = 0 ] && [ "$arrived" = "$expected" ]
