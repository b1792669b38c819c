#!/bin/sh
# All stories of the demo, recorded by the real daemon with its threads, and replayed: the same events.
# Usage: stories.sh FOLDER-OF-THE-PROGRAMS FOLDER-OF-THE-DEMO
set -eu
bin=$1
demo=$2
kept=$(mktemp -d)
trap 'rm -rf "$kept"' EXIT
DEMO_FLIGHT=$kept sh "$demo/demo.sh" "$bin" >"$kept/story" 2>&1 || { cat "$kept/story"; exit 1; }
status=0
"$bin/rynctl" replay "$kept/flight" >"$kept/replay" || status=$?
"$bin/rynctl" replay "$kept/flight" >"$kept/again" || true
cmp "$kept/replay" "$kept/again"
tail -n 5 "$kept/replay"
# A copy without names tells the same story.
"$bin/rynctl" replay "$kept/flight" --redact "$kept/away.rec"
"$bin/rynctl" replay "$kept/away.rec" >"$kept/away" || { status=1; cat "$kept/away"; }
# Each event that the management agent kept is one of the replay's.
arrived=$(sed -n 's/.*; \([0-9]*\) events arrived, .*/\1/p' "$kept/story")
replayed=$(sed -n 's/^\([0-9]*\) events* from .*/\1/p' "$kept/replay" | awk '{ sum += $1 } END { print sum }')
[ "$arrived" = "$replayed" ] || { echo "$arrived events arrived, $replayed were replayed" >&2; status=1; }
[ "$status" = 0 ] || cat "$kept/replay"
exit "$status"
