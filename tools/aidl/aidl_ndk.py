#!/usr/bin/env python3
"""Generates the NDK-backend C++ of an AIDL package for the host build.

The .aidl files stay the one source of the interface; this turns them into the headers and
sources that the platform's AIDL compiler lays out for the NDK backend (namespace
aidl::<package>, headers aidl/<package path>/<Type>.h and Bn<Name>.h), so that code including them
builds the same way on the host and on a device.

The host has no parcels and no binder driver: a call on an interface is a direct C++ call on the
local object. So nothing here reads or writes parcels, the transaction handler of every binder
class rejects every transaction, and no Bp proxy classes are generated: fromBinder() only ever
hands back the local object.

Only the constructs that vendor.orbo.hardware.voxa uses are understood; anything else stops the
generator with an error naming the file and line:
  - one top-level @VintfStability parcelable, enum or interface per file, named as the file;
  - parcelables with nested @VintfStability parcelables, and fields of type int, long, boolean,
    String, ParcelFileDescriptor, byte[], an enum, an array of records or a @nullable array of
    records; int fields may carry an integer default;
  - @Backing(type="int") enums whose members all have explicit, distinct values;
  - interface methods returning void or int, with arguments `int`, `in <record>`,
    `in <interface>` or `out List<String>`.

This file is the command; the parser, the model of the package and the emitters are the modules
of ndk/ beside it.

Usage:
  aidl_ndk.py --out DIR --version N --hash-file FILE X.aidl...   writes DIR/include, DIR/src
  aidl_ndk.py --list X.aidl...                                   prints the paths it would write
"""

import argparse
import os
import re
import sys

from ndk import interfaces, records
from ndk.cpp import Layout, bn_name
from ndk.model import AidlError, Package
from ndk.parser import parse_file


def outputs(package, version, hash_value):
    """(path below --out, function returning its text) of every output, in a stable order."""
    layout = Layout(package.name)
    files = []
    for decl in sorted(package.decls, key=lambda d: d.name):
        header = f"include/{layout.include_dir}/{decl.name}.h"
        source = f"src/{layout.source_dir}/{decl.name}.cpp"
        if decl.kind == "enum":
            files.append((header, lambda d=decl: records.enum_header(layout, d)))
        elif decl.kind == "parcelable":
            files.append((header, lambda d=decl: records.record_header(layout, d)))
            files.append((source, lambda d=decl: records.record_source(layout, d)))
        else:
            files.append((header, lambda d=decl: interfaces.interface_header(
                layout, d, version, hash_value)))
            files.append((f"include/{layout.include_dir}/{bn_name(decl)}.h",
                          lambda d=decl: interfaces.bn_header(layout, d)))
            files.append((source, lambda d=decl: interfaces.interface_source(layout, d)))
    return files


def _read_hash(path):
    with open(path, encoding="ascii") as f:
        value = f.read().strip()
    if not re.fullmatch(r"[0-9a-f]{40}", value):
        raise AidlError(f"{path}: expected 40 lowercase hex digits")
    return value


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--out", help="output directory (gets include/ and src/)")
    parser.add_argument("--version", type=int, help="the frozen version the code reports")
    parser.add_argument("--hash-file", help="the .hash file of that version")
    parser.add_argument("--list", action="store_true", help="print the output paths and stop")
    parser.add_argument("aidl", nargs="+", help="the package's .aidl files")
    args = parser.parse_args(argv)
    try:
        package = Package([parse_file(p) for p in args.aidl])
        if args.list:
            for path, _ in outputs(package, 0, ""):
                print(path)
            return 0
        if args.out is None or args.version is None or args.hash_file is None:
            parser.error("--out, --version and --hash-file are required to generate")
        for path, render in outputs(package, args.version, _read_hash(args.hash_file)):
            target = os.path.join(args.out, path)
            os.makedirs(os.path.dirname(target), exist_ok=True)
            with open(target, "w", encoding="utf-8") as f:
                f.write(render())
    except (AidlError, OSError) as e:
        print(f"aidl_ndk: error: {e}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
