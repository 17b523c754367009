#!/usr/bin/env python3
"""Whole-process figure: `fexo handle-push` end to end against the `curl` tool POSTing the same
body to the same loopback server. Runs alternate (fexo, curl, fexo, ...) so that both meet the
same machine load; each run goes through /usr/bin/time -v for its peak resident set, and the
wall time of each run is taken around it. Prints medians and ratios; appends summary lines to
$FEXO_BENCH_SUMMARY when set."""

import argparse
import os
import plistlib
import re
import statistics
import subprocess
import sys
import tempfile
import time

CLIENT_ID = "bench-client-id"
CLIENT_SECRET = "bench-client-secret-0123"
PUSH = ('{"recipientId":"recipient-0001","registration_id":"registration-0001",'
        '"aps":{"alert":{"title":"New message","body":"You have a new notification"},"mutable-content":1},'
        '"google.c.sender.id":"123456789012","gcm.message_id":"0:1700000000000000%abcdef","google.c.fid":"fid-0001"}')
# What the extension sends for that push.
BODY = '{"recipientId":"recipient-0001","registrationId":"registration-0001"}'
PATH = "/api/Notification/GetNotificationContent"


def timed(command, env):
    with tempfile.NamedTemporaryFile("r", suffix=".time") as report:
        start = time.perf_counter()
        done = subprocess.run(["/usr/bin/time", "-v", "-o", report.name] + command, env=env,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        elapsed = time.perf_counter() - start
        text = report.read()
    if done.returncode != 0:
        sys.exit(f"cold_process: {command[0]} failed ({done.returncode}): {done.stderr.decode()[-400:]}")
    rss = int(re.search(r"Maximum resident set size \(kbytes\): (\d+)", text).group(1))
    return elapsed, rss, done.stdout.decode()


def summary(line):
    path = os.environ.get("FEXO_BENCH_SUMMARY")
    if path:
        with open(path, "a") as out:
            out.write(line + "\n")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--fexo", required=True)
    parser.add_argument("--server", required=True)
    parser.add_argument("--runs", type=int, default=30)
    args = parser.parse_args()

    with tempfile.TemporaryDirectory(prefix="fexo-bench-cold-") as work:
        server = subprocess.Popen([args.server], stdout=subprocess.PIPE, text=True)
        try:
            base_url = server.stdout.readline().strip()
            resources = os.path.join(work, "resources")
            os.makedirs(resources)
            with open(os.path.join(resources, "FeXOService-Info.plist"), "wb") as out:
                plistlib.dump({"FEXO_BASE_URL": base_url, "CLIENT_SECRET": CLIENT_SECRET, "CLIENT_ID": CLIENT_ID,
                               "APP_GROUP": "group.bench.fexo", "BUNDLE_ID": "com.example.host"}, out)
            push = os.path.join(work, "push.json")
            with open(push, "w") as out:
                out.write(PUSH)
            body = os.path.join(work, "body.json")
            with open(body, "w") as out:
                out.write(BODY)
            env = dict(os.environ)
            fexo = [args.fexo, "--resources", resources, "--app-groups", os.path.join(work, "app-groups"),
                    "handle-push", push]
            curl = ["curl", "-sS", "-o", "/dev/null", "-H", "Content-Type: application/json",
                    "-H", "client_secret: " + CLIENT_SECRET, "-H", "client_id: " + CLIENT_ID,
                    "--data-binary", "@" + body, base_url + PATH]

            # Warm the page cache and the store's file once for each.
            for _ in range(3):
                _, _, out = timed(fexo, env)
                if '"rewritten":true' not in out:
                    sys.exit("cold_process: fexo handle-push did not deliver rewritten content: " + out)
                timed(curl, env)
            samples = {"fexo": [], "curl": []}
            for _ in range(args.runs):
                samples["fexo"].append(timed(fexo, env)[:2])
                samples["curl"].append(timed(curl, env)[:2])
        finally:
            server.terminate()
            server.wait()

    med = {name: (statistics.median(t for t, _ in runs), statistics.median(r for _, r in runs))
           for name, runs in samples.items()}
    time_ratio = med["fexo"][0] / med["curl"][0]
    rss_ratio = med["fexo"][1] / med["curl"][1]
    print(f"cold extension process, medians of {args.runs} runs:")
    print(f"  time: fexo handle-push {med['fexo'][0] * 1000:.2f} ms, curl {med['curl'][0] * 1000:.2f} ms, "
          f"ratio {time_ratio:.2f}x (goal <= 1.00x: {'met' if time_ratio <= 1.0 else 'missed'})")
    print(f"  peak RSS: fexo handle-push {med['fexo'][1]} KiB, curl {med['curl'][1]} KiB, "
          f"ratio {rss_ratio:.2f}x (goal <= 1.00x: {'met' if rss_ratio <= 1.0 else 'missed'})")
    summary(f"cold handle-push time, median of {args.runs}|{med['fexo'][0] * 1000:.2f} ms|{med['curl'][0] * 1000:.2f} ms|"
            f"{time_ratio:.2f}x|<= 1.00x|{'met' if time_ratio <= 1.0 else 'missed'}")
    summary(f"cold handle-push peak RSS, median of {args.runs}|{med['fexo'][1]} KiB|{med['curl'][1]} KiB|"
            f"{rss_ratio:.2f}x|<= 1.00x|{'met' if rss_ratio <= 1.0 else 'missed'}")


if __name__ == "__main__":
    main()
