#include "protocols/rs232.h"

#include "protocols/bustransfer.h"

RS232::RS232(MainWindow *mainWindow)
    : QObject(nullptr), mainWindow(mainWindow)
{
}

