#ifndef PCAPNG_H
#define PCAPNG_H

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <functional>

// Capture files in pcapng: each packet is one box frame as received, on an
// interface of link type USER0, timed in microseconds since the epoch (UTC).
namespace Pcapng {

constexpr quint32 linkTypeUser0 = 147;

// The blocks a capture file starts with: a section header and our one interface.
QByteArray header();

// Appends one packet on interface 0. Grows out, allocates nothing else.
void appendPacket(QByteArray &out, qint64 timeUs, const QByteArray &frame);

struct Result
{
    enum Status { Ok, Truncated, Damaged, ForeignLinkType };
    Status status = Ok;
    QString message;     // for the user; empty when Ok
    qint64 packets = 0;  // delivered to the callback
};

// True when the data starts like a pcapng file (a section header block).
bool looksLikePcapng(const char *data, qint64 size);

// Delivers every packet of a USER0 interface in file order, up to the first
// damage. Whether a packet is a good box frame is the caller's business.
Result read(const char *data, qint64 size,
            const std::function<void(qint64 timeUs, const QByteArray &packet)> &onPacket);

} // namespace Pcapng

#endif // PCAPNG_H
