#ifndef RS232_H
#define RS232_H

#include <QByteArray>
#include <QObject>

class MainWindow;

class RS232 : public QObject
{
    Q_OBJECT
public:
    explicit RS232(MainWindow *mainWindow);

    void packageProcess(const QByteArray &frame);

    MainWindow *mainWindow;
};

#endif // RS232_H
