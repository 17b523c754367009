#!/usr/bin/env python3
"""A notification service extension in Python, as `fexo-agent` runs one per push.

The push's user-info dictionary arrives as JSON on standard input; the content delivered is the
last line of standard output, {"title":…,"body":…,"rewritten":…,"id":…}; the exit status is 0
when the library rewrote it, 3 when the push's own alert was delivered, 1 when the push is not a
JSON object. FeXOService-Info.plist is read from $FEXO_RESOURCES_DIR.
"""

import json
import sys

import fexo


def main() -> int:
    text = sys.stdin.read()
    with fexo.FeXONotificationExtensionHandler() as handler:
        try:
            # Waits for this push's request only; the push's own alert when the library failed,
            # ran out of time, or the server's record carries no notification.
            delivery = handler.deliver(text, timeout=25)
        except fexo.DecodingError as error:
            print(f"extension: the push is not a JSON object: {error.description}", file=sys.stderr)
            return 1
    line = {"title": delivery.title, "body": delivery.body, "rewritten": delivery.rewritten,
            "id": delivery.record_id if delivery.rewritten else None}
    print(json.dumps(line, ensure_ascii=False, separators=(",", ":")), flush=True)
    return 0 if delivery.rewritten else 3


if __name__ == "__main__":
    sys.exit(main())
