#!/usr/bin/env bash
# Installs the build into a temporary prefix and checks what a desktop needs from it: the
# program behind bin/tabulon with import_db beside it, the demo database generator, the
# desktop entry, the icons and the AppStream metainfo (validated where the tools exist), and
# that --version and --help answer without a display.
#   check-install.sh BUILD_DIR VERSION
set -euo pipefail
build=$1
version=$2
prefix=$(mktemp -d "${TMPDIR:-/tmp}/tabulon-install.XXXXXX")
trap 'rm -rf "$prefix"' EXIT
fail() { printf 'check-install: %s\n' "$*" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" >/dev/null || fail "cmake --install failed"

for f in lib/tabulon/tabulon lib/tabulon/import_db lib/tabulon/tabulon-accessreader bin/tabulon-demodb; do
  [ -x "$prefix/$f" ] || fail "$f is missing or not executable"
done
[ -L "$prefix/bin/tabulon" ] || fail "bin/tabulon is not a link"
[ "$(readlink -f "$prefix/bin/tabulon")" = "$(readlink -f "$prefix/lib/tabulon/tabulon")" ] \
  || fail "bin/tabulon does not lead to lib/tabulon/tabulon"
for f in share/applications/tabulon.desktop share/metainfo/com.corvane.Tabulon.metainfo.xml \
         share/icons/hicolor/scalable/apps/tabulon.svg; do
  [ -s "$prefix/$f" ] || fail "$f is missing"
done
for s in 16 32 48 64 128 256; do
  [ -s "$prefix/share/icons/hicolor/${s}x${s}/apps/tabulon.png" ] || fail "the ${s}px icon is missing"
done

if command -v desktop-file-validate >/dev/null; then
  desktop-file-validate "$prefix/share/applications/tabulon.desktop" || fail "the desktop entry does not validate"
fi
if command -v appstreamcli >/dev/null; then
  appstreamcli validate --no-net "$prefix/share/metainfo/com.corvane.Tabulon.metainfo.xml" >/dev/null \
    || fail "the metainfo does not validate"
fi

# No display for these two: they must answer before any window system is opened.
out=$(env -u DISPLAY -u WAYLAND_DISPLAY QT_QPA_PLATFORM= "$prefix/bin/tabulon" --version) \
  || fail "tabulon --version failed"
[ "$out" = "tabulon $version" ] || fail "tabulon --version printed '$out'"
out=$(env -u DISPLAY -u WAYLAND_DISPLAY QT_QPA_PLATFORM= "$prefix/bin/tabulon" --help) || fail "tabulon --help failed"
grep -q -- '--version' <<<"$out" || fail "tabulon --help does not list --version"
echo "check-install: installed and checked under a temporary prefix"
