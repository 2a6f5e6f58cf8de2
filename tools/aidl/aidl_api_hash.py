#!/usr/bin/env python3
"""Computes the hash of a frozen AIDL API version, by the rule of the platform's build.

The hash of the version folder aidl_api/<package>/<N> is the SHA-1 of this text: the `sha1sum`
line ("<40 hex digits>  <path>") of every .aidl file in the folder, with paths as
`find ./ -name "*.aidl"` prints them and sorted bytewise (the C locale), followed by one line
holding the previous version number, or "latest-version" for version 1. It is the shell pipeline

  (cd <dir> && find ./ -name "*.aidl" -print0 | LC_ALL=C sort -z | xargs -0 sha1sum && echo <prev>)
      | sha1sum | cut -d " " -f 1

Usage:
  aidl_api_hash.py DIR            prints the hash of DIR (version taken from the folder's name)
  aidl_api_hash.py --check DIR    fails unless DIR/.hash holds that hash
  aidl_api_hash.py --write DIR    stores that hash in DIR/.hash
"""

import argparse
import hashlib
import os
import sys


def aidl_files(directory):
    """Paths of the .aidl files under `directory`, as `find ./` names them, in C-locale order."""
    found = []
    for root, dirs, files in os.walk(directory):
        dirs.sort()
        for name in files:
            if name.endswith(".aidl"):
                relative = os.path.relpath(os.path.join(root, name), directory)
                found.append("./" + relative.replace(os.sep, "/"))
    return sorted(found, key=lambda p: p.encode("utf-8"))


def compute_hash(directory, version):
    previous = "latest-version" if version == 1 else str(version - 1)
    listing = []
    for path in aidl_files(directory):
        with open(os.path.join(directory, path), "rb") as f:
            listing.append(f"{hashlib.sha1(f.read()).hexdigest()}  {path}\n")
    listing.append(previous + "\n")
    return hashlib.sha1("".join(listing).encode("utf-8")).hexdigest()


def version_of(directory):
    name = os.path.basename(os.path.normpath(directory))
    if not name.isdigit() or int(name) < 1:
        raise ValueError(f"{directory}: a frozen version folder is named by its number")
    return int(name)


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    mode = parser.add_mutually_exclusive_group()
    mode.add_argument("--check", action="store_true", help="compare with DIR/.hash")
    mode.add_argument("--write", action="store_true", help="store the hash in DIR/.hash")
    parser.add_argument("dir", help="the version folder, aidl_api/<package>/<N>")
    args = parser.parse_args(argv)
    try:
        value = compute_hash(args.dir, version_of(args.dir))
        hash_path = os.path.join(args.dir, ".hash")
        if args.write:
            with open(hash_path, "w", encoding="ascii") as f:
                f.write(value + "\n")
        elif args.check:
            with open(hash_path, encoding="ascii") as f:
                stored = f.read().strip()
            if stored != value:
                print(f"{hash_path}: holds {stored or '(nothing)'}, the files hash to {value}",
                      file=sys.stderr)
                return 1
        else:
            print(value)
    except (OSError, ValueError) as e:
        print(f"aidl_api_hash: error: {e}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
