#!/usr/bin/env python3
"""Checks the frozen history of the interface package; the host build runs it before it generates
any code, as the platform's build does.

Fails unless the versions that Android.bp declares are exactly the version folders under
aidl_api/<package>/, each folder's .hash is the one the platform's build computes for it, the
latest version is the one the host build generates, and its definitions equal the ones under the
source tree other than by the header that every frozen file starts with.

Usage: check_frozen_api.py INTERFACE_DIR GENERATED_VERSION
"""

import os
import re
import sys

import aidl_api_hash

FROZEN_HEADER = (
    "// Frozen interface definition, kept exactly as it was released. Do not edit it: changes go\n"
    "// into the definitions under interface/vendor and ship as a new version, and the .hash file\n"
    "// of this version's folder covers every byte of this file.\n"
    "\n"
)


def read(path):
    with open(path, encoding="utf-8") as f:
        return f.read()


def declared(blueprint):
    """(package name, declared versions in order, frozen flag) from the aidl_interface module."""
    name = re.search(r'^    name: "([^"]+)",$', blueprint, re.M)
    history = re.search(r"^    versions_with_info: \[\n(.*?)^    \],$", blueprint, re.M | re.S)
    versions = re.findall(r'^ {12}version: "([^"]*)",$', history.group(1), re.M) if history else []
    frozen = re.search(r"^    frozen: true,$", blueprint, re.M) is not None
    return (name.group(1) if name else None, versions, frozen)


def problems(interface_dir, generated_version):
    package, versions, frozen = declared(read(os.path.join(interface_dir, "Android.bp")))
    if package is None or not versions:
        return ["Android.bp names no package or no frozen version"]
    found = []
    if versions != sorted(set(versions), key=int) or not all(v.isdigit() for v in versions):
        found.append(f"Android.bp declares versions {versions}: distinct numbers in order expected")
    if versions[-1] != generated_version:
        found.append(f"the latest frozen version is {versions[-1]}, the build generates "
                     f"{generated_version}")
    if not frozen:
        found.append("Android.bp does not say frozen: true")

    api_dir = os.path.join(interface_dir, "aidl_api", package)
    folders = sorted(os.listdir(api_dir)) if os.path.isdir(api_dir) else []
    for folder in sorted(set(folders) - set(versions)):
        found.append(f"{api_dir}/{folder} is not declared in Android.bp")
    for version in versions:
        version_dir = os.path.join(api_dir, version)
        if version not in folders:
            found.append(f"version {version} is declared but {version_dir} is missing")
            continue
        hash_file = os.path.join(version_dir, ".hash")
        stored = read(hash_file).strip() if os.path.exists(hash_file) else ""
        computed = aidl_api_hash.compute_hash(version_dir, int(version))
        if stored != computed:
            found.append(f"{version_dir}/.hash holds {stored!r}, its files hash to {computed}")

    latest = os.path.join(api_dir, versions[-1])
    frozen_files = set(aidl_api_hash.aidl_files(latest))
    current = {
        p for p in aidl_api_hash.aidl_files(interface_dir) if not p.startswith("./aidl_api/")
    }
    for path in sorted(frozen_files - current):
        found.append(f"{path} is frozen but not defined under {interface_dir}")
    for path in sorted(current - frozen_files):
        found.append(f"{path} is defined but not frozen in {latest}")
    for path in sorted(frozen_files & current):
        if read(os.path.join(latest, path)) != FROZEN_HEADER + read(os.path.join(interface_dir, path)):
            found.append(f"{path}: the frozen copy is not the frozen-file header and the definition")
    return found


def main(argv):
    if len(argv) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    found = problems(*argv)
    print("".join(f"frozen API: {problem}\n" for problem in found), end="", file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
