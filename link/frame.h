#ifndef FRAME_H
#define FRAME_H

#include <QByteArray>
#include <QString>
#include <QtGlobal>

// The box frame: A5 5A, big-endian length N of the whole frame, kind, body,
// XOR check byte over offsets 2..N-4, then 0D 0A.
namespace BoxFrame {
constexpr int headerSize = 5;   // A5 5A len len kind
constexpr int trailerSize = 3;  // FCC 0D 0A
constexpr int minLength = headerSize + trailerSize;

// Offsets inside a bus-data frame (kind 0x02).
constexpr int startTickOffset = 5;
constexpr int endTickOffset = 9;
constexpr int directionOffset = 13;
constexpr int modeOffset = 14;
constexpr int busDataOffset = 15;

enum Kind : unsigned char {
    KindNone = 0x00,
    KindModeSet = 0x01,
    KindBusData = 0x02,
    KindVersion = 0x03,
    KindHeart = 0x05,
    KindBoot = 0x06,
    KindFirmwareRequest = 0x50,
};

// XOR of bytes [from, to] inclusive; the caller guarantees the range is inside data.
unsigned char xorOf(const QByteArray &data, int from, int to);

// Builds a complete frame of the given kind around body.
QByteArray build(unsigned char kind, const QByteArray &body = QByteArray());
} // namespace BoxFrame

// Big-endian reads; the caller checks the length first.
inline quint16 be16(const unsigned char *p)
{
    return quint16((p[0] << 8) | p[1]);
}

inline quint32 be32(const unsigned char *p)
{
    return (quint32(p[0]) << 24) | (quint32(p[1]) << 16) | (quint32(p[2]) << 8) | quint32(p[3]);
}

inline quint32 be32(const QByteArray &data, int offset)
{
    return be32(reinterpret_cast<const unsigned char *>(data.constData()) + offset);
}

// The tick gap at the start of every log line: decimal, at least four places,
// zero-padded, sign kept (MDB gaps are signed, the other buses' unsigned).
QString gapText(qint64 gap);

#endif // FRAME_H
