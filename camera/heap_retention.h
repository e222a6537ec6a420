#pragma once

#include <atomic>
#include <cstddef>

// Hosts delete the images that they grabbed. When these lie at the end of the heap, the C library
// returns them to the system, and the next grab pays for fresh pages: a page fault and 4 kB of
// zeros for every 4 kB, several times the work of unpacking. What stands here helps hosts that read
// and hosts that change their images alike, because blocks and arrays stay ordinary ones that any
// thread may delete at any time.

/// Lets the heap keep up to @p bytes of freed memory at its end instead of giving them back to the
/// system.
///
/// The limits are those of the whole process. The GNU library adapts them to what a process frees;
/// this call frees one block of the right size, as the host might have done, so it changes no limit
/// that the process has set itself and no limit that is wide enough. The library adapts up to 64
/// MB. Nothing stays allocated. Any thread.
void letHeapKeep(std::size_t bytes);

/// Room for images in the heap that is not at its end, for what exceeds those limits: the system
/// gets back what was freed at the end of a heap, and whole heaps of a thread that became empty.
/// Freed memory in front of a block that is in use stays.
class HeapRoom
{
public:
    HeapRoom() = default;
    HeapRoom(const HeapRoom&) = delete;
    HeapRoom& operator=(const HeapRoom&) = delete;
    HeapRoom(HeapRoom&&) = delete;
    HeapRoom& operator=(HeapRoom&&) = delete;
    ~HeapRoom();

    /// Makes room for @p count blocks of @p size bytes where the calling thread allocates, 128 MiB
    /// at most, unless that was tried before for blocks as large: what cannot be had as a whole is
    /// given back at once, never tried again. A page takes memory once a block does. Any thread.
    void make(std::size_t count, std::size_t size);

private:
    std::atomic<std::size_t> m_size = 0;   ///< of the largest blocks that it was tried for
    std::atomic<void*> m_behind = nullptr; ///< the block behind the room
};
