#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <thread>

// Big allocations (the log view's text buffer above all) come from slots of one
// reserved address range. A freed slot stays mapped, and a thread keeps a spare
// slot's pages mapped ahead of need, so that a new buffer as big as the last one
// costs no page faults. Qt copies the view's whole text into a new buffer now
// and then; on a machine where mapping a fresh page is slow that copy stalled
// the window for over 100 ms.
//
// No Qt here and no malloc of its own: the process's malloc calls in.
class BigBlocks
{
public:
    static constexpr std::size_t minSize = std::size_t(8) << 20; // smaller ones stay with malloc
    static constexpr std::size_t slotSize = std::size_t(256) << 20;
    static constexpr int slotCount = 8;
    static constexpr int spareSlots = 1; // free slots that keep their pages

    BigBlocks() = default;
    ~BigBlocks();
    BigBlocks(const BigBlocks &) = delete;
    BigBlocks &operator=(const BigBlocks &) = delete;

    // Reserves the address range and starts the thread that maps spare pages.
    // False if the range cannot be had; the blocks then refuse every request.
    bool start();

    // nullptr when the size is outside [minSize, slotSize] or every slot is taken.
    void *allocate(std::size_t size);
    bool owns(const void *p) const
    {
        const auto at = reinterpret_cast<std::uintptr_t>(p);
        const auto base = reinterpret_cast<std::uintptr_t>(base_.load(std::memory_order_acquire));
        return base != 0 && at >= base && at < base + slotCount * slotSize;
    }
    void release(void *p);
    // Grows or shrinks in place; false when the size does not fit a slot.
    bool resize(void *p, std::size_t size);
    std::size_t usableSize(const void *p) const;

    // Bytes of a slot's pages that are mapped, counted from its start.
    std::size_t mappedBytes(int slot) const;
    // Blocks until the thread has no pages left to map or give back.
    void waitForSpare();

private:
    struct Slot
    {
        bool used = false;
        std::size_t size = 0;   // what the caller asked for
        std::size_t mapped = 0; // pages from the slot's start that have been touched
        bool dropping = false;  // held while the thread gives its pages back
    };

    int slotOf(const void *p) const;
    char *slotStart(int slot) const;
    int pickFreeSlot(std::size_t size) const;
    int spareToMap() const;
    int droppingSlot() const;
    void spareLoop();
    std::size_t spareWanted() const;

    std::atomic<char *> base_{nullptr};
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    Slot slots_[slotCount];
    std::thread spareThread_;
    bool stopping_ = false;
    bool populateFailed_ = false;
};
