// The MDB line builder and interpreter: sequences of messages so that every
// reply decoder is reached through the command before it. Most messages go
// through the line builder alone, the rest through packageProcess and the log
// view, which costs a hundred times more. Every frame also feeds the bus
// insight, whose tables are built at the end.
#include "fuzzsupport.h"

#include "insight/businsight.h"
#include "mdb/mdb.h"

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    MainWindow *w = fuzz::window();
    MDB *mdb = w->mdb;
    fuzz::Input in(data, size);
    const unsigned char flags = in.byte();
    fuzz::configure(w, 0, flags);
    MDB::Filters filters;
    filters.poll = flags & 0x02;
    filters.coin = flags & 0x04;
    filters.bill = flags & 0x08;
    filters.card = flags & 0x10;
    // The line builder's own copies of what packageProcess keeps in statics.
    static quint32 lastTickEnd = 0;
    static int lastCmd = 8888;

    // A short timeline now and then, so rows are dropped and vends flagged after their row left.
    BusInsight insight(flags & 0x20 ? 3 : BusInsight::defaultTimelineLimit);
    qint64 hostUs = 0;

    quint32 tick = quint32(in.word()) << 8;
    while (!in.atEnd()) {
        const unsigned char op = in.byte();
        const QByteArray bytes = in.take(in.byte());
        const int kind = op & 7;
        if (kind < 4) {
            // A message as the box frames it: data and mode-bit pairs.
            const quint32 start = tick + (op >> 3);
            tick = start + quint32(bytes.size());
            const QByteArray frame = fuzz::busFrame(start, tick, kind & 1, 0, bytes);
            insight.addFrame(hostUs += op, frame);
            if (kind < 2)
                mdb->renderLine(frame, filters, w->interpret, lastTickEnd, lastCmd);
            else
                mdb->packageProcess(frame);
        } else if (kind == 4) {
            // The interpreter alone, with arrays of unequal length too.
            const int split = qMin(int(op >> 3), int(bytes.size()));
            mdb->interpretor(bytes.mid(split), bytes.left(split));
        } else if (kind == 5) {
            // Whatever the receiver might pass, short frames included.
            mdb->packageProcess(bytes);
            insight.addFrame(-hostUs, bytes);
        } else {
            mdb->renderLine(bytes, filters, w->interpret, lastTickEnd, lastCmd);
            insight.addFrame(hostUs, bytes);
            insight.addNoise(qint64(op) - 128);
        }
        const unsigned char c = mdb->lastCommand;
        if (c && !mdb->coinCommands.contains(c) && !mdb->billCommands.contains(c)
            && !mdb->cashless1Commands.contains(c) && !mdb->cashless2Commands.contains(c)) {
            std::fprintf(stderr, "mdb: lastCommand 0x%02x is no known command\n", c);
            std::abort();
        }
    }
    for (const BusInsight::Table &table : {insight.statistics(), insight.money()}) {
        for (const QVariantList &row : table.rows)
            if (row.size() != table.header.size()) {
                std::fprintf(stderr, "insight: a row of %d cells under %d headings\n", int(row.size()),
                             int(table.header.size()));
                std::abort();
            }
        (void)toCsv(table);
    }
    fuzz::settle(w);
    return 0;
}
