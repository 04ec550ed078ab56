#include "insight/businsight.h"

#include "insight/money.h"
#include "link/frame.h"
#include "mdb/message.h"

#include <array>
#include <vector>

using Insight::deviceName;
using Insight::hostTime;
using MdbMessage::Kind;

namespace {

// A reply later than this many ticks is drawn red in the lines.
constexpr qint32 lateGap = 5;

struct Device
{
    bool seen = false;
    qint64 commands = 0;
    qint64 replies = 0;
    qint64 acks = 0;
    qint64 naks = 0;
    qint64 rets = 0;
    qint64 checksumErrors = 0;
    qint64 late = 0;
    qint64 lastUs = 0;
    // Reply gaps: exact from 0 to 255, counted beyond, so the median needs no list.
    qint64 gaps = 0;
    qint32 gapMin = 0;
    qint32 gapMax = 0;
    qint64 below = 0;
    qint64 above = 0;
    std::array<qint64, 256> histogram{};

    void addGap(qint32 gap)
    {
        gapMin = gaps ? qMin(gapMin, gap) : gap;
        gapMax = gaps ? qMax(gapMax, gap) : gap;
        ++gaps;
        if (gap < 0)
            ++below;
        else if (gap > 255)
            ++above;
        else
            ++histogram[size_t(gap)];
        if (gap > lateGap)
            ++late;
    }

    QVariant median() const
    {
        qint64 rank = (gaps - 1) / 2;
        if (rank < below)
            return QStringLiteral("<0");
        rank -= below;
        for (int g = 0; g < 256; ++g) {
            if (rank < histogram[size_t(g)])
                return qint64(g);
            rank -= histogram[size_t(g)];
        }
        return QStringLiteral(">255");
    }
};

// A message copied out of its frame, waiting for the other side's word.
// Exactly its size, so a decoder reading past it is caught by the sanitizer.
struct Pending
{
    bool valid = false;
    qint64 us = 0;
    unsigned char command = 0;
    std::vector<unsigned char> bytes;

    void take(qint64 hostUs, unsigned char context, const MdbMessage::InPlace &m)
    {
        std::vector<unsigned char> copy(size_t(m.size()));
        for (int i = 0; i < m.size(); ++i)
            copy[size_t(i)] = m.data(i);
        bytes.swap(copy);
        valid = true;
        us = hostUs;
        command = context;
    }
};

} // namespace

struct BusInsight::State
{
    explicit State(int limit)
        : ledger(limit)
    {
    }

    void mdb(qint64 us, const QByteArray &frame);
    Device *current() { return lastAddress < 0 ? nullptr : &devices[size_t(lastAddress >> 3)]; }

    quint64 revision = 0;
    qint64 frames = 0;
    qint64 fccErrors = 0;
    qint64 noiseBytes = 0;
    qint64 reopens = 0;
    qint64 portLost = 0;
    qint64 orphans = 0;

    quint32 lastTickEnd = 0;
    int lastAddress = -1;
    unsigned char lastCommand = 0;
    std::array<Device, 32> devices{};
    // A command counts once its device ACKs or answers it, a reply once the VMC ACKs it.
    Pending command;
    Pending reply;
    Insight::MoneyLedger ledger;
};

void BusInsight::State::mdb(qint64 us, const QByteArray &frame)
{
    MdbMessage::InPlace m;
    if (!m.read(frame))
        return;
    // The gap as the line shows it: modulo 2^32, then signed.
    const qint32 gap = static_cast<qint32>(be32(frame, BoxFrame::startTickOffset) - lastTickEnd);
    lastTickEnd = be32(frame, BoxFrame::endTickOffset);
    const int n = m.size();
    const Kind kind = m.kind();
    if (kind == Kind::Empty)
        return;
    const bool sumOk = MdbMessage::checksumOk(m.bytes(), n, 2);
    const unsigned char first = m.data(0);

    // A lone marked FF is a peripheral's NAK; any other lone marked byte is
    // a command only when it is a known one (the lines ignore the rest).
    const bool peripheralNak = kind == Kind::Command && n == 1 && first == 0xFF;
    if (kind == Kind::Command && !peripheralNak) {
        if (n == 1 && !MdbMessage::knownCommand(first))
            return;
        lastAddress = first & 0xF8;
        lastCommand = first;
        Device &dev = devices[size_t(lastAddress >> 3)];
        dev.seen = true;
        ++dev.commands;
        dev.checksumErrors += !sumOk;
        dev.lastUs = us;
        // A reply the VMC left unacknowledged is sent again: it was not taken.
        reply.valid = false;
        command.valid = false;
        if (sumOk && Insight::MoneyLedger::takesCommand(first))
            command.take(us, first, m);
        return;
    }

    Device *dev = current();
    const bool fromPeripheral = peripheralNak || kind == Kind::PeripheralAck || kind == Kind::Reply;
    if (!dev) {
        orphans += fromPeripheral;
        return;
    }
    dev->lastUs = us;
    if (fromPeripheral) {
        ++dev->replies;
        dev->addGap(gap);
        if (peripheralNak) {
            ++dev->naks;
            command.valid = false;
            return;
        }
        if (command.valid) // the device took it
            ledger.command(command.us, command.bytes.data(), int(command.bytes.size()));
        command.valid = false;
        if (kind == Kind::PeripheralAck) {
            ++dev->acks;
            return;
        }
        dev->checksumErrors += !sumOk;
        reply.valid = false;
        if (sumOk && Insight::MoneyLedger::takesReply(lastCommand))
            reply.take(us, lastCommand, m);
        return;
    }
    switch (kind) {
    case Kind::VmcAck:
        ++dev->acks;
        if (reply.valid)
            ledger.reply(reply.us, reply.command, reply.bytes.data(), int(reply.bytes.size()));
        break;
    case Kind::VmcNak:
        ++dev->naks;
        break;
    case Kind::VmcRet:
        ++dev->rets;
        break;
    default:
        break;
    }
    reply.valid = false;
}

