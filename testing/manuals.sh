#!/bin/bash
# Every manual page is without a finding and of this version, as are the lists of changes.
# Usage: manuals.sh SOURCE VERSION PAGES-THAT-THE-BUILD-MADE...
set -eu
cd "$1"
version=$2
shift 2
failed=0
tell() { echo "FAILED: $*" >&2; failed=1; }
for page in docs/*.[1-8] "$@"; do
  if command -v mandoc >/dev/null; then
    findings=$(mandoc -T lint "$page" || true)
    [ -z "$findings" ] || tell "$findings"
  fi
  head -1 "$page" | grep -q "\"rynd $version\"" || tell "$page: not of version $version: $(head -1 "$page")"
done
[ "$(grep -m 1 '^## ' CHANGELOG.md)" = "## $version" ] || tell "CHANGELOG.md: not of version $version"
head -1 debian/changelog | grep -q "^rynd ($version)" || tell "debian/changelog: not of version $version"
exit $failed
