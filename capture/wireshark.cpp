#include "capture/wireshark.h"

#include "link/frame.h"
#include "mdb/mdb.h"

#include <QFile>

#include <pcap/pcap.h>

#include <cerrno>
#include <cstdio>

namespace {

constexpr quint32 linkTypeMdb = 300;
constexpr long linkTypeOffset = 20; // in the file header
constexpr int snapLength = 65535;
// Wireshark's MDB pseudo-header: a version, then who sent the bytes.
constexpr char headerVersion = 0x00;
constexpr char fromVmc = char(0xFF);
constexpr char fromPeripheral = char(0xFE);

bool isMdbBusData(const QByteArray &frame)
{
    return frame.size() >= BoxFrame::busDataOffset + BoxFrame::trailerSize && quint8(frame.at(0)) == 0xA5
           && quint8(frame.at(1)) == 0x5A && quint8(frame.at(4)) == BoxFrame::KindBusData
           && frame.at(BoxFrame::modeOffset) == 0;
}

void setError(QString *error, const QString &text)
{
    if (error)
        *error = text;
}

} // namespace

MdbExport::~MdbExport()
{
    close(nullptr);
}

bool MdbExport::open(const QString &path, QString *error)
{
    close(nullptr);
    FILE *file = std::fopen(QFile::encodeName(path).constData(), "wb");
    if (!file) {
        setError(error, QStringLiteral("cannot create %1: %2").arg(path, qt_error_string(errno)));
        return false;
    }
    // libpcap releases older than link type MDB refuse to write it (Debian 12's
    // 1.10.3 does): the file starts as USER0 and its header is set to MDB by hand.
    dead = pcap_open_dead(DLT_USER0, snapLength);
    dumper = dead ? pcap_dump_fopen(dead, file) : nullptr;
    if (!dumper) {
        const QString why = dead ? QString::fromLocal8Bit(pcap_geterr(dead)) : QStringLiteral("libpcap failed");
        setError(error, QStringLiteral("cannot create %1: %2").arg(path, why));
        std::fclose(file);
        if (dead)
            pcap_close(dead);
        dead = nullptr;
        return false;
    }
    this->path = path;
    written = 0;
    // The header is in the host's byte order, as libpcap wrote it.
    const quint32 mdb = linkTypeMdb;
    if (std::fseek(file, linkTypeOffset, SEEK_SET) != 0 || std::fwrite(&mdb, sizeof mdb, 1, file) != 1
        || std::fseek(file, 0, SEEK_END) != 0) {
        setError(error, QStringLiteral("cannot write %1: %2").arg(path, qt_error_string(errno)));
        close(nullptr);
        return false;
    }
    return true;
}

void MdbExport::add(qint64 timeUs, const QByteArray &boxFrame)
{
    QByteArray data;
    QByteArray modeBits;
    if (!dumper || !isMdbBusData(boxFrame) || !splitMessage(boxFrame, &data, &modeBits))
        return;
    QByteArray packet;
    packet.reserve(2 + data.size());
    packet.append(headerVersion);
    packet.append(boxFrame.at(BoxFrame::directionOffset) == 0 ? fromVmc : fromPeripheral);
    packet.append(data);

    const qint64 t = qMax<qint64>(0, timeUs);
    pcap_pkthdr header{};
    header.ts.tv_sec = time_t(t / 1000000);
    header.ts.tv_usec = suseconds_t(t % 1000000);
    header.caplen = bpf_u_int32(packet.size());
    header.len = header.caplen;
    pcap_dump(reinterpret_cast<u_char *>(dumper), &header, reinterpret_cast<const u_char *>(packet.constData()));
    ++written;
}

bool MdbExport::close(QString *error)
{
    if (!dead)
        return true;
    // pcap_dump reports nothing; a failed write shows in the stream's state.
    const bool ok = pcap_dump_flush(dumper) == 0 && !std::ferror(pcap_dump_file(dumper));
    if (!ok)
        setError(error, QStringLiteral("could not write all of %1: %2").arg(path, qt_error_string(errno)));
    pcap_dump_close(dumper);
    pcap_close(dead);
    dumper = nullptr;
    dead = nullptr;
    return ok;
}
