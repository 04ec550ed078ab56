#include "protocols/vsi.h"

VSI::VSI(MainWindow *mainWindow)
    : QObject(nullptr), mainWindow(mainWindow)
{
}

void VSI::packageProcess(const QByteArray &frame)
{
    Q_UNUSED(frame);
}
