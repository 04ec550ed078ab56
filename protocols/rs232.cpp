#include "protocols/rs232.h"

#include "protocols/bustransfer.h"

RS232::RS232(MainWindow *mainWindow)
    : QObject(nullptr), mainWindow(mainWindow)
{
}

void RS232::packageProcess(const QByteArray &frame)
{
    static quint32 lastTickEnd = 0;
    showPlainLine(mainWindow, frame, lastTickEnd);
}
