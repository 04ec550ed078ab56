#include "protocols/vts.h"

#include "link/frame.h"
#include "mdb/mdb.h"
#include "protocols/bustransfer.h"

#include <QDebug>

namespace {
constexpr int master = 0;
constexpr int slave = 1;
// The box sends the sync point as a frame of its own.
constexpr int syncMark = 2;
} // namespace

VTS::VTS(QObject *parent)
    : QObject(parent)
{
}

QString VTS::line(const QByteArray &frame, quint32 lastTickEnd, bool afterSync)
{
    BusTransfer t;
    if (!readTransfer(frame, BoxFrame::busDataOffset, &t))
        return QString();
    if (t.direction != master && t.direction != slave)
        return QString();
    if (!afterSync)
        return fillLine(t.direction == master ? "<span style='color: blue;'>%1 : M-> %2</span>"
                                              : "<span style='color: green;'>%1 : S-> %2</span>",
                        t, lastTickEnd);
    const char *marked = t.direction == master
        ? "<span style='color: blue;'>%1 : M-> </span><span style='color:white;background-color:#297EA3;'>%2</span><span style='color:blue;'>%3</span>"
        : "<span style='color:green;'>%1 : S-> </span><span style='color:white;background-color:#297EA3;'>%2</span><span style='color:green;'>%3</span>";
    const QString hex = hexStringGenerate(t.bytes);
    return QString::fromLatin1(marked).arg(tickGap(t.startTick, lastTickEnd)).arg(hex.left(2), hex.mid(2));
}

QString VTS::step(const QByteArray &frame, quint32 &lastTickEnd, qint32 &synByte)
{
    if (!holdsTransfer(frame)) {
        qDebug() << "VTS frame too short for a transfer:" << frame.size();
        return QString();
    }
    const int direction = static_cast<signed char>(frame.at(BoxFrame::directionOffset));
    // A sync point marks the next transfer; it has no line and no time of its own.
    if (direction == syncMark) {
        synByte = 1;
        return QString();
    }
    QString shown;
    if (direction == master || direction == slave) {
        shown = line(frame, lastTickEnd, synByte == 1);
        synByte = 0;
    }
    lastTickEnd = be32(frame, BoxFrame::endTickOffset);
    return shown;
}

void VTS::packageProcess(const QByteArray &frame)
{
    static quint32 lastTickEnd = 0;
    static qint32 synByte = 0;
    const QString shown = step(frame, lastTickEnd, synByte);
    if (shown.isNull())
        return;
    translation = shown;
    emit showTranslation();
}
