"""The push road through the Python package: handle_notification until the content handler has
run, once per push, after a warm-up. Prints the median time of one push, in microseconds.
Usage: python_push.py PUSHES USER_INFO_JSON (configuration from $FEXO_RESOURCES_DIR)."""

import statistics
import sys
import threading
import time

import fexo


def push_once(handler, user_info):
    delivered = threading.Event()
    handler.handle_notification(user_info, lambda title, body: delivered.set())
    if not delivered.wait(10):
        raise SystemExit("content handler not called")


def main():
    pushes, user_info = int(sys.argv[1]), sys.argv[2]
    handler = fexo.FeXONotificationExtensionHandler()
    for _ in range(20):
        push_once(handler, user_info)
    times = []
    for _ in range(pushes):
        start = time.perf_counter()
        push_once(handler, user_info)
        times.append((time.perf_counter() - start) * 1e6)
    print(f"{statistics.median(times):.1f}")


if __name__ == "__main__":
    main()
