#ifndef BOOTLOADER_H
#define BOOTLOADER_H

#include <QByteArray>
#include <QObject>
#include <QString>

#include <functional>

class QTimer;

// The box's boot loader, as far as the program meets it: the upgrade token,
// the version text, the INI packet and the DAT packets with their answers.
//
// The INI file's bytes 6-7 give the number of DAT packets. Bytes 8-11, unused
// by the program, give the image size to this boot loader; it needs them to
// know the length of the last, shorter packet. When they are 0 the last packet
// is taken once the bytes at hand pass the CRC check.
class BootLoader : public QObject
{
    Q_OBJECT
public:
    struct Options
    {
        QString imageOut;              // file the received image is written to (empty: not written)
        QString version = "BOOT_1.0";  // sent in the version text frame, in the box's own hex form
        int silentAt = -1;             // stop answering from DAT packet n on (0 = INI packet); -1 never
        int rejectAt = -1;             // answer 0x15 to DAT packet n; -1 never
        int lateMs = 0;                // delay every answer by this many ms
        bool sendLog = false;          // send the log token 0x08 with a text frame before finishing
    };

    explicit BootLoader(const Options &options, QObject *parent = nullptr);

    void start();                        // the box got the boot command: send 0x16 and the version text frame
    void feed(const QByteArray &bytes);  // bytes from the program

    // The box's own text form: per byte (XOR its index) the low then the high
    // hex digit, behind "~$" and the frame length. At most 126 bytes of text.
    static QByteArray textFrame(const QByteArray &text);
    static quint16 crc16(const QByteArray &bytes);

    // A real box takes about a second to restart into its boot loader; the
    // program's 300 ms reopen of the port must come first, even when busy.
    static constexpr int rebootMs = 1000;
    // Having gone silent, the box gives up and restarts as a box after this.
    static constexpr int silentGiveUpMs = 3500;
    // Without a word from the program for this long, the box gives up.
    static constexpr int idleGiveUpMs = 30000;
    // The program drops whatever arrives together with a packet answer, so
    // the log follows the last answer after a pause.
    static constexpr int logPauseMs = 100;
    // How long the log waits for its answer and echo.
    static constexpr int logWaitMs = 500;

signals:
    void send(const QByteArray &bytes);  // bytes to write to the program
    void finished(bool ok);              // leave the boot loader, back to being a box

private:
    enum class Step { Idle, Rebooting, TokenAnswer, Echo, Ini, Data, Log, Silent, Leaving, Done };

    void process();
    void takeIni();
    void takeData();
    void checkPacket(const QByteArray &packet);
    void answer(const QByteArray &bytes);
    void later(const std::function<void()> &action);
    void leave(bool ok);
    void finish(bool ok);
    void goSilent();
    int lastPacketSize() const;

    Options options;
    Step step = Step::Idle;
    QByteArray rx;
    QByteArray versionBytes;
    QByteArray logText;
    QByteArray image;
    quint16 expected = 0;  // the DAT packet awaited next
    quint16 total = 0;
    quint32 imageSize = 0;
    bool result = false;
    QTimer *giveUp;
};

#endif // BOOTLOADER_H
