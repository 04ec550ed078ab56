#include "protocols/iebus.h"

Iebus::Iebus(QObject *parent, MainWindow *mainWindow)
    : QObject(parent), mainWindow(mainWindow)
{
}

void Iebus::packageProcess(const QByteArray &frame)
{
    Q_UNUSED(frame);
}
