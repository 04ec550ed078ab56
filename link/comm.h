#ifndef COMM_H
#define COMM_H

#include <QByteArray>
#include <QObject>

class MainWindow;

// Builds the command frames sent to the box; fire-and-forget.
class Comm : public QObject
{
    Q_OBJECT
public:
    explicit Comm(MainWindow *mainWindow);

    void transmit(QByteArray &data);
    void modeSet(int mode, int rate);
    void connect();
    void heart();
    void boot();

private:
    MainWindow *mainWindow;
};

#endif // COMM_H
