#ifndef FWUPGRADE_H
#define FWUPGRADE_H

#include <QByteArray>
#include <QString>
#include <QThread>

class QSerialPort;
class QTimer;
namespace Ui {
class DialogFirmware;
}

// The box's boot-loader exchange. Derives from QThread but the thread is never
// started: everything runs on the GUI thread from readData and the timers.
class FWUpgrade : public QThread
{
    Q_OBJECT
public:
    FWUpgrade(QSerialPort *port, Ui::DialogFirmware *ui);

    bool openFirmware(const QString &folder);
    void upgradeHandling(const QByteArray &data);

    QSerialPort *port;
    Ui::DialogFirmware *ui;
    QTimer *stallTimer;
    bool upgradeRunning = false;

signals:
    void upgradeEnd();
};

#endif // FWUPGRADE_H
