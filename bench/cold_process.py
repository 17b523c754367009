#!/usr/bin/env python3
"""Whole-process figure: `fexo handle-push` end to end against the `curl` tool POSTing the same
body to the same loopback server. This script only prepares the server, the configuration and the
files; bench_cold_runner times the processes themselves (posix_spawn to wait4, runs alternated)
and takes their peak resident set from the same wait4. Its samples go to --samples as CSV.

With --floor, bench_cold_floor runs in the same rounds as a reference: one POST and one durable
upsert into a store file of the project's own layout (made by fexo in a folder of its own), the
least that any extension process storing the push has to do."""

import argparse
import os
import re
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "support"))
from configuration_file import write_configuration_file  # noqa: E402

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


def fexo_command(fexo_program, work, app_groups):
    """One `fexo handle-push` of the push that prepare() wrote, on the store under work/app_groups."""
    return [fexo_program, "--resources", os.path.join(work, "resources"), "--app-groups",
            os.path.join(work, app_groups), "handle-push", os.path.join(work, "push.json")]


def prepare(work, base_url, fexo_program):
    """Writes the configuration, the push and the body into `work`; returns the fexo and curl
    command lines of one run each."""
    write_configuration_file(os.path.join(work, "resources"), {
        "FEXO_BASE_URL": base_url, "CLIENT_SECRET": CLIENT_SECRET, "CLIENT_ID": CLIENT_ID,
        "APP_GROUP": "group.bench.fexo", "BUNDLE_ID": "com.example.host"})
    push = os.path.join(work, "push.json")
    with open(push, "w") as out:
        out.write(PUSH)
    body = os.path.join(work, "body.json")
    with open(body, "w") as out:
        out.write(BODY)
    fexo = fexo_command(fexo_program, work, "app-groups")
    curl = ["curl", "-sS", "-o", "/dev/null", "-H", "Content-Type: application/json",
            "-H", "client_secret: " + CLIENT_SECRET, "-H", "client_id: " + CLIENT_ID,
            "--data-binary", "@" + body, base_url + PATH]
    return fexo, curl


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--fexo", required=True)
    parser.add_argument("--server", required=True)
    parser.add_argument("--runner", required=True, help="the bench_cold_runner program")
    parser.add_argument("--floor", help="the bench_cold_floor program")
    parser.add_argument("--runs", type=int, default=30)
    parser.add_argument("--samples", help="CSV file for every run's figures")
    args = parser.parse_args()

    with tempfile.TemporaryDirectory(prefix="fexo-bench-cold-") as work:
        server = subprocess.Popen([args.server], stdout=subprocess.PIPE, text=True)
        try:
            base_url = server.stdout.readline().strip()
            fexo, curl = prepare(work, base_url, args.fexo)
            env = dict(os.environ)

            for _ in range(3):
                _, _, out = timed(fexo, env)
                if '"rewritten":true' not in out:
                    sys.exit("cold_process: fexo handle-push did not deliver rewritten content: " + out)
            runner = [args.runner, "--runs", str(args.runs), "--warm", "3", "--goal", "1.0"]
            if args.samples:
                os.makedirs(os.path.dirname(os.path.abspath(args.samples)), exist_ok=True)
                runner += ["--samples", args.samples]
            commands = ["--name", "fexo handle-push"] + fexo + ["--name", "curl"] + curl
            if args.floor:
                # The floor writes into a store that fexo laid out, apart from fexo's own.
                made = subprocess.run(fexo_command(args.fexo, work, "floor-app-groups"), env=env, capture_output=True)
                if made.returncode != 0:
                    sys.exit("cold_process: fexo could not lay out the floor's store")
                store = os.path.join(work, "floor-app-groups", "group.bench.fexo", "defaults.sqlite")
                commands += ["--name", "floor", args.floor, base_url + PATH, os.path.join(work, "body.json"),
                             store, CLIENT_ID, CLIENT_SECRET]
            done = subprocess.run(runner + commands, env=env)
            if done.returncode != 0:
                sys.exit(f"cold_process: bench_cold_runner failed ({done.returncode})")
        finally:
            server.terminate()
            server.wait()


if __name__ == "__main__":
    main()
