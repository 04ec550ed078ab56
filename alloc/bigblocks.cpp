#include "alloc/bigblocks.h"

#include <algorithm>
#include <chrono>
#include <system_error>

#include <sys/mman.h>

#ifndef MADV_POPULATE_WRITE
#define MADV_POPULATE_WRITE 23 // Linux 5.14
#endif

namespace {

constexpr std::size_t pageSize = 4096;
constexpr std::size_t populateStep = std::size_t(4) << 20; // the lock is free between steps
constexpr std::chrono::milliseconds settleTime(200);

std::size_t pageRound(std::size_t n)
{
    return (n + pageSize - 1) & ~(pageSize - 1);
}

} // namespace

BigBlocks::~BigBlocks()
{
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    if (spareThread_.joinable())
        spareThread_.join();
    if (char *base = base_.exchange(nullptr))
        munmap(base, slotCount * slotSize);
}

bool BigBlocks::start()
{
    if (base_.load() != nullptr)
        return true;
    // NORESERVE: only pages that are touched count against memory.
    void *range = mmap(nullptr, slotCount * slotSize, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (range == MAP_FAILED)
        return false;
    try {
        spareThread_ = std::thread([this] { spareLoop(); });
    } catch (const std::system_error &) {
        munmap(range, slotCount * slotSize);
        return false;
    }
    base_.store(static_cast<char *>(range), std::memory_order_release);
    return true;
}

char *BigBlocks::slotStart(int slot) const
{
    return base_.load(std::memory_order_acquire) + std::size_t(slot) * slotSize;
}

int BigBlocks::slotOf(const void *p) const
{
    if (!owns(p))
        return -1;
    const std::uintptr_t offset =
        reinterpret_cast<std::uintptr_t>(p) - reinterpret_cast<std::uintptr_t>(base_.load(std::memory_order_acquire));
    if (offset % slotSize != 0)
        return -1; // not a pointer this class handed out
    return int(offset / slotSize);
}

// The free slot with the fewest mapped pages that still cover the size, or
// failing that the one with the most.
int BigBlocks::pickFreeSlot(std::size_t size) const
{
    int fits = -1;
    int largest = -1;
    for (int i = 0; i < slotCount; ++i) {
        const Slot &s = slots_[i];
        if (s.used)
            continue;
        if (s.mapped >= size && (fits < 0 || s.mapped < slots_[fits].mapped))
            fits = i;
        if (largest < 0 || s.mapped > slots_[largest].mapped)
            largest = i;
    }
    return fits >= 0 ? fits : largest;
}

void *BigBlocks::allocate(std::size_t size)
{
    if (size < minSize || size > slotSize || base_.load(std::memory_order_acquire) == nullptr)
        return nullptr;
    int slot = -1;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        slot = pickFreeSlot(size);
        if (slot < 0)
            return nullptr;
        Slot &s = slots_[slot];
        s.used = true;
        s.size = size;
        s.mapped = std::max(s.mapped, pageRound(size));
    }
    wake_.notify_all(); // the spare may have been taken
    return slotStart(slot);
}

void BigBlocks::release(void *p)
{
    const int slot = slotOf(p);
    if (slot < 0)
        return;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!slots_[slot].used || slots_[slot].dropping)
            return; // freed twice: leave the slot as it is
        slots_[slot].used = false;
        slots_[slot].size = 0;
        // Keep the pages of the best few free slots; the thread gives the
        // rest back (that takes milliseconds), holding the slot meanwhile.
        int resident = 0;
        int smallest = -1;
        for (int i = 0; i < slotCount; ++i) {
            const Slot &s = slots_[i];
            if (s.used || s.mapped == 0)
                continue;
            ++resident;
            if (smallest < 0 || s.mapped < slots_[smallest].mapped)
                smallest = i;
        }
        if (resident > spareSlots) {
            slots_[smallest].used = true;
            slots_[smallest].dropping = true;
        }
    }
    wake_.notify_all();
}

bool BigBlocks::resize(void *p, std::size_t size)
{
    const int slot = slotOf(p);
    if (slot < 0 || size > slotSize)
        return false;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        Slot &s = slots_[slot];
        if (!s.used || s.dropping)
            return false;
        s.size = size;
        s.mapped = std::max(s.mapped, pageRound(size));
    }
    wake_.notify_all();
    return true;
}

std::size_t BigBlocks::usableSize(const void *p) const
{
    const int slot = slotOf(p);
    if (slot < 0)
        return 0;
    const std::lock_guard<std::mutex> lock(mutex_);
    return slots_[slot].size;
}

std::size_t BigBlocks::mappedBytes(int slot) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return slot >= 0 && slot < slotCount ? slots_[slot].mapped : 0;
}

// As much as the biggest block in use: the next block asked for is most often
// the copy of one of those.
std::size_t BigBlocks::spareWanted() const
{
    std::size_t wanted = 0;
    for (const Slot &s : slots_) {
        if (s.used)
            wanted = std::max(wanted, pageRound(s.size));
    }
    return wanted;
}

// The free slot whose pages are to be mapped next, or -1 when the spare is
// ready or cannot be made so.
int BigBlocks::spareToMap() const
{
    if (populateFailed_)
        return -1;
    const std::size_t wanted = spareWanted();
    const int spare = pickFreeSlot(wanted);
    return spare >= 0 && slots_[spare].mapped < wanted ? spare : -1;
}

int BigBlocks::droppingSlot() const
{
    for (int i = 0; i < slotCount; ++i) {
        if (slots_[i].dropping)
            return i;
    }
    return -1;
}

void BigBlocks::spareLoop()
{
    std::unique_lock<std::mutex> lock(mutex_);
    bool behind = false;
    std::chrono::steady_clock::time_point behindSince;
    while (!stopping_) {
        if (const int drop = droppingSlot(); drop >= 0) {
            const std::size_t bytes = slots_[drop].mapped;
            lock.unlock();
            madvise(slotStart(drop), bytes, MADV_DONTNEED);
            lock.lock();
            slots_[drop] = Slot();
            wake_.notify_all();
            continue;
        }
        const int spare = spareToMap();
        if (spare < 0) {
            behind = false;
            wake_.notify_all(); // for waitForSpare
            wake_.wait(lock);
            continue;
        }
        // A copy frees the block it copied moments later, and that block
        // makes a fine spare: look again after a while before mapping.
        const auto now = std::chrono::steady_clock::now();
        if (!behind) {
            behind = true;
            behindSince = now;
        }
        if (now - behindSince < settleTime) {
            wake_.wait_for(lock, settleTime - (now - behindSince));
            continue;
        }
        const std::size_t from = slots_[spare].mapped;
        const std::size_t to = std::min(spareWanted(), from + populateStep);
        lock.unlock();
        // Maps the pages without writing to them, so it is harmless if the
        // slot is handed out meanwhile.
        const bool ok = madvise(slotStart(spare) + from, to - from, MADV_POPULATE_WRITE) == 0;
        lock.lock();
        if (ok)
            slots_[spare].mapped = std::max(slots_[spare].mapped, to);
        else
            populateFailed_ = true; // an old kernel: spares are then mapped as they are used
    }
}

void BigBlocks::waitForSpare()
{
    std::unique_lock<std::mutex> lock(mutex_);
    wake_.notify_all();
    wake_.wait(lock, [this] {
        if (stopping_ || !spareThread_.joinable())
            return true;
        return droppingSlot() < 0 && spareToMap() < 0;
    });
}
