#!/usr/bin/env python3
"""A host app on asyncio: awaits the registration, shows the inbox, then marks everything read and
awaits the change that the store's observer reports.

    async_host_app.py PUSH_TOKEN DEVICE_ID

The library calls back on threads of its own; asyncio.wrap_future and call_soon_threadsafe bring
its results to the event loop. FeXOService-Info.plist is read from $FEXO_RESOURCES_DIR.
"""

import asyncio
import sys

import fexo


async def main(token: str, device_id: str) -> int:
    loop = asyncio.get_running_loop()
    with fexo.FeXOService() as service:
        try:
            # The future completes on the library's network thread; wrap_future awaits it here.
            answer = await asyncio.wait_for(asyncio.wrap_future(service.register_device(token, device_id)), 30)
        except fexo.FeXOError as error:
            print(f"async_host_app: {error.domain} {error.code}: {error.description}", file=sys.stderr)
            return 1
        print("registered:", answer)
        for record in service.records():
            print("  " if record.is_read else "* ", record.data.text if record.data else "")

        # The observer calls back on its own thread: hand the counts to the loop.
        counts: asyncio.Queue[tuple[int, int]] = asyncio.Queue()
        with service.observe(lambda total, unread: loop.call_soon_threadsafe(counts.put_nowait, (total, unread))):
            if service.unread_count() > 0:
                service.mark_all_as_read()
                unread = -1
                while unread != 0:  # another process's change may be reported first
                    total, unread = await asyncio.wait_for(counts.get(), 10)
                print(f"observed: {total} records, none unread")
        print("unread:", service.unread_count())
    return 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit("usage: async_host_app.py PUSH_TOKEN DEVICE_ID")
    sys.exit(asyncio.run(main(*sys.argv[1:])))
