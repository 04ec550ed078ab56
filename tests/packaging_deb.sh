#!/usr/bin/env bash
# Builds the Debian package with scripts/package, unpacks it and checks what
# it holds: the programs and the desktop files and nothing else, no build
# paths, dependencies found by dpkg-shlibdeps, and programs that run from it.
# Exits 77 (skipped) when a Debian packaging tool is not installed.
#   packaging_deb.sh SOURCE_DIR BUILD_DIR VERSION
set -euo pipefail
src="$1"
build="$2"
version="$3"
for tool in dpkg-deb dpkg-shlibdeps cpack file readelf; do
  command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed (scripts/deps installs it)"; exit 77; }
done
fail() { echo "FAIL: $*"; exit 1; }
out="$(mktemp -d)"
trap 'rm -rf "$out"' EXIT

VENDSCOPE_PACKAGE_BUILD="$build" "$src/scripts/package" >"$out/log" 2>&1 || { cat "$out/log"; fail "scripts/package failed"; }
deb="$(tail -n1 "$out/log")"
[ "$deb" = "$build/vendscope_${version}_amd64.deb" ] || { tail -n5 "$out/log"; fail "last line is not the package: $deb"; }

dpkg-deb -x "$deb" "$out/root"
(cd "$out/root" && find . -type f | sed 's|^\./||' | sort) >"$out/files"
cat >"$out/expected" <<LIST
usr/bin/vendscope
usr/bin/vendscope-boxsim
usr/bin/vendscope-decode
usr/share/applications/vendscope.desktop
usr/share/icons/hicolor/128x128/apps/vendscope.png
usr/share/icons/hicolor/16x16/apps/vendscope.png
usr/share/icons/hicolor/24x24/apps/vendscope.png
usr/share/icons/hicolor/256x256/apps/vendscope.png
usr/share/icons/hicolor/32x32/apps/vendscope.png
usr/share/icons/hicolor/48x48/apps/vendscope.png
usr/share/icons/hicolor/64x64/apps/vendscope.png
usr/share/man/man1/vendscope-decode.1.gz
usr/share/metainfo/invalid.vendscope.Vendscope.metainfo.xml
LIST
diff -u "$out/expected" "$out/files" || fail "the package holds other files than these"

depends="$(dpkg-deb -f "$deb" Depends)"
for lib in libc6 libqt6widgets6 libqt6serialport6 libpcap0.8; do
  [[ "$depends" == *"$lib "* || "$depends" == *"$lib,"* || "$depends" == *"$lib" ]] || fail "Depends lacks $lib: $depends"
done

for exe in "$out"/root/usr/bin/*; do
  ! readelf -d "$exe" | grep -E 'RPATH|RUNPATH' || fail "$(basename "$exe") has a library search path"
  file "$exe" | grep -q ', stripped' || fail "$(basename "$exe") is not stripped"
done
found="$(grep -rlaF -e "$src" -e "$build" "$out/root" || true)"
[ -z "$found" ] || fail "build paths in: $found"

# Neither needs a display to tell its version.
got="$(env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM "$out/root/usr/bin/vendscope" --version)" || fail "vendscope --version failed"
[ "$got" = "vendscope $version" ] || fail "vendscope --version said: $got"
got="$("$out/root/usr/bin/vendscope-decode" --version)" || fail "vendscope-decode --version failed"
[ "$got" = "vendscope-decode $version" ] || fail "vendscope-decode --version said: $got"
echo "package $deb holds what it should"
