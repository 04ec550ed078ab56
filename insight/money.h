#ifndef INSIGHT_MONEY_H
#define INSIGHT_MONEY_H

// The money side of the bus insight: SETUP scaling, the event timeline and
// its summary. It is told only about messages the other side took: a command
// its device acknowledged or answered, a reply the VMC acknowledged.

#include "insight/businsight.h"

#include <QMap>
#include <QString>
#include <QtGlobal>

#include <deque>

namespace Insight {

// "coin changer", "bill validator", "cashless #1", "cashless #2" or "other".
QString deviceName(int address);
// Local time with milliseconds, or an empty string for time 0.
QString hostTime(qint64 us);

// hostTime for many rows: rows of one minute share one local-time conversion,
// the costly part of a table of 100 000 rows.
class HostTimeText
{
public:
    QString operator()(qint64 us);

private:
    qint64 minute = 0;
    bool cached = false;
    QString prefix; // "yyyy-MM-dd HH:mm:"
};

// A sum of money as the device counts it: value in units of 10^-decimals.
struct Amount
{
    enum Kind : quint8 {
        None,     // the event has no amount, or the device gave it no value
        Money,    // value and decimals known
        Raw,      // a number the device's SETUP would scale: "5 unscaled"
        Unscaled, // needs the SETUP to be known at all (a coin type's value)
    };
    Kind kind = None;
    int decimals = 0;
    qint64 value = 0;

    QString text() const;
};

// What a device's SETUP reply says about its money.
struct Scaling
{
    bool known = false;
    quint32 factor = 1;
    int decimals = 0;
    quint8 credits[16] = {}; // per coin or bill type, in units of the factor

    Amount units(qint64 raw) const;
    Amount ofType(int type, int count) const;
};

class MoneyLedger
{
public:
    explicit MoneyLedger(int timelineLimit);

    void clear();
    // Whether a command or the reply to it can tell anything about money:
    // the POLLs and their ACKs, most of the traffic, are never copied.
    static bool takesCommand(unsigned char c);
    static bool takesReply(unsigned char command);
    // d holds the n data bytes of the message, checksum last.
    void command(qint64 us, const unsigned char *d, int n);
    void reply(qint64 us, unsigned char command, const unsigned char *d, int n);

    BusInsight::Table table() const;
    quint64 revision() const { return rev; }
    qint64 dropped() const { return droppedRows; }

private:
    struct Event
    {
        qint64 seq = 0;
        qint64 us = 0;
        int address = 0;
        const char *name = "";
        Amount amount;
        QString details;
        const char *flag = "";
    };

    // Totals by decimal places, so mixed SETUPs never add unlike units.
    struct Total
    {
        QMap<int, qint64> byDecimals;
        qint64 count = 0;
        qint64 unvalued = 0;
        void add(const Amount &amount, int sign = 1);
        QString text() const;
    };

    struct Vend
    {
        enum State { Idle, Requested, Approved };
        State state = Idle;
        qint64 seq = 0;
        bool negative = false;
        Amount price;
        Amount approved;
    };

    struct Reader
    {
        Scaling scaling;
        Vend vend;
    };

    qint64 add(qint64 us, int address, const char *name, const Amount &amount = Amount(),
               const QString &details = QString());
    void closeVend(Vend &vend, const char *flag);
    void coinPoll(qint64 us, const unsigned char *p, int m);
    void billPoll(qint64 us, const unsigned char *p, int m);
    void readerCommand(qint64 us, int address, const unsigned char *d, int n);
    void readerResponse(qint64 us, int address, const unsigned char *p, int m);
    Reader &reader(int address) { return readers[address == 0x60 ? 1 : 0]; }

    int limit;
    std::deque<Event> events;
    qint64 nextSeq = 1;
    qint64 droppedRows = 0;
    quint64 rev = 0;

    Scaling coin;
    Scaling bill;
    Reader readers[2];

    Total cashIn;
    Total cashOut;
    Total cashless;
    qint64 coinsIn = 0;
    qint64 billsIn = 0;
    qint64 denied = 0;
    qint64 failed = 0;
    qint64 neverEnded = 0;
};

} // namespace Insight

#endif // INSIGHT_MONEY_H
