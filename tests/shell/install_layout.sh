#!/usr/bin/env bash
# Installs the build into a scratch prefix and checks that everything lands where the desktop
# and the program look for it.
#   usage: install_layout.sh BUILD_DIR
set -euo pipefail
build=${1:?usage: install_layout.sh BUILD_DIR}
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
prefix=/usr/local
DESTDIR="$stage" cmake --install "$build" --prefix "$prefix" >/dev/null
root="$stage$prefix"

fail() { echo "install layout: $*" >&2; exit 1; }
[ -L "$root/bin/velm-server" ] || fail "bin/velm-server is not a link"
program=$(readlink -f "$root/bin/velm-server")
[ "$program" = "$root/lib/velm-server/velm-server" ] || fail "the link points to $program"
[ -x "$program" ] || fail "the program is not executable"
for language in it en; do
    [ -s "$root/lib/velm-server/locale/$language.qm" ] || fail "no $language translation"
done
desktop="$root/share/applications/velm-server.desktop"
[ -f "$desktop" ] || fail "no desktop entry"
desktop-file-validate "$desktop" || fail "the desktop entry does not validate"
grep -qx 'Icon=velm-server' "$desktop" || fail "the desktop entry names another icon"
# KWin finds the program's entry by the full path of what it starts.
grep -qx "Exec=$prefix/bin/velm-server" "$desktop" || fail "the desktop entry does not start $prefix/bin/velm-server"
grep -qx 'X-KDE-Wayland-Interfaces=org_kde_plasma_window_management,org_kde_kwin_fake_input' \
    "$desktop" || fail "the desktop entry does not ask KWin for its window and input protocols"
for size in 16 22 24 32 48 64 128 256; do
    png="$root/share/icons/hicolor/${size}x${size}/apps/velm-server.png"
    [ -s "$png" ] || fail "no ${size}px icon"
    # The PNG header carries the width and height at bytes 16-23.
    dims=$(od -An -tu1 -j16 -N8 "$png" | tr -s ' ')
    expect=" 0 0 $((size / 256)) $((size % 256)) 0 0 $((size / 256)) $((size % 256))"
    [ "$dims" = "$expect" ] || fail "the ${size}px icon measures$dims"
done
[ -s "$root/share/icons/hicolor/scalable/apps/velm-server.svg" ] || fail "no scalable icon"
[ -x "$root/bin/velmctl" ] || fail "no velmctl"
for page in velmctl velm-server; do
    man="$root/share/man/man1/$page.1.gz"
    [ -s "$man" ] || fail "no manual page $page.1.gz"
    # The page renders without complaint.
    warnings=$(zcat "$man" | groff -man -Tutf8 -ww -z 2>&1) || fail "$page.1 does not render"
    [ -z "$warnings" ] || fail "$page.1: $warnings"
done
[ -s "$root/share/bash-completion/completions/velmctl" ] || fail "no bash completion"
bash -n "$root/share/bash-completion/completions/velmctl" || fail "the bash completion does not parse"
[ -s "$root/share/zsh/vendor-completions/_velmctl" ] || fail "no zsh completion"
echo "install layout: ok"
