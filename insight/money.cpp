#include "insight/money.h"

#include "link/frame.h"

#include <QDateTime>

namespace Insight {

namespace {

const char *const neverEndedFlag = "requested, never ended";

QString itemText(quint16 item)
{
    return item == 0xFFFF ? QStringLiteral("item undefined") : QStringLiteral("item %1").arg(item);
}

// "coin type 2", told when the SETUP gave the type no value.
QString typeText(const char *what, int type, const Scaling &scaling, const Amount &amount)
{
    QString text = QStringLiteral("%1 type %2").arg(QLatin1String(what)).arg(type);
    if (scaling.known && amount.kind == Amount::None)
        text += QStringLiteral(" (no value in SETUP)");
    return text;
}

QString counted(qint64 n, const char *what)
{
    return QStringLiteral("%1 %2%3").arg(n).arg(QLatin1String(what)).arg(n == 1 ? "" : "s");
}

// Division rounding down, for host times before 1970 as well.
qint64 floorDiv(qint64 a, qint64 b)
{
    return a / b - (a % b != 0 && a < 0);
}

QString formatMoney(qint64 value, int decimals)
{
    QString digits = QString::number(value < 0 ? -value : value);
    if (decimals > 0) {
        if (digits.size() <= decimals)
            digits.prepend(QString(decimals + 1 - digits.size(), QLatin1Char('0')));
        digits.insert(digits.size() - decimals, QLatin1Char('.'));
    }
    return value < 0 ? QLatin1Char('-') + digits : digits;
}

// A changer's or validator's SETUP reply: its scaling, decimals and up to 16
// type credits (count may run past them; the rest is ignored).
Scaling setupScaling(quint32 factor, int decimals, const unsigned char *credits, int count)
{
    Scaling s;
    s.known = true;
    s.factor = factor;
    s.decimals = decimals;
    for (int i = 0; i < count && i < 16; ++i)
        s.credits[i] = credits[i];
    return s;
}

} // namespace

QString deviceName(int address)
{
    switch (address) {
    case 0x08:
        return QStringLiteral("coin changer");
    case 0x10:
        return QStringLiteral("cashless #1");
    case 0x30:
        return QStringLiteral("bill validator");
    case 0x60:
        return QStringLiteral("cashless #2");
    default:
        return QStringLiteral("other");
    }
}

QString hostTime(qint64 us)
{
    if (us == 0)
        return QString();
    return QDateTime::fromMSecsSinceEpoch(floorDiv(us, 1000)).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz"));
}

QString HostTimeText::operator()(qint64 us)
{
    if (us == 0)
        return QString();
    const qint64 ms = floorDiv(us, 1000);
    const qint64 m = floorDiv(ms, 60000);
    if (!cached || m != minute) {
        // Zones change their offset on a minute; an offset with seconds in it (old local mean times) is never cached.
        const QDateTime start = QDateTime::fromMSecsSinceEpoch(m * 60000);
        cached = start.time().second() == 0;
        minute = m;
        prefix = start.toString(QStringLiteral("yyyy-MM-dd HH:mm:"));
        if (!cached)
            return hostTime(us);
    }
    const int inMinute = int(ms - m * 60000);
    return prefix + QStringLiteral("%1.%2").arg(inMinute / 1000, 2, 10, QLatin1Char('0')).arg(inMinute % 1000, 3, 10, QLatin1Char('0'));
}

QString Amount::text() const
{
    switch (kind) {
    case Money:
        return formatMoney(value, decimals);
    case Raw:
        return QStringLiteral("%1 unscaled").arg(value);
    case Unscaled:
        return QStringLiteral("unscaled");
    case None:
        break;
    }
    return QString();
}

Amount Scaling::units(qint64 raw) const
{
    Amount a;
    a.kind = known ? Amount::Money : Amount::Raw;
    a.decimals = known ? decimals : 0;
    a.value = known ? raw * factor : raw;
    return a;
}

Amount Scaling::ofType(int type, int count) const
{
    Amount a;
    if (!known)
        a.kind = Amount::Unscaled;
    else if (type >= 0 && type < 16 && credits[type] != 0)
        a = units(qint64(count) * credits[type]);
    return a;
}

void MoneyLedger::Total::add(const Amount &amount, int sign)
{
    ++count;
    if (amount.kind == Amount::Money)
        byDecimals[amount.decimals] += sign * amount.value;
    else
        ++unvalued;
}

QString MoneyLedger::Total::text() const
{
    if (byDecimals.isEmpty())
        return QStringLiteral("0");
    QStringList parts;
    for (auto it = byDecimals.cbegin(); it != byDecimals.cend(); ++it)
        parts << formatMoney(it.value(), it.key());
    return parts.join(QStringLiteral(" + "));
}

MoneyLedger::MoneyLedger(int timelineLimit)
    : limit(qMax(1, timelineLimit))
{
}

void MoneyLedger::clear()
{
    const int keep = limit;
    const quint64 next = rev + 1;
    *this = MoneyLedger(keep);
    rev = next;
}

qint64 MoneyLedger::add(qint64 us, int address, const char *name, const Amount &amount, const QString &details)
{
    const qint64 seq = nextSeq++;
    Event e;
    e.seq = seq;
    e.us = us;
    e.address = address;
    e.name = name;
    e.amount = amount;
    e.details = details;
    events.push_back(std::move(e));
    if (int(events.size()) > limit) {
        events.pop_front();
        ++droppedRows;
    }
    ++rev;
    return seq;
}

void MoneyLedger::closeVend(Vend &vend, const char *flag)
{
    if (vend.state == Vend::Idle)
        return;
    vend.state = Vend::Idle;
    if (!*flag)
        return;
    if (flag == neverEndedFlag)
        ++neverEnded;
    else if (qstrcmp(flag, "denied") == 0)
        ++denied;
    else
        ++failed;
    // The request's row may already have left the timeline.
    if (!events.empty() && vend.seq >= events.front().seq)
        events[size_t(vend.seq - events.front().seq)].flag = flag;
    ++rev;
}

bool MoneyLedger::takesCommand(unsigned char c)
{
    const int address = c & 0xF8;
    const int code = c & 0x07;
    // DISPENSE, EXPANSION (PAYOUT), and a reader's RESET, VEND and REVALUE.
    return c == 0x0D || c == 0x0F
        || ((address == 0x10 || address == 0x60) && (code == 0x00 || code == 0x03 || code == 0x05));
}

bool MoneyLedger::takesReply(unsigned char command)
{
    const int address = command & 0xF8;
    return command == 0x09 || command == 0x0B || command == 0x31 || command == 0x33 || address == 0x10
        || address == 0x60;
}

void MoneyLedger::command(qint64 us, const unsigned char *d, int n)
{
    if (n < 1)
        return;
    const int args = n - 2; // between the command byte and the checksum
    const unsigned char c = d[0];
    const int address = c & 0xF8;
    if (c == 0x0D && args >= 1) {
        // DISPENSE: the high half counts the coins, the low half is the type.
        const int count = d[1] >> 4;
        const int type = d[1] & 0x0F;
        const Amount a = coin.ofType(type, count);
        cashOut.add(a);
        add(us, address, "coins paid out", a,
            QStringLiteral("DISPENSE %1 x %2").arg(count).arg(typeText("coin", type, coin, a)));
    } else if (c == 0x0F && args >= 2 && d[1] == 0x02) {
        // PAYOUT names a value in units of the coin scaling factor.
        const Amount a = coin.units(d[2]);
        cashOut.add(a);
        add(us, address, "coins paid out", a, QStringLiteral("PAYOUT"));
    } else if (address == 0x10 || address == 0x60) {
        readerCommand(us, address, d, n);
    }
}

void MoneyLedger::readerCommand(qint64 us, int address, const unsigned char *d, int n)
{
    const int args = n - 2;
    Reader &r = reader(address);
    const int code = d[0] - address;
    if (code == 0x00) { // RESET ends whatever was going on
        closeVend(r.vend, neverEndedFlag);
        return;
    }
    if (code == 0x05 && args >= 3 && d[1] == 0x00) {
        add(us, address, "revalue request", r.scaling.units(be16(d + 2)));
        return;
    }
    if (code != 0x03 || args < 1)
        return;
    const bool priced = args >= 5;
    const quint16 price = priced ? be16(d + 2) : 0;
    const quint16 item = priced ? be16(d + 4) : 0;
    switch (d[1]) {
    case 0x00:
    case 0x06:
        if (!priced)
            return;
        closeVend(r.vend, neverEndedFlag);
        r.vend = Vend();
        r.vend.state = Vend::Requested;
        r.vend.negative = d[1] == 0x06;
        r.vend.price = r.scaling.units(price);
        r.vend.seq = add(us, address, r.vend.negative ? "negative vend request" : "vend request", r.vend.price,
                         itemText(item));
        break;
    case 0x01:
        add(us, address, "vend cancel");
        break;
    case 0x02: {
        const QString details = args >= 3 ? itemText(be16(d + 2)) : QString();
        Amount sale;
        if (r.vend.state != Vend::Idle) {
            sale = r.vend.state == Vend::Approved && r.vend.approved.kind != Amount::None ? r.vend.approved
                                                                                        : r.vend.price;
            cashless.add(sale, r.vend.negative ? -1 : 1);
        }
        closeVend(r.vend, "");
        add(us, address, "vend success", sale, details);
        break;
    }
    case 0x03:
        add(us, address, "vend failure");
        closeVend(r.vend, r.vend.state == Vend::Approved ? "approved but failed" : "failed");
        break;
    case 0x04:
        add(us, address, "session complete");
        closeVend(r.vend, neverEndedFlag);
        break;
    case 0x05:
        if (priced)
            add(us, address, "cash sale", r.scaling.units(price), itemText(item));
        break;
    default:
        break;
    }
}

void MoneyLedger::reply(qint64 us, unsigned char command, const unsigned char *d, int n)
{
    const int m = n - 1; // without the checksum
    if (m < 1)
        return;
    const int address = command & 0xF8;
    switch (command) {
    case 0x09:
        // Feature level, country, scaling, decimals, routing, then up to 16 credits.
        if (m >= 7)
            coin = setupScaling(d[3], d[4], d + 7, m - 7);
        break;
    case 0x0B:
        coinPoll(us, d, m);
        break;
    case 0x31:
        // Feature level, country, 16-bit scaling, decimals, stacker, security, escrow, credits.
        if (m >= 11)
            bill = setupScaling(be16(d + 3), d[5], d + 11, m - 11);
        break;
    case 0x33:
        billPoll(us, d, m);
        break;
    default:
        if (address == 0x10 || address == 0x60)
            readerResponse(us, address, d, m);
        break;
    }
}

void MoneyLedger::coinPoll(qint64 us, const unsigned char *p, int m)
{
    for (int i = 0; i < m;) {
        const unsigned char b = p[i];
        if (b & 0xC0) {
            // Coins dispensed by hand (1yyyxxxx) or deposited (01yyxxxx), then the tube's count.
            const bool manual = b & 0x80;
            const int type = b & 0x0F;
            const int count = manual ? (b >> 4) & 0x07 : 1;
            const int route = (b >> 4) & 0x03;
            const Amount a = coin.ofType(type, count);
            QString details = typeText("coin", type, coin, a);
            if (manual)
                details.prepend(QStringLiteral("%1 x ").arg(count));
            if (i + 1 < m)
                details += QStringLiteral(", %1 in tube").arg(p[i + 1]);
            static const char *const routes[] = {"coin to cash box", "coin to tube", "coin deposited", "coin rejected"};
            add(us, 0x08, manual ? "coins dispensed by hand" : routes[route], a, details);
            if (!manual && route <= 1) {
                cashIn.add(a);
                ++coinsIn;
            }
            i += 2;
        } else {
            if (b & 0x20)
                add(us, 0x08, "slugs", Amount(), QStringLiteral("%1 unrecognised").arg(b & 0x1F));
            ++i; // otherwise a status byte
        }
    }
}

void MoneyLedger::billPoll(qint64 us, const unsigned char *p, int m)
{
    static const char *const routes[] = {"bill stacked",     "bill escrowed",           "bill returned",
                                         "bill to recycler", "bill rejected",           "bill to recycler (manual fill)",
                                         "bill dispensed by hand", "bill recycler to cash box"};
    for (int i = 0; i < m; ++i) {
        const unsigned char b = p[i];
        if (b & 0x80) {
            const int route = (b >> 4) & 0x07;
            const int type = b & 0x0F;
            const Amount a = bill.ofType(type, 1);
            QString details = typeText("bill", type, bill, a);
            if (route == 4)
                details += QStringLiteral(", validator disabled");
            add(us, 0x30, routes[route], a, details);
            if (route == 0 || route == 3) {
                cashIn.add(a);
                ++billsIn;
            }
        } else if (b == 0x0B) {
            add(us, 0x30, "bill rejected", Amount(), QStringLiteral("not recognised"));
        }
    }
}

void MoneyLedger::readerResponse(qint64 us, int address, const unsigned char *p, int m)
{
    Reader &r = reader(address);
    // The reader's first response only, as the line shows it.
    switch (p[0]) {
    case 0x01:
        if (m >= 6) {
            r.scaling.known = true;
            r.scaling.factor = p[4];
            r.scaling.decimals = p[5];
        }
        break;
    case 0x03:
        if (m >= 3) {
            closeVend(r.vend, neverEndedFlag);
            const quint16 funds = be16(p + 1);
            if (funds == 0xFFFF)
                add(us, address, "begin session", Amount(), QStringLiteral("funds not yet known"));
            else if (funds == 0xFFFE)
                add(us, address, "begin session", Amount(), QStringLiteral("funds unlimited"));
            else
                add(us, address, "begin session", r.scaling.units(funds));
        }
        break;
    case 0x05:
        if (m >= 3) {
            const quint16 raw = be16(p + 1);
            const Amount a = raw == 0xFFFF ? Amount() : r.scaling.units(raw);
            add(us, address, "vend approved", a, raw == 0xFFFF ? QStringLiteral("electronic token") : QString());
            if (r.vend.state != Vend::Idle) {
                r.vend.state = Vend::Approved;
                r.vend.approved = a;
            }
        }
        break;
    case 0x06:
        add(us, address, "vend denied");
        closeVend(r.vend, "denied");
        break;
    case 0x07:
        add(us, address, "end session");
        closeVend(r.vend, neverEndedFlag);
        break;
    case 0x0D:
        add(us, address, "revalue approved");
        break;
    case 0x0E:
        add(us, address, "revalue denied");
        break;
    default:
        break;
    }
}

BusInsight::Table MoneyLedger::table() const
{
    BusInsight::Table t;
    t.header = QStringList{"#", "time", "device", "event", "amount", "details", "flag"};
    t.rows.reserve(qsizetype(events.size()) + 5);
    HostTimeText time;
    for (const Event &e : events) {
        const char *flag = e.flag;
        for (const Reader &r : readers)
            if (r.vend.state != Vend::Idle && r.vend.seq == e.seq)
                flag = neverEndedFlag;
        t.rows.append(QVariantList{e.seq, time(e.us), deviceName(e.address), QString::fromLatin1(e.name),
                                   e.amount.text(), e.details, QString::fromLatin1(flag)});
    }

    const auto unvalued = [](const Total &total) {
        return total.unvalued ? QStringLiteral("; %1 without a value left out").arg(total.unvalued) : QString();
    };
    const auto summary = [&t](const QString &what, const QString &amount, const QString &details) {
        t.rows.append(QVariantList{QString(), QString(), QString(), what, amount, details, QStringLiteral("summary")});
    };
    summary(QStringLiteral("cash in"), cashIn.text(),
            counted(coinsIn, "coin") + QStringLiteral(", ") + counted(billsIn, "bill") + unvalued(cashIn));
    summary(QStringLiteral("cash out"), cashOut.text(), counted(cashOut.count, "payout") + unvalued(cashOut));
    summary(QStringLiteral("cashless sales"), cashless.text(), counted(cashless.count, "vend") + unvalued(cashless));
    qint64 open = 0;
    for (const Reader &r : readers)
        open += r.vend.state != Vend::Idle;
    summary(QStringLiteral("flagged vends"), QString(),
            QStringLiteral("%1 denied, %2 failed, %3 never ended").arg(denied).arg(failed).arg(neverEnded + open));
    if (droppedRows)
        summary(QStringLiteral("rows dropped"), QString(),
                QStringLiteral("%1 oldest rows left the timeline (it keeps %2)").arg(droppedRows).arg(limit));
    return t;
}

} // namespace Insight
