#!/usr/bin/env bash
# The desktop entry, the AppStream metainfo and the manual page pass their
# validators. Exits 77 (skipped) when a validator is not installed.
#   packaging_files.sh SOURCE_DIR
set -euo pipefail
dir="$1/packaging"
for tool in desktop-file-validate appstreamcli groff; do
  command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed (scripts/deps installs it)"; exit 77; }
done
status=0
desktop-file-validate "$dir/vendscope.desktop" || status=1
appstreamcli validate --no-net "$dir"/*.metainfo.xml || status=1
# groff exits 0 on warnings; anything it says is a fault.
warnings="$(groff -man -ww -z "$dir/vendscope-decode.1" 2>&1)"
[ -z "$warnings" ] || { echo "$warnings"; status=1; }
[ "$status" -eq 0 ] && echo "packaging files valid"
exit "$status"
