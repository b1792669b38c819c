#!/bin/bash
# What the build makes of the catalogue, tried with the programs that read it; one that is missing is passed over.
# Usage: catalogFiles.sh FOLDER-OF-THE-FILES FOLDER-OF-THE-PROGRAMS
set -eu
files=$1
PATH=$2:$PATH
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
fail() { echo "FAILED: $*" >&2; exit 1; }

if command -v mandoc >/dev/null; then
  findings=$(mandoc -T lint "$files/rynd-events.7" || true)
  [ -z "$findings" ] || fail "$findings"
fi
if command -v journalctl >/dev/null; then
  mkdir -p "$scratch/usr/lib/systemd/catalog" "$scratch/var/lib/systemd/catalog"
  cp "$files/rynd.catalog" "$scratch/usr/lib/systemd/catalog/"
  said=$(journalctl --root="$scratch" --update-catalog 2>&1) || fail "journalctl: $said"
  [ -z "$said" ] || fail "journalctl: $said"
  known=$(journalctl --root="$scratch" --list-catalog | wc -l)
  [ "$known" = "$(grep -c '^-- ' "$files/rynd.catalog")" ] || fail "the journal knows $known messages"
fi

. "$files/rynctl.bash"
completes() { # what is typed, then what it completes to
  read -ra COMP_WORDS <<<"$1"
  [[ $1 != *" " ]] || COMP_WORDS+=("")
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  _rynctl
  [ "${COMPREPLY[*]}" = "$2" ] || fail "'$1' completes to '${COMPREPLY[*]}'"
}
completes "rynctl exp" explain
completes "rynctl help cat" catalog
completes "rynctl explain amb.problem.storage.apd.t" amb.problem.storage.apd.timeout
completes "rynctl submit --force ryn.storage.apd.e" ryn.storage.apd.exit
completes "rynctl submit --forc" --force
completes "rynctl submit nothing" ""

# The page holds every event, and asks nobody for anything.
[ "$(grep -c '^<article id=' "$files/events.html")" = "$(rynctl catalog | wc -l)" ] || fail "events are missing"
! grep -nE '(src|href)="[^#]|url\(|@import' "$files/events.html" || fail "the page needs another file"
