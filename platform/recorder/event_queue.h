/*
 * The hand-over from the daemon's threads to the recorder's writer: a bounded
 * queue that any thread can fill and one thread empties, and a pool of frame
 * buffers. Both are fixed arrays and atomics, never allocate and never wait:
 * a full queue or an empty pool makes the caller drop its event, so a slow
 * disk can never hold up the frame loop. Nothing here takes a lock, so they
 * may also be used from a signal handler.
 */
#ifndef FACEDET_RECORDER_EVENT_QUEUE_H
#define FACEDET_RECORDER_EVENT_QUEUE_H

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace recorder {

// Many producers, one consumer, N cells (a power of two). Each cell carries
// the position it is ready for: a producer claims a position, fills its
// cell, then marks it full; the consumer takes cells in position order.
template <typename T, size_t N>
class EventQueue {
    static_assert(N >= 2 && (N & (N - 1)) == 0, "N must be a power of two");

  public:
    EventQueue() {
        for (size_t i = 0; i < N; ++i) {
            cells_[i].ready.store(i, std::memory_order_relaxed);
        }
    }
    EventQueue(const EventQueue &) = delete;
    EventQueue &operator=(const EventQueue &) = delete;

    // Calls fill(T &) on a free cell and queues it; false, without calling
    // fill, when the queue is full.
    template <typename Fill>
    bool push(Fill &&fill) {
        size_t at = claimed_.load(std::memory_order_relaxed);
        for (;;) {
            Cell &cell = cells_[at % N];
            const size_t ready = cell.ready.load(std::memory_order_acquire);
            const ptrdiff_t lag = static_cast<ptrdiff_t>(ready - at);
            if (lag == 0) {
                if (claimed_.compare_exchange_weak(at, at + 1, std::memory_order_relaxed)) {
                    fill(cell.value);
                    cell.ready.store(at + 1, std::memory_order_release);
                    return true;
                }
            } else if (lag < 0) {
                return false;  // the cell still holds an event N positions back
            } else {
                at = claimed_.load(std::memory_order_relaxed);
            }
        }
    }

    // Calls use(T &) on the oldest queued event and frees its cell; false when
    // there is none yet (also while its producer is still filling it).
    // One thread only.
    template <typename Use>
    bool pop(Use &&use) {
        Cell &cell = cells_[taken_ % N];
        if (cell.ready.load(std::memory_order_acquire) != taken_ + 1) {
            return false;
        }
        use(cell.value);
        cell.ready.store(taken_ + N, std::memory_order_release);
        ++taken_;
        return true;
    }

  private:
    struct Cell {
        std::atomic<size_t> ready;
        T value;
    };
    Cell cells_[N];
    std::atomic<size_t> claimed_{0};  // next position a producer takes
    size_t taken_ = 0;                // next position the consumer takes
};

// Which of N (at most 32) buffers are free, as one bit mask.
template <int N>
class SlotPool {
    static_assert(N >= 1 && N <= 32, "one bit per slot");

  public:
    // A free slot, now taken, or -1.
    int take() {
        uint32_t free = free_.load(std::memory_order_relaxed);
        while (free != 0) {
            const uint32_t lowest = free & (~free + 1);
            if (free_.compare_exchange_weak(free, free & ~lowest, std::memory_order_acquire)) {
                return __builtin_ctz(lowest);
            }
        }
        return -1;
    }
    void give(int slot) { free_.fetch_or(1u << slot, std::memory_order_release); }

  private:
    std::atomic<uint32_t> free_{N == 32 ? 0xFFFFFFFFu : (1u << N) - 1};
};

}  // namespace recorder

#endif