BusInsight::BusInsight(int timelineLimit)
    : d(std::make_unique<State>(timelineLimit))
{
}

BusInsight::~BusInsight() = default;

void BusInsight::addFrame(qint64 hostUs, const QByteArray &frame)
{
    ++d->revision;
    ++d->frames;
    if (frame.size() < BoxFrame::busDataOffset + BoxFrame::trailerSize
        || static_cast<unsigned char>(frame.at(4)) != BoxFrame::KindBusData || frame.at(BoxFrame::modeOffset) != 0)
        return;
    d->mdb(hostUs, frame);
}

void BusInsight::addFccError()
{
    ++d->revision;
    ++d->fccErrors;
}

void BusInsight::addNoise(qint64 bytes)
{
    ++d->revision;
    d->noiseBytes += qMax<qint64>(0, bytes);
}

void BusInsight::addWatchdogReopen()
{
    ++d->revision;
    ++d->reopens;
}

void BusInsight::addPortLost()
{
    ++d->revision;
    ++d->portLost;
}

void BusInsight::clear()
{
    auto fresh = std::make_unique<State>(1);
    fresh->revision = d->revision + 1;
    fresh->ledger = std::move(d->ledger);
    fresh->ledger.clear(); // keeps its row limit, and its revision moves on
    d = std::move(fresh);
}

BusInsight::Table BusInsight::statistics() const
{
    Table t;
    t.header = QStringList{"address", "device", "commands", "replies", "ACK", "NAK", "RET", "checksum errors",
                           "late replies", "gap min", "gap median", "gap max", "last message", "link count"};
    for (int i = 0; i < int(d->devices.size()); ++i) {
        const Device &dev = d->devices[size_t(i)];
        if (!dev.seen)
            continue;
        const int address = i << 3;
        const bool gaps = dev.gaps > 0;
        t.rows.append(QVariantList{QStringLiteral("%1").arg(address, 2, 16, QLatin1Char('0')).toUpper(),
                                   deviceName(address), dev.commands, dev.replies, dev.acks, dev.naks, dev.rets,
                                   dev.checksumErrors, dev.late,
                                   gaps ? QVariant(qint64(dev.gapMin)) : QVariant(QString()),
                                   gaps ? dev.median() : QVariant(QString()),
                                   gaps ? QVariant(qint64(dev.gapMax)) : QVariant(QString()), hostTime(dev.lastUs),
                                   QString()});
    }
    const auto link = [&t](const char *what, qint64 count) {
        QVariantList row(t.header.size(), QVariant(QString()));
        row[0] = QStringLiteral("link");
        row[1] = QString::fromLatin1(what);
        row.back() = count;
        t.rows.append(row);
    };
    link("box frames", d->frames);
    link("FCC errors", d->fccErrors);
    link("noise bytes", d->noiseBytes);
    link("watchdog reopens", d->reopens);
    link("port lost", d->portLost);
    link("MDB replies with no command before them", d->orphans);
    return t;
}

BusInsight::Table BusInsight::money() const
{
    return d->ledger.table();
}

quint64 BusInsight::revision() const
{
    return d->revision;
}

quint64 BusInsight::moneyRevision() const
{
    return d->ledger.revision();
}

qint64 BusInsight::droppedRows() const
{
    return d->ledger.dropped();
}

QString toCsv(const BusInsight::Table &table)
{
    const auto field = [](const QString &text) {
        if (!text.contains(QLatin1Char(',')) && !text.contains(QLatin1Char('"')) && !text.contains(QLatin1Char('\r'))
            && !text.contains(QLatin1Char('\n')))
            return text;
        QString quoted = text;
        quoted.replace(QLatin1Char('"'), QLatin1String("\"\""));
        return QLatin1Char('"') + quoted + QLatin1Char('"');
    };
    QString out;
    const auto record = [&](const QStringList &fields) {
        for (int i = 0; i < fields.size(); ++i) {
            if (i)
                out += QLatin1Char(',');
            out += field(fields.at(i));
        }
        out += QLatin1String("\r\n");
    };
    record(table.header);
    for (const QVariantList &row : table.rows) {
        QStringList fields;
        fields.reserve(row.size());
        for (const QVariant &cell : row)
            fields << cell.toString();
        record(fields);
    }
    return out;
}
