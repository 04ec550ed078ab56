#include "protocols/iebus.h"

#include "link/codetext.h"
#include "link/frame.h"
#include "mdb/mdb.h"
#include "protocols/bustransfer.h"

#include <QDebug>

namespace {

// The two address bytes in front of the payload are the box's own.
constexpr int payloadOffset = BoxFrame::busDataOffset + 2;

// Record layout: broadcast bit, master address, slave address, control,
// length, then the data bytes, the first of which names the message.
constexpr int broadcastByte = 0;
constexpr int masterOffset = 1;
constexpr int slaveOffset = 3;
constexpr int kindByte = 7;

constexpr quint16 unitAddress = 0x800;
constexpr quint16 remoteAddress = 0x901;
constexpr quint16 amountAddress = 0x932;
constexpr quint16 buttonFirst = 0x880;
constexpr quint16 buttonLast = 0x8BF;

constexpr CodeText individualMessages[] = {
    {0xC0, "<br>%1Segment display data setting"},
    {0xC1, "<br>%1Display request control"},
    {0x81, "<br>%1Serial number registration requirement"},
};

constexpr CodeText broadcastMessages[] = {
    {0x01, "<br>%1Serial number registration started"},
    {0x10, "<br>%1Serial number registration canceled"},
    {0x50, "<br>%1LED simultaneous ON/OFF indication"},
    {0xC8, "<br>%1Display request control"},
    {0xC9, "<br>%1Batch display request control"},
    {0xCB, "<br>%1Hot and cold batch display control"},
};


// A record may stop short of any field: a missing field counts as absent.
struct Address
{
    bool present = false;
    quint16 value = 0;
};

Address addressAt(const QByteArray &record, int offset)
{
    Address a;
    if (record.size() >= offset + 2) {
        a.present = true;
        a.value = be16(reinterpret_cast<const unsigned char *>(record.constData()) + offset);
    }
    return a;
}

bool is(const Address &a, quint16 value)
{
    return a.present && a.value == value;
}

bool isButton(const Address &a)
{
    return a.present && a.value >= buttonFirst && a.value <= buttonLast;
}

// The unit at 0x800 and the given address talk, in either direction.
bool between(const Address &a, const Address &b, quint16 other)
{
    return (is(a, unitAddress) && is(b, other)) || (is(b, unitAddress) && is(a, other));
}

bool filteredOut(const QByteArray &record, const Iebus::Filters &filters)
{
    const Address master = addressAt(record, masterOffset);
    const Address slave = addressAt(record, slaveOffset);
    if (!filters.button
        && ((is(master, unitAddress) && isButton(slave)) || (is(slave, unitAddress) && isButton(master))))
        return true;
    if (!filters.remote && between(master, slave, remoteAddress))
        return true;
    if (!filters.amount && between(master, slave, amountAddress))
        return true;
    return false;
}

// Last byte is the 8-bit sum of the others.
bool checksumOk(const QByteArray &payload)
{
    if (payload.size() < 2)
        return false;
    unsigned char sum = 0;
    for (int i = 0; i < payload.size() - 1; ++i)
        sum += static_cast<unsigned char>(payload.at(i));
    return sum == static_cast<unsigned char>(payload.back());
}

} // namespace

Iebus::Iebus(QObject *parent, MainWindow *mainWindow)
    : QObject(parent), mainWindow(mainWindow)
{
}

QString Iebus::colorOf(const QByteArray &record)
{
    return is(addressAt(record, masterOffset), unitAddress) ? QStringLiteral("black")
                                                            : QStringLiteral("green");
}

QString Iebus::describe(const QByteArray &record)
{
    const QString indent = QStringLiteral("&nbsp;&nbsp;&nbsp;&nbsp;");
    const bool broadcast = !record.isEmpty() && record.at(broadcastByte) == 0;
    QString text = QString::fromLatin1(broadcast ? "%1broadcast" : "%1individual").arg(indent);
    if (record.size() > kindByte) {
        const auto kind = static_cast<unsigned char>(record.at(kindByte));
        const char *more = broadcast ? lookup(broadcastMessages, kind) : lookup(individualMessages, kind);
        if (more)
            text += QString::fromLatin1(more).arg(indent);
    }
    return text;
}

QString Iebus::line(const QByteArray &frame, quint32 lastTickEnd, const Filters &filters,
                    bool interpret, QString *color)
{
    BusTransfer t;
    if (!readTransfer(frame, payloadOffset, &t))
        return QString();
    const QString gap = tickGap(t.startTick, lastTickEnd);
    if (!checksumOk(t.bytes))
        return QStringLiteral("<span style='color: red;'>%1 : %2</span>").arg(gap, hexStringGenerate(t.bytes));

    const QByteArray record = t.bytes.left(t.bytes.size() - 1);
    if (filteredOut(record, filters))
        return QString();
    const QString hex = hexStringGenerate(record);
    QString text;
    if (interpret) {
        *color = colorOf(record);
        text = describe(record);
    }
    if (!text.isEmpty())
        return QStringLiteral("<span style='color: %4;'>%1 : %2<br>%3</span>").arg(gap).arg(hex).arg(text).arg(*color);
    return QStringLiteral("<span style='color: %4;'>%1 : %2</span>").arg(gap).arg(hex).arg(*color);
}

QString Iebus::step(const QByteArray &frame, quint32 &lastTickEnd, const Filters &filters, bool interpret,
                    QString *color)
{
    if (!holdsTransfer(frame)) {
        qDebug() << "IEBus frame too short for a transfer:" << frame.size();
        return QString();
    }
    QString shown = line(frame, lastTickEnd, filters, interpret, color);
    // A hidden record leaves the gap counting from the last shown one.
    if (!shown.isNull())
        lastTickEnd = be32(frame, BoxFrame::endTickOffset);
    return shown;
}
