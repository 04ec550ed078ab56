// The big-block allocator: what it accepts, that contents survive a resize, and
// that freed and spare slots keep their pages mapped (read back with mincore).
#include "alloc/bigblocks.h"
#include "bytemarks.h"

#include <QtTest>

#include <algorithm>
#include <cstring>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr std::size_t MB = std::size_t(1) << 20;

// Fraction of the pages in [p, p + bytes) that are in memory.
double residentShare(const void *p, std::size_t bytes)
{
    const std::size_t page = std::size_t(sysconf(_SC_PAGESIZE));
    std::vector<unsigned char> present((bytes + page - 1) / page);
    if (mincore(const_cast<void *>(p), bytes, present.data()) != 0)
        return -1;
    std::size_t in = 0;
    for (unsigned char c : present)
        in += c & 1;
    return double(in) / double(present.size());
}


// Whether this kernel can map pages ahead (Linux 5.14 and later).
bool canPopulate()
{
    void *p = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    const bool ok = p != MAP_FAILED && madvise(p, 4096, 23 /* MADV_POPULATE_WRITE */) == 0;
    if (p != MAP_FAILED)
        munmap(p, 4096);
    return ok;
}

} // namespace

class TestBigBlocks : public QObject
{
    Q_OBJECT
private slots:
    void sizes_data()
    {
        QTest::addColumn<qulonglong>("size");
        QTest::addColumn<bool>("taken");
        QTest::newRow("one byte short of the smallest") << qulonglong(BigBlocks::minSize - 1) << false;
        QTest::newRow("the smallest") << qulonglong(BigBlocks::minSize) << true;
        QTest::newRow("a whole slot") << qulonglong(BigBlocks::slotSize) << true;
        QTest::newRow("one byte more than a slot") << qulonglong(BigBlocks::slotSize + 1) << false;
        QTest::newRow("zero") << qulonglong(0) << false;
    }
    void sizes()
    {
        QFETCH(qulonglong, size);
        QFETCH(bool, taken);
        BigBlocks blocks;
        QVERIFY(blocks.start());
        void *p = blocks.allocate(size);
        QCOMPARE(p != nullptr, taken);
        if (!p)
            return;
        QVERIFY(blocks.owns(p));
        QCOMPARE(reinterpret_cast<std::uintptr_t>(p) % 4096, std::uintptr_t(0));
        QCOMPARE(blocks.usableSize(p), std::size_t(size));
        blocks.release(p);
    }

    void foreignPointers()
    {
        BigBlocks blocks;
        QVERIFY(!blocks.owns(&blocks)); // before start, nothing is its own
        QVERIFY(blocks.allocate(BigBlocks::minSize) == nullptr);
        QVERIFY(blocks.start());
        int onStack = 0;
        std::vector<char> onHeap(100);
        QVERIFY(!blocks.owns(&onStack));
        QVERIFY(!blocks.owns(onHeap.data()));
        QVERIFY(!blocks.owns(nullptr));
        auto *p = static_cast<char *>(blocks.allocate(BigBlocks::minSize));
        QVERIFY(p);
        // Inside a slot but not a block's start: its size is unknown, and
        // releasing it must not free the block.
        QCOMPARE(blocks.usableSize(p + 64), std::size_t(0));
        QVERIFY(!blocks.resize(p + 64, BigBlocks::minSize));
        blocks.release(p + 64);
        QCOMPARE(blocks.usableSize(p), BigBlocks::minSize);
        blocks.release(p);
    }

    void resizeKeepsContents_data()
    {
        QTest::addColumn<qulonglong>("from");
        QTest::addColumn<qulonglong>("to");
        QTest::newRow("grow") << qulonglong(10 * MB) << qulonglong(64 * MB);
        QTest::newRow("shrink below the smallest") << qulonglong(40 * MB) << qulonglong(1 * MB);
        QTest::newRow("to a whole slot") << qulonglong(8 * MB) << qulonglong(BigBlocks::slotSize);
    }
    void resizeKeepsContents()
    {
        QFETCH(qulonglong, from);
        QFETCH(qulonglong, to);
        BigBlocks blocks;
        QVERIFY(blocks.start());
        void *p = blocks.allocate(from);
        QVERIFY(p);
        markBytes(p, from, 7);
        QVERIFY(blocks.resize(p, to));
        QCOMPARE(blocks.usableSize(p), std::size_t(to));
        QVERIFY(hasMarks(p, std::min(from, to), 7));
        QVERIFY(!blocks.resize(p, BigBlocks::slotSize + 1));
        QCOMPARE(blocks.usableSize(p), std::size_t(to));
        blocks.release(p);
    }

    // The point of it all: a buffer as big as the one just freed lands on
    // pages that are still mapped.
    void freedPagesAreReused()
    {
        BigBlocks blocks;
        QVERIFY(blocks.start());
        const std::size_t size = 40 * MB;
        void *first = blocks.allocate(size);
        QVERIFY(first);
        markBytes(first, size, 1);
        blocks.release(first);
        void *second = blocks.allocate(size - MB); // the freed slot or the spare
        QVERIFY(second);
        QCOMPARE(residentShare(second, size - MB), 1.0);
        blocks.release(second);
    }

    // Only a few freed slots keep their pages; the smallest give them back.
    void sparesAreBounded()
    {
        BigBlocks blocks;
        QVERIFY(blocks.start());
        const std::size_t sizes[] = {8 * MB, 16 * MB, 24 * MB, 32 * MB};
        std::vector<void *> held;
        for (std::size_t size : sizes) {
            held.push_back(blocks.allocate(size));
            QVERIFY(held.back());
            markBytes(held.back(), size, 3);
        }
        blocks.waitForSpare(); // a spare as big as the biggest, besides these
        for (void *p : held)
            blocks.release(p);
        blocks.waitForSpare();
        int keeping = 0;
        std::size_t most = 0;
        for (int i = 0; i < BigBlocks::slotCount; ++i) {
            keeping += blocks.mappedBytes(i) > 0 ? 1 : 0;
            most = std::max(most, blocks.mappedBytes(i));
        }
        QCOMPARE(keeping, BigBlocks::spareSlots);
        QCOMPARE(most, sizes[3]);
        for (int i = 0; i < 3; ++i)
            QCOMPARE(residentShare(held[i], sizes[i]), 0.0);
    }

    // While a big block is in use, a free slot gets its pages mapped ahead,
    // so the next block of that size does not fault them in.
    void spareIsMappedAhead()
    {
        if (!canPopulate())
            QSKIP("this kernel cannot map pages ahead");
        BigBlocks blocks;
        QVERIFY(blocks.start());
        const std::size_t size = 48 * MB;
        void *inUse = blocks.allocate(size);
        QVERIFY(inUse);
        blocks.waitForSpare();
        void *next = blocks.allocate(size);
        QVERIFY(next);
        QVERIFY(next != inUse);
        QCOMPARE(residentShare(next, size), 1.0);
        blocks.release(next);
        blocks.release(inUse);
    }
};

QTEST_GUILESS_MAIN(TestBigBlocks)
#include "tst_bigblocks.moc"
