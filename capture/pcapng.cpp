#include "capture/pcapng.h"

#include "link/codetext.h"
#include "link/frame.h"

#include <QVector>
#include <QtEndian>

#include <cstring>
#include <limits>

namespace Pcapng {

namespace {

constexpr quint32 sectionType = 0x0A0D0D0A; // reads the same in both byte orders
constexpr quint32 interfaceType = 1;
constexpr quint32 packetType = 6;
constexpr quint32 byteOrderMagic = 0x1A2B3C4D;

constexpr quint16 optEnd = 0;
constexpr quint16 optUserApplication = 4;
constexpr quint16 optIfName = 2;
constexpr quint16 optIfDescription = 3;
constexpr quint16 optIfTsresol = 9;

// Type and leading length in front of the body, trailing length after it.
constexpr qint64 blockHeader = 8;
constexpr qint64 blockOverhead = 12;
constexpr qint64 sectionMinimum = blockOverhead + 16;
constexpr qint64 interfaceMinimum = blockOverhead + 8;
constexpr qint64 packetMinimum = blockOverhead + 20;

constexpr qint64 padded(qint64 n)
{
    return (n + 3) & ~qint64(3);
}

// ---- writing (always little-endian) ----

void put16(QByteArray &out, quint16 v)
{
    char b[2];
    qToLittleEndian(v, b);
    out.append(b, 2);
}

void put32(QByteArray &out, quint32 v)
{
    char b[4];
    qToLittleEndian(v, b);
    out.append(b, 4);
}

void putOption(QByteArray &out, quint16 code, const QByteArray &value)
{
    put16(out, code);
    put16(out, quint16(value.size()));
    out.append(value);
    out.append(QByteArray(padded(value.size()) - value.size(), '\0'));
}

QByteArray block(quint32 type, const QByteArray &body)
{
    const auto total = quint32(blockOverhead + body.size());
    QByteArray out;
    put32(out, type);
    put32(out, total);
    out.append(body);
    put32(out, total);
    return out;
}

// ---- reading ----

struct Interface
{
    quint32 linkType = 0;
    int exponent = 6; // time stamps count 10^-exponent seconds
};

constexpr CodeText linkTypeNames[] = {
    {0, "BSD loopback"}, {1, "Ethernet"}, {101, "raw IP"}, {105, "Wi-Fi"},
    {113, "Linux cooked"}, {276, "Linux cooked"}, {300, "MDB export"},
};

QString linkTypeText(quint32 type)
{
    const QString text = QStringLiteral("link type %1").arg(type);
    const char *name = type <= 0xFFFF ? lookup(linkTypeNames, int(type)) : nullptr;
    return name ? text + QStringLiteral(" (%1?)").arg(QLatin1String(name)) : text;
}

QString countText(qint64 n, const QString &what)
{
    return QStringLiteral("%1 %2%3").arg(n).arg(what, n == 1 ? QString() : QStringLiteral("s"));
}

// Ticks of 10^-exponent seconds as microseconds; false when they do not fit.
bool toMicroseconds(quint64 ticks, int exponent, qint64 *us)
{
    quint64 scale = 1;
    for (int i = 0; i < qAbs(exponent - 6); ++i)
        scale *= 10;
    const auto most = quint64(std::numeric_limits<qint64>::max());
    if (exponent >= 6) {
        ticks /= scale;
    } else {
        if (ticks > most / scale)
            return false;
        ticks *= scale;
    }
    if (ticks > most)
        return false;
    *us = qint64(ticks);
    return true;
}

class Reader
{
public:
    Reader(const unsigned char *data, qint64 size,
           const std::function<void(qint64, const QByteArray &)> &onPacket)
        : data(data), size(size), onPacket(onPacket)
    {
    }

    Result run();

private:
    const unsigned char *data;
    qint64 size;
    const std::function<void(qint64, const QByteArray &)> &onPacket;
    bool bigEndian = false;
    bool inSection = false;
    QVector<Interface> interfaces;
    Result result;
    qint64 foreignPackets = 0;
    quint32 foreignLinkType = 0;

    quint16 u16(qint64 at) const
    {
        return bigEndian ? be16(data + at) : qFromLittleEndian<quint16>(data + at);
    }
    quint32 u32(qint64 at) const
    {
        return bigEndian ? be32(data + at) : qFromLittleEndian<quint32>(data + at);
    }

