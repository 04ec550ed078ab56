#include "update/fwupgrade.h"

#include <QTimer>

FWUpgrade::FWUpgrade(QSerialPort *port, Ui::DialogFirmware *ui)
    : QThread(nullptr), port(port), ui(ui), stallTimer(new QTimer(this))
{
    stallTimer->setInterval(3000);
    stallTimer->setSingleShot(true);
    connect(stallTimer, &QTimer::timeout, this, [this] { upgradeRunning = false; });
}

bool FWUpgrade::openFirmware(const QString &folder)
{
    Q_UNUSED(folder);
    return false;
}

void FWUpgrade::upgradeHandling(const QByteArray &data)
{
    Q_UNUSED(data);
}
