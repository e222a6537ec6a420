"""Streams in an event loop, which goes on meanwhile."""

import asyncio

import pytest

import zrncamera


def test_frames_and_other_tasks(camera):
    async def tick(ticks):
        while True:
            ticks.append(1)
            await asyncio.sleep(0.01)

    async def main():
        ticks = []
        ticker = asyncio.create_task(tick(ticks))
        frames = []
        with camera.stream() as stream:
            async for frame in stream:
                frames.append(frame)
                if len(frames) >= 10 and len(ticks) > 5 or len(frames) == 300:
                    break
        ticker.cancel()
        return frames, len(ticks)

    frames, ticks = asyncio.run(main())
    assert [frame.number for frame in frames] == sorted({frame.number for frame in frames})
    assert ticks > 5


def test_timeout_and_cancelling(camera, bus):
    async def main():
        with camera.stream(timeout=0.2) as stream:
            await asyncio.to_thread(stream.next, 20)
            bus.command("freeze")
            with pytest.raises(zrncamera.GrabTimeout):
                async for frame in stream:
                    pass
        with camera.stream(timeout=60) as stream:
            with pytest.raises(asyncio.TimeoutError):
                await asyncio.wait_for(anext(stream), 0.2)
            stream.close()
            with pytest.raises(StopAsyncIteration):
                await anext(stream)

    asyncio.run(main())


def test_events(camera, bus):
    async def main():
        kinds = []
        with camera.stream(keep_alive=True) as stream:
            await anext(stream)
            bus.unplug()
            async for item in stream:
                if not isinstance(item, zrncamera.Event) or item.kind == "refused":
                    continue  # it may be refused for a moment, by a bus that is still at work
                kinds.append(item.kind)
                if item.kind == "lost":
                    bus.plug()
                if item.kind == "back":
                    return kinds

    assert asyncio.run(asyncio.wait_for(main(), 60)) == ["lost", "back"]


def test_two_tasks_share_a_stream(camera):
    async def take(stream, numbers):
        async for frame in stream:
            numbers.append(frame.number)
            if len(numbers) >= 5:
                return

    async def main():
        shares = [], []
        with camera.stream() as stream:
            await asyncio.gather(*(take(stream, numbers) for numbers in shares))
        return shares

    one, other = asyncio.run(asyncio.wait_for(main(), 25))
    assert len(one) == len(other) == 5 and not set(one) & set(other)


def test_end_of_a_stream_wakes_all_tasks(camera, bus):
    async def main():
        stream = camera.stream(timeout=60)
        await anext(stream)
        bus.command("freeze")

        async def drain():
            return [item async for item in stream]

        tasks = [asyncio.create_task(drain()) for _ in range(3)]
        await asyncio.sleep(0.2)
        await asyncio.to_thread(stream.close)
        await asyncio.gather(*tasks)

    asyncio.run(asyncio.wait_for(main(), 50))


def test_two_tasks_share_a_watch(bus):
    async def main():
        watch = zrncamera.watch(timeout=30)
        assert (await anext(watch)).kind == "arrived"
        tasks = [asyncio.create_task(anext(watch)) for _ in range(2)]
        await asyncio.sleep(0.2)
        bus.unplug()
        await asyncio.wait(tasks, return_when=asyncio.FIRST_COMPLETED)
        bus.plug()
        return sorted(change.kind for change in await asyncio.gather(*tasks))

    assert asyncio.run(asyncio.wait_for(main(), 25)) == ["arrived", "left"]
