#!/usr/bin/env bash
# Builds the Debian package from a build folder, checks it with lintian and the AppStream
# metadata with appstreamcli, installs it with apt into a fresh Debian root (debootstrap,
# made once and kept in the build folder), and starts the installed programs there.
#   usage: deb_install.sh BUILD_DIR SOURCE_DIR   (as root: chroot and mounts)
set -euo pipefail
build=$(cd "${1:?usage: deb_install.sh BUILD_DIR SOURCE_DIR}" && pwd)
source=$(cd "${2:?usage: deb_install.sh BUILD_DIR SOURCE_DIR}" && pwd)
suite=${VELM_PACKAGE_SUITE:-bookworm}
# The mirror this machine installs from.
mirror=${VELM_PACKAGE_MIRROR:-$(sed -n 's/^URIs: *//p' /etc/apt/sources.list.d/debian.sources 2>/dev/null | head -1 || true)}
mirror=${mirror:-http://deb.debian.org/debian}

fail() { echo "deb package: $*" >&2; exit 1; }
[ "$(id -u)" -eq 0 ] || fail "needs root (chroot)"

work=$(mktemp -d)
root="$work/root"
mounted=()
cleanup() {
    # Whatever the installed server still runs in there, then the mounts, then the copy.
    if [ -d "$root/proc" ]; then
        for pid in $(ls /proc | grep -E '^[0-9]+$'); do
            [ "$(readlink "/proc/$pid/root" 2>/dev/null)" = "$root" ] && kill -9 "$pid" 2>/dev/null || true
        done
    fi
    for ((i = ${#mounted[@]} - 1; i >= 0; i--)); do umount -l "${mounted[i]}" 2>/dev/null || true; done
    rm -rf "$work"
}
trap cleanup EXIT

cpack --config "$build/CPackConfig.cmake" -B "$work/package" >/dev/null
deb=$(ls "$work"/package/velm-server_*_*.deb)
report=$(lintian --fail-on error "$deb" 2>&1) || { echo "$report" >&2; fail "lintian reports errors"; }
appstreamcli validate --no-net "$source/data/app.velm.Server.metainfo.xml" >/dev/null \
    || fail "the AppStream metadata does not validate"
contents=$(dpkg-deb -c "$deb")
grep -q ' ./usr/share/metainfo/app.velm.Server.metainfo.xml$' <<<"$contents" \
    || fail "the package holds no AppStream metadata"

base="$build/debian-$suite-root"
if [ ! -f "$base/.complete" ]; then
    rm -rf "$base"
    debootstrap --variant=minbase "$suite" "$base" "$mirror" >"$build/debootstrap.log" 2>&1 \
        || fail "debootstrap failed (see $build/debootstrap.log)"
    touch "$base/.complete"
fi
cp -a "$base" "$root"
for place in proc dev; do
    mount --bind "/$place" "$root/$place"
    mounted+=("$root/$place")
done
cp /etc/resolv.conf "$root/etc/resolv.conf"
echo "deb $mirror $suite main" >"$root/etc/apt/sources.list"
cp "$deb" "$root/tmp/"
in_root() { chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root "$@"; }
in_root apt-get update -q >"$work/apt.log" 2>&1 || { cat "$work/apt.log" >&2; fail "apt-get update failed"; }
in_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends \
    "/tmp/$(basename "$deb")" >"$work/apt.log" 2>&1 || { cat "$work/apt.log" >&2; fail "apt cannot install the package"; }

# The programs are where the desktop and the shell look for them, and start.
[ -f "$root/usr/share/applications/velm-server.desktop" ] || fail "no desktop entry"
[ -f "$root/usr/share/man/man1/velmctl.1.gz" ] || fail "no manual page"
version=$(in_root velmctl --version) || fail "velmctl does not start"
[ "$version" = "velmctl $(dpkg-deb -f "$deb" Version)" ] || fail "velmctl says: $version"
status=0
in_root velmctl apps >/dev/null 2>&1 || status=$?
[ "$status" -eq 3 ] || fail "velmctl without pairing exits with $status, not 3"

home=/tmp/home
mkdir -p "$root$home" "$root/tmp/runtime"
chmod 700 "$root/tmp/runtime"
in_root env HOME="$home" XDG_RUNTIME_DIR=/tmp/runtime QT_QPA_PLATFORM=offscreen \
    velm-server >"$work/server.log" 2>&1 &
for _ in $(seq 100); do
    grep -q "listens on port" "$work/server.log" && break
    sleep 0.2
done
grep -q "listens on port" "$work/server.log" || { cat "$work/server.log" >&2; fail "velm-server does not start"; }
pending=$(in_root env HOME="$home" XDG_RUNTIME_DIR=/tmp/runtime velm-server --pending) \
    || fail "velm-server --pending failed"
[ "$pending" = "No device is waiting for approval." ] || fail "velm-server --pending says: $pending"
echo "deb package: ok ($(basename "$deb"), installed on $suite)"
