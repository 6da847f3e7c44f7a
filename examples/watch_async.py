#!/usr/bin/python3
"""Watches the busiest ports with asyncio: each reading is made in a thread, and the event loop goes on meanwhile.

The interpreter lock is released while the platform works, so a slow call holds up nothing but its own reading. The
Host's time-out ends the wait for a platform that does not answer, and says which operation hangs.
"""

from __future__ import annotations

import argparse
import asyncio
import sys

import ryn


async def watch(host: ryn.Host, interval: float, count: int) -> None:
    earlier = await asyncio.to_thread(host.counters)
    for _ in range(count):
        await asyncio.sleep(interval)
        later = await asyncio.to_thread(host.counters)
        tick = later.rates(earlier)
        print(f"{tick.seconds:.1f} s, {len(tick)} ports, {len(tick.resets)} reset")
        for port, rate in tick.top("tx_bytes", 3):
            print(f"  {port!s:<10} {8 * rate.tx_bytes / 1e6:10.1f} Mbit/s  {rate.tx_packets:10.0f} packets/s")
        earlier = later


async def main() -> None:
    parser = argparse.ArgumentParser(description="Watch the busiest ports with asyncio.")
    parser.add_argument("--interval", type=float, default=2.0, metavar="SECONDS")
    parser.add_argument("--count", type=int, default=5, metavar="N", help="how many times")
    options = parser.parse_args()

    host = await asyncio.to_thread(ryn.Host, timeout=5)
    beats = 0

    async def beat() -> None:
        nonlocal beats
        while True:
            await asyncio.sleep(0.01)
            beats += 1

    heart = asyncio.create_task(beat())  # stands for what else the program does
    await watch(host, options.interval, options.count)
    heart.cancel()
    print("the event loop went on meanwhile" if beats else "the event loop stood still")


if __name__ == "__main__":
    try:
        asyncio.run(main())
    except ryn.Error as error:
        sys.exit(f"watch_async: {error}")
    except KeyboardInterrupt:
        pass
