#!/usr/bin/env bash
# Builds the Debian package and proves it on a fresh Debian 12 root: makes
# build/tabulon_<version>_<arch>.deb with CPack (its library dependencies found by
# dpkg-shlibdeps), unpacks a new minimal bookworm root with debootstrap, installs the package
# there with apt as an operator would, then runs the demo against the installed program (a
# private server, a virtual display, the connection confirmed) and keeps its screenshot.
#
#   package.sh            build, install on a fresh root, screenshot to .package/installed.png
#   package.sh --deb-only build the package and stop
#
# Needs root (debootstrap, chroot, mounts). The pristine root is kept as a tarball in .package/
# and unpacked anew for every run, so each run installs on an untouched system.
set -euo pipefail
exec </dev/null

deb_only=no
for arg in "$@"; do
  case "$arg" in
    --deb-only) deb_only=yes ;;
    *) echo "usage: $0 [--deb-only]" >&2; exit 2 ;;
  esac
done

root=$(cd "$(dirname "$0")/.." && pwd)
build=${TABULON_BUILD_DIR:-$root/build}
work="$root/.package"
say() { printf '==> %s\n' "$*"; }
die() { printf 'package.sh: %s\n' "$*" >&2; exit 1; }

say "checking packages"
bash "$root/scripts/install-deps.sh" || die "installing the packages failed; run this as root"

say "building Release in $build"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DTABULON_WERROR=ON >/dev/null
cmake --build "$build" --target tabulon import_db tabulon-accessreader tabulon-demodb -j"$(nproc)"
say "making the package"
rm -f "$build"/tabulon_*.deb
(cd "$build" && cpack -G DEB >/dev/null) || die "cpack failed"
deb=$(ls "$build"/tabulon_*.deb 2>/dev/null | head -1)
[ -n "$deb" ] || die "cpack made no package"
say "package: $deb"
dpkg-deb --field "$deb" Package Version Architecture Depends
[ "$deb_only" = yes ] && exit 0

[ "$(id -u)" -eq 0 ] || die "installing on a fresh root needs root (debootstrap, chroot)"
command -v debootstrap >/dev/null || { apt-get install -y -qq debootstrap >/dev/null || die "debootstrap could not be installed"; }

mkdir -p "$work"
pristine="$work/bookworm-minbase.tar"
if [ ! -s "$pristine" ]; then
  say "making a minimal Debian 12 root (once; kept as $pristine)"
  rm -rf "$work/pristine"
  debootstrap --variant=minbase bookworm "$work/pristine" http://deb.debian.org/debian >"$work/debootstrap.log" 2>&1 \
    || die "debootstrap failed; see $work/debootstrap.log"
  tar -C "$work/pristine" -cf "$pristine.part" . && mv "$pristine.part" "$pristine"
  rm -rf "$work/pristine"
fi

target="$work/root"
mounts=()
cleanup() {
  local m i
  for ((i = ${#mounts[@]} - 1; i >= 0; i--)); do umount -l "${mounts[i]}" 2>/dev/null || true; done
}
trap cleanup EXIT
trap 'exit 130' INT TERM
bind() { mkdir -p "$target$2"; mount --bind "$1" "$target$2"; mounts+=("$target$2"); }

say "unpacking a fresh root in $target"
rm -rf "$target"
mkdir -p "$target"
tar -C "$target" -xf "$pristine"
cp /etc/resolv.conf "$target/etc/resolv.conf"
mount -t proc proc "$target/proc"; mounts+=("$target/proc")
bind /dev /dev
bind /dev/pts /dev/pts
mkdir -p /tmp/.X11-unix
bind /tmp/.X11-unix /tmp/.X11-unix
# The demo keeps its settings and server under .demo/: the installed program reads the same
# paths inside the root.
mkdir -p "$root/.demo"
bind "$root/.demo" "$root/.demo"

say "installing $(basename "$deb") with apt on the fresh root"
cp "$deb" "$target/tmp/"
chroot "$target" /usr/bin/env DEBIAN_FRONTEND=noninteractive apt-get update -qq >/dev/null \
  || die "apt-get update failed in the fresh root"
chroot "$target" /usr/bin/env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "/tmp/$(basename "$deb")" \
  >"$work/apt-install.log" 2>&1 || die "apt install of the package failed; see $work/apt-install.log"
chroot "$target" /usr/bin/tabulon --version || die "the installed tabulon does not answer --version"
chroot "$target" test -x /usr/lib/tabulon/import_db || die "import_db is not installed beside the program"

say "running the installed program against a private server"
TABULON_DEMO_PROGRAM="chroot $target /usr/bin/tabulon" \
TABULON_DEMO_DEMODB="chroot $target /usr/bin/tabulon-demodb" \
TABULON_DEMO_SCREENSHOT="$work/installed.png" \
TABULON_DEMO_PORT=${TABULON_PACKAGE_PORT:-13320} \
TABULON_DEMO_HEADLESS=1 \
  bash "$root/scripts/demo.sh" || die "the installed program did not run through the demo"
say "the installed program ran; screenshot: $work/installed.png"
