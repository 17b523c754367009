#!/usr/bin/env python3
"""Writes tools/fexo/handle-push.order: the functions of the `fexo` executable that one cold
`fexo handle-push` runs, as linker symbol names, one per line. The fexo link places these first
and together (tools/CMakeLists.txt), so the push's code fills a few contiguous pages of the
executable instead of being spread over all of it. Page faults map the pages around the one
touched, so a push spread over the whole text makes nearly all of it resident.

    bench/link_order.py --fexo build/bench/tools/fexo --server build/bench/bench/bench_server \
        [--out tools/fexo/handle-push.order]

Runs the same push against the same loopback server as bench/cold_process.py, with the store
already made (the state of every push but the first), once under callgrind. Rerun it when the
push's code changes a lot: a stale list still links (names the link no longer has are skipped),
it only places less of the push together."""

import argparse
import os
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import cold_process  # noqa: E402  (the push, the body and the configuration of the cold figure)


def executed_functions(profile, program):
    """Symbol names of the functions callgrind saw run in `program`."""
    names, seen, current_object = [], set(), None
    with open(profile) as text:
        for line in text:
            if line.startswith("ob="):
                current_object = line[3:].strip()
            elif line.startswith("fn=") and current_object == program:
                name = line[3:].strip().split("'")[0]  # callgrind marks recursion levels as name'2
                if name not in seen and not name.startswith("0x"):
                    seen.add(name)
                    names.append(name)
    return names


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--fexo", required=True)
    parser.add_argument("--server", required=True)
    parser.add_argument("--out", default=os.path.join(os.path.dirname(__file__), "..", "tools", "fexo",
                                                      "handle-push.order"))
    args = parser.parse_args()
    program = os.path.realpath(args.fexo)

    with tempfile.TemporaryDirectory(prefix="fexo-link-order-") as work:
        server = subprocess.Popen([args.server], stdout=subprocess.PIPE, text=True)
        try:
            fexo = cold_process.prepare(work, server.stdout.readline().strip(), program)[0]
            first = subprocess.run(fexo, capture_output=True, text=True)
            if first.returncode != 0 or '"rewritten":true' not in first.stdout:
                sys.exit("link_order: fexo handle-push did not deliver rewritten content: " + first.stdout)
            profile = os.path.join(work, "callgrind.out")
            subprocess.run(["valgrind", "--tool=callgrind", "--demangle=no", "--compress-strings=no",
                            "--callgrind-out-file=" + profile] + fexo,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
            names = executed_functions(profile, program)
        finally:
            server.terminate()
            server.wait()
    if not names:
        sys.exit("link_order: callgrind saw no function of " + program)
    # Sorted: the whole list is placed together either way, and a rerun then shows as the
    # functions that came and went.
    with open(args.out, "w") as out:
        out.write("\n".join(sorted(names)) + "\n")
    print(f"link_order: {len(names)} functions written to {os.path.normpath(args.out)}")


if __name__ == "__main__":
    main()
