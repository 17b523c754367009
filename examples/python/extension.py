#!/usr/bin/env python3
"""A notification service extension in Python, as `fexo-agent` runs one per push.

The push's user-info dictionary arrives as JSON on standard input; the content delivered is the
last line of standard output, {"title":…,"body":…,"rewritten":…}; the exit status is 0 when the
library rewrote it, 3 when the push's own alert was delivered, 1 when the push is not JSON.
FeXOService-Info.plist is read from $FEXO_RESOURCES_DIR.
"""

import json
import sys

import fexo


def original_alert(user_info):
    """The push's own alert: an object's title and body, or a string alert as the body."""
    aps = user_info.get("aps")
    alert = aps.get("alert") if isinstance(aps, dict) else None
    if isinstance(alert, str):
        return "", alert
    if not isinstance(alert, dict):
        return "", ""
    return tuple(alert.get(key) if isinstance(alert.get(key), str) else "" for key in ("title", "body"))


def deliver(title, body, rewritten):
    print(json.dumps({"title": title, "body": body, "rewritten": rewritten}, ensure_ascii=False,
                     separators=(",", ":")), flush=True)


def main():
    text = sys.stdin.read()
    try:
        user_info = json.loads(text)
        if not isinstance(user_info, dict):
            raise ValueError("not an object")
    except ValueError as error:
        print(f"extension: the push is not a JSON object: {error}", file=sys.stderr)
        return 1
    rewritten = []

    def content_handler(title, body):
        # On the library's network thread; the record is already stored. Read only once the
        # library is idle, after this has returned.
        rewritten.append((title, body))

    with fexo.FeXONotificationExtensionHandler() as handler:
        handler.handle_notification(text, content_handler)
    # Once the library is idle the content handler has run or never will.
    fexo.wait_until_idle(25)
    if rewritten:
        deliver(*rewritten[0], True)
        return 0
    deliver(*original_alert(user_info), False)
    return 3


if __name__ == "__main__":
    sys.exit(main())
