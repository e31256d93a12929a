#!/usr/bin/python3
"""Browses for Velm servers the way a phone on the LAN does, and prints what it finds as JSON
lines: {"name", "type", "port", "addresses", "txt"}. Used by the rig tests from the phone's
network namespace.

usage: browse.py INTERFACE_ADDRESS SECONDS [NAME]
Stops as soon as NAME is seen (when given), otherwise after SECONDS.
"""
import json
import sys
import threading
import time

from zeroconf import ServiceBrowser, ServiceListener, Zeroconf

SERVICE_TYPE = "_velm._tcp.local."


def main():
    address, seconds = sys.argv[1], float(sys.argv[2])
    wanted = sys.argv[3] if len(sys.argv) > 3 else None
    found = threading.Event()
    zc = Zeroconf(interfaces=[address])

    class Listener(ServiceListener):
        def add_service(self, zc, type_, name):
            self.report(zc, type_, name)

        def update_service(self, zc, type_, name):
            self.report(zc, type_, name)

        def remove_service(self, zc, type_, name):
            pass

        def report(self, zc, type_, name):
            info = zc.get_service_info(type_, name, timeout=3000)
            if info is None:
                return
            instance = name[: -len(type_) - 1] if name.endswith("." + type_) else name
            txt = {k.decode(): (v.decode() if v is not None else None)
                   for k, v in info.properties.items()}
            print(json.dumps({"name": instance, "type": type_, "port": info.port,
                              "addresses": info.parsed_addresses(), "txt": txt}), flush=True)
            if wanted is None or instance == wanted:
                found.set()

    ServiceBrowser(zc, SERVICE_TYPE, Listener())
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline and not (wanted and found.is_set()):
        time.sleep(0.05)
    zc.close()
    return 0 if (found.is_set() or wanted is None) else 1


if __name__ == "__main__":
    sys.exit(main())