    bool stop(Result::Status status, const QString &message)
    {
        result.status = status;
        result.message = message;
        return false;
    }
    bool damaged(const QString &message) { return stop(Result::Damaged, message); }
    bool truncated(qint64 at)
    {
        return stop(Result::Truncated, QStringLiteral("the file ends in the middle of a block at byte %1 after %2")
                                           .arg(at)
                                           .arg(countText(result.packets, QStringLiteral("frame"))));
    }

    bool blockAt(qint64 at, qint64 *length);
    bool sectionBlock(qint64 at, qint64 length);
    bool interfaceBlock(qint64 at, qint64 length);
    bool packetBlock(qint64 at, qint64 length);
    bool timeExponent(qint64 block, qint64 length, int *exponent);
};

Result Reader::run()
{
    if (size <= 0) {
        stop(Result::Truncated, QStringLiteral("the file is empty"));
        return result;
    }
    qint64 at = 0;
    qint64 length = 0;
    while (at < size && blockAt(at, &length))
        at += length;
    if (result.status == Result::Ok && foreignPackets > 0)
        stop(Result::ForeignLinkType,
             QStringLiteral("%1 is not a Vendscope capture (%2 skipped)")
                 .arg(linkTypeText(foreignLinkType), countText(foreignPackets, QStringLiteral("packet"))));
    return result;
}

// Checks the block's framing (every length before anything inside is read),
// then handles it. False stops the reading.
bool Reader::blockAt(qint64 at, qint64 *length)
{
    const qint64 left = size - at;
    if (left < blockOverhead)
        return truncated(at);
    quint32 type = qFromLittleEndian<quint32>(data + at);
    if (type == sectionType) {
        const quint32 magic = qFromLittleEndian<quint32>(data + at + blockHeader);
        if (magic != byteOrderMagic && be32(data + at + blockHeader) != byteOrderMagic)
            return damaged(QStringLiteral("the section at byte %1 has no valid byte-order mark").arg(at));
        bigEndian = magic != byteOrderMagic;
    } else if (!inSection) {
        return damaged(QStringLiteral("this is not a pcapng capture: it does not start with a section header"));
    } else {
        type = u32(at);
    }
    *length = u32(at + 4);
    if (*length < blockOverhead || *length % 4 != 0)
        return damaged(QStringLiteral("a block at byte %1 gives a length of %2 bytes").arg(at).arg(*length));
    if (*length > left)
        return truncated(at);
    const quint32 trailing = u32(at + *length - 4);
    if (trailing != *length)
        return damaged(QStringLiteral("a block at byte %1 starts with a length of %2 bytes but ends with %3")
                           .arg(at)
                           .arg(*length)
                           .arg(trailing));
    switch (type) {
    case sectionType: return sectionBlock(at, *length);
    case interfaceType: return interfaceBlock(at, *length);
    case packetType: return packetBlock(at, *length);
    default: return true; // blocks we have no use for
    }
}

bool Reader::sectionBlock(qint64 at, qint64 length)
{
    if (length < sectionMinimum)
        return damaged(QStringLiteral("the section header at byte %1 is too short").arg(at));
    const quint16 major = u16(at + blockHeader + 4);
    if (major != 1)
        return damaged(QStringLiteral("the section at byte %1 is pcapng version %2.%3, which this program cannot read")
                           .arg(at)
                           .arg(major)
                           .arg(u16(at + blockHeader + 6)));
    inSection = true;
    interfaces.clear(); // interface numbers start again in every section
    return true;
}

bool Reader::interfaceBlock(qint64 at, qint64 length)
{
    if (length < interfaceMinimum)
        return damaged(QStringLiteral("the interface block at byte %1 is too short").arg(at));
    Interface i;
    i.linkType = u16(at + blockHeader);
    if (!timeExponent(at, length, &i.exponent))
        return false;
    interfaces.append(i);
    return true;
}

// Walks the interface's options for its time resolution.
bool Reader::timeExponent(qint64 block, qint64 length, int *exponent)
{
    qint64 at = block + blockHeader + 8;
    const qint64 end = block + length - 4;
    while (end - at >= 4) {
        const quint16 code = u16(at);
        const qint64 n = u16(at + 2);
        if (code == optEnd)
            break;
        if (n > end - at - 4)
            return damaged(
                QStringLiteral("the interface block at byte %1 has an option running past its end").arg(block));
        if (code == optIfTsresol) {
            const int value = n == 1 ? data[at + 4] : -1;
            // Only powers of ten down to nanoseconds; a power of two is not a time we can show.
            if (value < 0 || value > 9)
                return damaged(QStringLiteral("the interface block at byte %1 gives a time resolution this program "
                                              "cannot use").arg(block));
            *exponent = value;
        }
        at += 4 + qMin(padded(n), end - at - 4);
    }
    return true;
}

bool Reader::packetBlock(qint64 at, qint64 length)
{
    if (length < packetMinimum)
        return damaged(QStringLiteral("the packet block at byte %1 is too short").arg(at));
    const qint64 body = at + blockHeader;
    const quint32 number = u32(body);
    if (number >= quint32(interfaces.size()))
        return damaged(QStringLiteral("the packet at byte %1 names interface %2, which the file never describes")
                           .arg(at)
                           .arg(number));
    const qint64 captured = u32(body + 12);
    if (captured > length - packetMinimum)
        return damaged(QStringLiteral("the packet at byte %1 says it holds %2 bytes, more than its block")
                           .arg(at)
                           .arg(captured));
    const Interface &i = interfaces.at(number);
    if (i.linkType != linkTypeUser0) {
        if (foreignPackets++ == 0)
            foreignLinkType = i.linkType;
        return true;
    }
    const quint64 ticks = (quint64(u32(body + 4)) << 32) | u32(body + 8);
    qint64 us = 0;
    if (!toMicroseconds(ticks, i.exponent, &us))
        return damaged(QStringLiteral("the packet at byte %1 has a time out of range").arg(at));
    onPacket(us, QByteArray(reinterpret_cast<const char *>(data + body + 20), captured));
    ++result.packets;
    return true;
}

} // namespace

QByteArray header()
{
    QByteArray section;
    put32(section, byteOrderMagic);
    put16(section, 1); // version 1.0
    put16(section, 0);
    put32(section, 0xFFFFFFFF); // section length not given
    put32(section, 0xFFFFFFFF);
    putOption(section, optUserApplication, QByteArrayLiteral("Vendscope"));
    putOption(section, optEnd, QByteArray());

    QByteArray interface;
    put16(interface, quint16(linkTypeUser0));
    put16(interface, 0);
    put32(interface, 65535); // snap length
    putOption(interface, optIfName, QByteArrayLiteral("vendscope-box"));
    putOption(interface, optIfDescription,
              QByteArrayLiteral("Each packet is one complete interface-box frame as received, "
                                "from its A5 5A header to its 0D 0A trailer."));
    putOption(interface, optEnd, QByteArray());

    return block(sectionType, section) + block(interfaceType, interface);
}

void appendPacket(QByteArray &out, qint64 timeUs, const QByteArray &frame)
{
    const qint64 n = frame.size();
    const qint64 total = packetMinimum + padded(n);
    const qsizetype at = out.size();
    out.resize(at + total);
    char *p = out.data() + at;
    const auto ticks = quint64(qMax<qint64>(0, timeUs)); // no times before 1970
    qToLittleEndian(packetType, p);
    qToLittleEndian(quint32(total), p + 4);
    qToLittleEndian(quint32(0), p + 8); // interface 0
    qToLittleEndian(quint32(ticks >> 32), p + 12);
    qToLittleEndian(quint32(ticks), p + 16);
    qToLittleEndian(quint32(n), p + 20); // captured
    qToLittleEndian(quint32(n), p + 24); // original
    std::memcpy(p + 28, frame.constData(), size_t(n));
    std::memset(p + 28 + n, 0, size_t(padded(n) - n));
    qToLittleEndian(quint32(total), p + total - 4);
}

bool looksLikePcapng(const char *data, qint64 size)
{
    return size >= 4 && qFromLittleEndian<quint32>(data) == sectionType;
}

Result read(const char *data, qint64 size,
            const std::function<void(qint64 timeUs, const QByteArray &packet)> &onPacket)
{
    return Reader(reinterpret_cast<const unsigned char *>(data), size, onPacket).run();
}

} // namespace Pcapng
