#include "protocols/vts.h"

VTS::VTS(QObject *parent)
    : QObject(parent)
{
}

void VTS::packageProcess(const QByteArray &frame)
{
    Q_UNUSED(frame);
}
