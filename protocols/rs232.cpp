#include "protocols/rs232.h"

RS232::RS232(MainWindow *mainWindow)
    : QObject(nullptr), mainWindow(mainWindow)
{
}

void RS232::packageProcess(const QByteArray &frame)
{
    Q_UNUSED(frame);
}
