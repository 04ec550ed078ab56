#ifndef FWUPGRADE_H
#define FWUPGRADE_H

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QThread>
#include <QTimer>

class QSerialPort;
namespace Ui {
class DialogFirmware;
}

// CRC-16/XMODEM of the boot loader's packets: polynomial 0x1021, start 0.
unsigned short UpdateCRC16(unsigned short crc, unsigned char byte);
unsigned short Cal_CRC16(const unsigned char *data, unsigned int size);

// The box's boot-loader exchange. Derives from QThread but the thread is never
// started: everything runs on the GUI thread from readData and the timers.
class FWUpgrade : public QThread
{
    Q_OBJECT
public:
    enum RxState { Rx_Token, Rx_UP, Rx_INI, Rx_Data, Rx_Log };
    static constexpr const char *rxStateName[] = {"Rx_Token", "Rx_UP", "Rx_INI", "Rx_Data", "Rx_Log"};

    // Image bytes per DAT packet, whatever the INI file says.
    static constexpr int chunkSize = 768;

    FWUpgrade(QSerialPort *port, Ui::DialogFirmware *ui);

    void upgradeHandling(const QByteArray &data);

    bool upgradeCondition() const;
    bool versionResponse();
    void translate(const QByteArray &payload);
    void tokenResponse(char token);
    void transmit(const QByteArray &packet);
    void waitResponseReset();
    void rxStateTrans(RxState state);
    bool binSendINI();
    bool binSendDAT();

    QSerialPort *port;
    Ui::DialogFirmware *ui;
    RxState rxState = Rx_Token;
    QByteArray rxBuffer;
    QByteArray lastPacket;
    QTimer responseTimer;
    int retryCount = 0;
    QFile iniFile;
    QFile datFile;
    QString iniPath;
    QString datPath;
    QTimer *stallTimer;
    bool upgradeRunning = false;
    quint16 sequence = 0;
    quint16 chunkField = 0;
    quint16 total = 0;
    int responseTimeoutMs = 5000;

public slots:
    bool openFirmware(const QString &filePath);
    void procedureReset();
    void responseTimeout();

signals:
    void upgradeEnd();

private:
    void writePort(const QByteArray &bytes);
};

#endif // FWUPGRADE_H
