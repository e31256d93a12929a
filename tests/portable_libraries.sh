#!/usr/bin/env bash
# Fails when one of the given binaries asks the loader for a desktop library: GLib and GIO, xcb,
# PulseAudio, AT-SPI, KWindowSystem or the DNS-SD library. Only the binary's own needs count
# (its NEEDED entries): Qt itself may use GLib's event loop or xcb on this system, and that is
# Qt's business, not the program's.
#   usage: portable_libraries.sh BINARY...
set -euo pipefail
forbidden='^(libglib|libgio|libgobject|libxcb|libpulse|libatspi|libKF5|libdns_sd|libavahi)'
status=0
for binary in "$@"; do
    needed=$(readelf -d "$binary" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
    if bad=$(grep -E "$forbidden" <<<"$needed"); then
        echo "$(basename "$binary") needs: $(tr '\n' ' ' <<<"$bad")"
        status=1
    fi
done
[ $status -eq 0 ] && echo "$# binaries need no desktop library"
exit $status
