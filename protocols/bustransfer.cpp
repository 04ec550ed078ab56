#include "protocols/bustransfer.h"

#include "link/frame.h"
#include "mdb/mdb.h"

#include <QDebug>

bool holdsTransfer(const QByteArray &frame)
{
    return frame.size() >= BoxFrame::busDataOffset + BoxFrame::trailerSize;
}

bool readTransfer(const QByteArray &frame, int dataOffset, BusTransfer *out)
{
    if (!holdsTransfer(frame))
        return false;
    const int size = int(frame.size());
    out->startTick = be32(frame, BoxFrame::startTickOffset);
    out->endTick = be32(frame, BoxFrame::endTickOffset);
    out->direction = static_cast<signed char>(frame.at(BoxFrame::directionOffset));
    const int count = size - BoxFrame::trailerSize - dataOffset;
    out->bytes = count > 0 ? frame.mid(dataOffset, count) : QByteArray();
    return true;
}

QString tickGap(quint32 startTick, quint32 lastTickEnd)
{
    return gapText(qint64(quint32(startTick - lastTickEnd)));
}

QString fillLine(const char *tmpl, const BusTransfer &t, quint32 lastTickEnd)
{
    return QString::fromLatin1(tmpl).arg(tickGap(t.startTick, lastTickEnd), hexStringGenerate(t.bytes));
}

QString plainLine(const QByteArray &frame, quint32 lastTickEnd)
{
    BusTransfer t;
    if (!readTransfer(frame, BoxFrame::busDataOffset, &t))
        return QString();
    switch (t.direction) {
    case 0:
        return fillLine("<span style='color: blue;'>%1 : %2</span>", t, lastTickEnd);
    case 1:
        return fillLine("<span style='color: green;'>%1 : %2</span>", t, lastTickEnd);
    default:
        return QStringLiteral("");
    }
}

QString plainStep(const QByteArray &frame, quint32 &lastTickEnd)
{
    if (!holdsTransfer(frame)) {
        qDebug() << "bus data frame too short for a transfer:" << frame.size();
        return QString();
    }
    QString line = plainLine(frame, lastTickEnd);
    lastTickEnd = be32(frame, BoxFrame::endTickOffset);
    return line;
}
