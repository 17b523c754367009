#!/usr/bin/env python3
"""A host app in Python: checks the configuration, registers this device, then shows the inbox
(every record, newest first, and the unread badge) and marks everything read.

    host_app.py PUSH_TOKEN DEVICE_ID

FeXOService-Info.plist is read from $FEXO_RESOURCES_DIR, else from beside the Python executable.
"""

import sys

import fexo


def main(token: str, device_id: str) -> int:
    try:
        fexo.check_configuration()  # the library would end the process over these
    except fexo.ConfigurationError as error:
        print(f"host_app: {error.name}: {error.reason}", file=sys.stderr)
        return 2
    with fexo.FeXOService() as service:
        try:
            answer = service.register_device(token, device_id).result(timeout=30)
        except fexo.FeXOError as error:  # a transport or decoding error, with its code
            print(f"host_app: {error.domain} {error.code}: {error.description}", file=sys.stderr)
            return 1
        print("registered:", answer)
        for record in service.records():  # every record, newest first, read a page at a time
            print("  " if record.is_read else "* ", record.data.text if record.data else "")
        print("unread:", service.unread_count())
        service.mark_all_as_read()
    return 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit("usage: host_app.py PUSH_TOKEN DEVICE_ID")
    sys.exit(main(*sys.argv[1:]))
