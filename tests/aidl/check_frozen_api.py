#!/usr/bin/env python3
"""Checks a frozen version of the interface package.

Fails when the version folder's .hash does not match its files, or when its definitions differ
from the ones under the interface's source tree other than by the header that every frozen file
starts with.

Usage: check_frozen_api.py INTERFACE_DIR VERSION_DIR
"""

import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "..", "tools", "aidl"))
import aidl_api_hash  # noqa: E402

FROZEN_HEADER = (
    "// Frozen interface definition, kept exactly as it was released. Do not edit it: changes go\n"
    "// into the definitions under interface/vendor and ship as a new version, and the .hash file\n"
    "// of this version's folder covers every byte of this file.\n"
    "\n"
)


def problems(interface_dir, version_dir):
    found = []
    with open(os.path.join(version_dir, ".hash"), encoding="ascii") as f:
        stored = f.read().strip()
    computed = aidl_api_hash.compute_hash(version_dir, aidl_api_hash.version_of(version_dir))
    if stored != computed:
        found.append(f"{version_dir}/.hash holds {stored!r}, the frozen files hash to {computed}")

    frozen = set(aidl_api_hash.aidl_files(version_dir))
    current = {
        p for p in aidl_api_hash.aidl_files(interface_dir) if not p.startswith("./aidl_api/")
    }
    for path in sorted(frozen - current):
        found.append(f"{path} is frozen but not defined under {interface_dir}")
    for path in sorted(current - frozen):
        found.append(f"{path} is defined but not frozen in {version_dir}")
    for path in sorted(frozen & current):
        with open(os.path.join(version_dir, path), encoding="utf-8") as f:
            text = f.read()
        with open(os.path.join(interface_dir, path), encoding="utf-8") as f:
            source = f.read()
        if not text.startswith(FROZEN_HEADER):
            found.append(f"{path}: the frozen copy does not start with the frozen-file header")
        elif text[len(FROZEN_HEADER):] != source:
            found.append(f"{path}: the frozen copy differs from the definition")
    return found


def main(argv):
    if len(argv) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    found = problems(*argv)
    for problem in found:
        print(f"FAIL {problem}")
    print(f"frozen API: {len(found)} problem(s) in {argv[1]}")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
