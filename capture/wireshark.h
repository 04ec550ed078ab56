#ifndef WIRESHARK_H
#define WIRESHARK_H

#include <QByteArray>
#include <QString>
#include <QtGlobal>

// libpcap's handles, kept opaque so that users of this header need no pcap.h.
struct pcap;
struct pcap_dumper;

// MDB traffic as a classic pcap file of link type MDB (300), which Wireshark
// dissects: one packet per MDB transfer, a version byte, a direction byte,
// then the data bytes with their checksum.
class MdbExport
{
public:
    MdbExport() = default;
    ~MdbExport();
    MdbExport(const MdbExport &) = delete;
    MdbExport &operator=(const MdbExport &) = delete;

    // Creates (or replaces) the file; a file still open is closed first.
    bool open(const QString &path, QString *error);
    // Writes an MDB bus-data frame; any other box frame is left out.
    void add(qint64 timeUs, const QByteArray &boxFrame);
    qint64 packets() const { return written; }
    // False when the file could not be written completely.
    bool close(QString *error);

private:
    pcap *dead = nullptr;
    pcap_dumper *dumper = nullptr;
    qint64 written = 0;
    QString path;
};

#endif // WIRESHARK_H
