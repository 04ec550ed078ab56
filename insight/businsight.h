#ifndef BUSINSIGHT_H
#define BUSINSIGHT_H

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QtGlobal>

#include <memory>

class QByteArray;

// Bus insight: how healthy each MDB device's traffic is, and where the money
// went, from the same box frames the lines are made of. Qt Core only; the
// window refreshes its docks from the tables at a human rate.
//
// Host times are microseconds since the epoch as the capture gives them; in
// the tables they read "yyyy-MM-dd HH:mm:ss.zzz" in local time, or are empty
// for time 0 (a raw dump has no host time).
class BusInsight
{
public:
    // The money timeline keeps this many rows; beyond it the oldest go (the
    // summary still counts them).
    static constexpr int defaultTimelineLimit = 100000;

    explicit BusInsight(int timelineLimit = defaultTimelineLimit);
    ~BusInsight();
    BusInsight(const BusInsight &) = delete;
    BusInsight &operator=(const BusInsight &) = delete;

    // Every accepted box frame, any kind and mode; MDB bus data feeds the
    // devices and the money, the rest is only counted.
    void addFrame(qint64 hostUs, const QByteArray &frame);
    void addFccError();
    void addNoise(qint64 bytes);
    void addWatchdogReopen();
    void addPortLost();
    void clear();

    // Cells are qint64 where the value is a count or a tick gap, so a sort is
    // numeric; strings otherwise (an empty string for "none").
    struct Table
    {
        QStringList header;
        QList<QVariantList> rows;
    };

    // One row per MDB address a command was sent to, by address: "address"
    // (two hex digits), "device", "commands", "replies" (everything the device
    // sent: data, ACK, NAK), "ACK", "NAK" (either side's, in the device's
    // exchanges), "RET", "checksum errors", "late replies" (gap above 5 ticks),
    // "gap min", "gap median" (the lower one; "<0" or ">255" when it falls
    // outside 0 to 255), "gap max" (reply gaps in ticks), "last message".
    // Then the link's rows, address "link", the figure's name as the device
    // and its number in the last column, "link count": box frames, FCC
    // errors, noise bytes, watchdog reopens, port lost, MDB replies with no
    // command before them.
    Table statistics() const;
    // The timeline, oldest first: "#" (running number, dropped rows counted),
    // "time", "device", "event", "amount" ("0.50"; "5 unscaled" or "unscaled"
    // before the device's SETUP; empty when the event has no amount),
    // "details", "flag". A vend request is flagged "denied", "approved but
    // failed", "failed" or "requested, never ended" (so is one still open
    // now). Then the summary rows, flagged "summary": cash in (coins to tube
    // or cash box, bills stacked or to the recycler), cash out (DISPENSE and
    // PAYOUT), cashless sales (successful vends less negative ones), flagged
    // vends, and dropped rows when there are any.
    Table money() const;

    // Bumps on every change, so a view refreshes only when needed. Every
    // frame changes the statistics; the money revision moves only when the
    // money table changes.
    quint64 revision() const;
    quint64 statisticsRevision() const { return revision(); }
    quint64 moneyRevision() const;
    qint64 droppedRows() const;

private:
    struct State;
    std::unique_ptr<State> d;
};

// RFC 4180: a header record, CRLF after every record, fields holding a comma,
// quote, CR or LF in quotes with their quotes doubled.
QString toCsv(const BusInsight::Table &table);

#endif // BUSINSIGHT_H
