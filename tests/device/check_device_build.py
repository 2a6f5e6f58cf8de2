#!/usr/bin/env python3
"""Checks what a device build reads besides the sources, and what the built library exports.

  build-files REPO_DIR   every Android.bp parses and is as bpfmt formats it; every VINTF fragment
                         that one names is well-formed XML declaring one AIDL HAL, whose version is
                         that of the -V<N>-ndk library the module links and the latest frozen one
  exports LIBRARY        the shared library's dynamic symbol table defines registerService alone
  pal-exports LIBRARY [ENTRY]
                         a PAL's shared library defines the six PAL functions and, when given,
                         the entry point of its host controls, and nothing else
"""

import os
import re
import subprocess
import sys


def run(*command):
    result = subprocess.run(command, capture_output=True, text=True)
    return result.returncode, result.stdout + result.stderr


def fragment_problems(path, version):
    expected = [("count(/manifest[@type='device']/hal)", "1", "one <hal> in a device manifest"),
                ("string(/manifest/hal/@format)", "aidl", "format=\"aidl\""),
                ("string(/manifest/hal/version)", version, "the linked version")]
    # xmllint prints its parser errors in place of a value when the file is not well-formed.
    return [f"{path}: expected {what} ({value}), found {got!r}" for query, value, what in expected
            for got in [run("xmllint", "--xpath", query, path)[1].strip()] if got != value]


def build_file_problems(repo):
    found, texts = [], {}
    for root, dirs, files in os.walk(repo):
        dirs[:] = sorted(d for d in dirs if d not in {".git", "build"})
        if "Android.bp" in files:
            path = os.path.join(root, "Android.bp")
            code, out = run("bpfmt", "-d", path)
            if code != 0 or out:
                found.append(f"{path} does not parse or is not formatted as bpfmt formats it:\n{out}")
            with open(path, encoding="utf-8") as f:
                texts[path] = f.read()
    frozen = [re.findall(r'^ {12}version: "(\d+)",$', text, re.M)
              for text in texts.values() if "aidl_interface {" in text]
    latest = frozen[0][-1] if len(frozen) == 1 and frozen[0] else None
    for path, text in texts.items():
        for listed in re.findall(r"vintf_fragments: \[([^\]]*)\]", text):
            linked = re.findall(r'"vendor\.orbo\.hardware\.voxa-V(\d+)-ndk"', text)
            version = linked[0] if len(linked) == 1 else None
            if version is None or version != latest:
                found.append(f"{path} links V{version}, the latest frozen version is {latest}")
            for name in re.findall(r'"([^"]+)"', listed):
                found += fragment_problems(os.path.join(os.path.dirname(path), name), version)
    if not any("vintf_fragments" in text for text in texts.values()):
        found.append(f"no Android.bp under {repo} names a VINTF fragment")
    return found


PAL_FUNCTIONS = ["pal_set_param", "pal_stream_close", "pal_stream_open", "pal_stream_set_param",
                 "pal_stream_start", "pal_stream_stop"]


def export_problems(library, *expected):
    code, out = run("nm", "-D", "--defined-only", library)
    if code != 0:
        return [f"nm cannot read {library}:\n{out}"]
    symbols = sorted(line.split()[-1] for line in out.splitlines() if line.strip())
    if symbols != sorted(expected or ["registerService"]):
        return [f"{library} exports {len(symbols)} symbols: " + ", ".join(symbols)]
    return []


def pal_export_problems(library, *entry):
    return export_problems(library, *PAL_FUNCTIONS, *entry)


def main(argv):
    checks = {"build-files": (build_file_problems, 1), "exports": (export_problems, 1),
              "pal-exports": (pal_export_problems, 2)}
    if len(argv) < 2 or argv[0] not in checks or len(argv) > 1 + checks[argv[0]][1]:
        print(__doc__, file=sys.stderr)
        return 2
    found = checks[argv[0]][0](*argv[1:])
    print("".join(f"FAIL {problem}\n" for problem in found) + f"{argv[0]}: {len(found)} problem(s)")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
