#ifndef RS232_H
#define RS232_H

#include <QByteArray>
#include <QObject>

class MainWindow;

// The plain serial modes: "232", "Debug", "485", "CAN" and "TTL" all show
// their transfers the same way, as plainLine draws them.
class RS232 : public QObject
{
    Q_OBJECT
public:
    explicit RS232(MainWindow *mainWindow);

    void packageProcess(const QByteArray &frame);

    MainWindow *mainWindow;
};

#endif // RS232_H
