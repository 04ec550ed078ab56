#include "capture/capturefile.h"

#include "capture/pcapng.h"
#include "link/frame.h"
#include "link/framecutter.h"

#include <QFile>

namespace CaptureFile {

namespace {

void skip(const Sink &sink, Report &report, const QString &why)
{
    ++report.skipped;
    if (sink.onSkip)
        sink.onSkip(why);
}

bool isClassicPcap(const QByteArray &data)
{
    if (data.size() < 4)
        return false;
    const quint32 magic = be32(data, 0);
    return magic == 0xA1B2C3D4 || magic == 0xD4C3B2A1 || magic == 0xA1B23C4D || magic == 0x4D3CB2A1;
}

Report readPcapng(const QByteArray &data, const Sink &sink)
{
    Report report;
    const Pcapng::Result result = Pcapng::read(data.constData(), data.size(), [&](qint64 timeUs, const QByteArray &packet) {
        if (!isBoxFrame(packet)) {
            skip(sink, report, QStringLiteral("packet %1 is not a whole box frame; left out").arg(report.frames + report.skipped + 1));
            return;
        }
        ++report.frames;
        sink.onFrame(timeUs, packet);
    });
    switch (result.status) {
    case Pcapng::Result::Ok:
        break;
    case Pcapng::Result::ForeignLinkType:
        report.status = Status::Foreign;
        break;
    case Pcapng::Result::Truncated:
    case Pcapng::Result::Damaged:
        report.status = Status::Truncated;
        break;
    }
    report.message = result.message;
    return report;
}

// The live receiver's loop, fed in port-sized chunks so that its buffer stays
// small; noise that would end a live call only ends a step here.
Report readRaw(const QByteArray &data, const Sink &sink)
{
    Report report;
    report.raw = true;
    constexpr int chunkSize = 4096;
    QByteArray buffer;
    int state = 0;
    int frameLength = 0;
    QByteArray frame;
    qint64 offset = 0;
    while (offset < data.size() || !buffer.isEmpty()) {
        if (offset < data.size()) {
            const int n = int(qMin<qint64>(chunkSize, data.size() - offset));
            buffer.append(data.constData() + offset, n);
            offset += n;
        }
        FrameCutter::Cut cut;
        while ((cut = FrameCutter::next(buffer, state, frameLength, &frame)) != FrameCutter::Cut::Wait) {
            if (cut == FrameCutter::Cut::Frame) {
                ++report.frames;
                sink.onFrame(0, frame);
            } else if (cut == FrameCutter::Cut::FccError) {
                skip(sink, report, QStringLiteral("frame %1 fails its check byte; left out").arg(report.frames + report.skipped + 1));
            }
        }
        if (offset >= data.size())
            break; // what is left waits for bytes that never come
    }
    if (report.frames == 0 && report.skipped == 0) {
        report.status = Status::Foreign;
        report.message = QStringLiteral("no interface-box frames found: neither a Vendscope capture nor a dump of the box's serial stream");
    } else if (!buffer.isEmpty() && state != 0) {
        report.message = QStringLiteral("the dump ends inside a frame; its last %1 bytes are left out").arg(buffer.size());
    }
    return report;
}

} // namespace

bool isBoxFrame(const QByteArray &frame)
{
    const int n = int(frame.size());
    if (n < BoxFrame::minLength)
        return false;
    const auto *b = reinterpret_cast<const unsigned char *>(frame.constData());
    return b[0] == 0xA5 && b[1] == 0x5A && be16(b + 2) == n && BoxFrame::xorOf(frame, 2, n - 4) == b[n - 3];
}

Report readData(const QByteArray &data, const Sink &sink)
{
    if (data.isEmpty()) {
        Report report;
        report.status = Status::Unreadable;
        report.message = QStringLiteral("the file is empty");
        return report;
    }
    if (Pcapng::looksLikePcapng(data.constData(), data.size()))
        return readPcapng(data, sink);
    if (isClassicPcap(data)) {
        Report report;
        report.status = Status::Foreign;
        report.message = QStringLiteral("a classic pcap file (a Wireshark export?), not a Vendscope capture");
        return report;
    }
    return readRaw(data, sink);
}

Report read(const QString &path, const Sink &sink)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        Report report;
        report.status = Status::Unreadable;
        report.message = QStringLiteral("cannot open %1: %2").arg(path, file.errorString());
        return report;
    }
    // Mapped, not read: a night's capture need not be copied into memory.
    const qint64 size = file.size();
    const uchar *mapped = size > 0 ? file.map(0, size) : nullptr;
    if (mapped)
        return readData(QByteArray::fromRawData(reinterpret_cast<const char *>(mapped), size), sink);
    return readData(file.readAll(), sink);
}

} // namespace CaptureFile
