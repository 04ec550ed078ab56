#ifndef BOX_H
#define BOX_H

#include "scenario.h"

#include <QByteArray>
#include <QObject>
#include <QRandomGenerator>
#include <QString>
#include <QVector>

class QSocketNotifier;
class QTimer;
class BootLoader;

// The interface box as the program meets it on its serial port: it waits for
// modeSet, then reports the bus traffic of that mode from a scenario, sends
// its version and status frames, and hands the line to its boot loader on boot.
class Box : public QObject
{
    Q_OBJECT
public:
    struct Options
    {
        QString version = QStringLiteral("XYZ_1.0.0");
        bool requestFirmware = false;
        int rate = 10;             // transfers per second; 0 = as fast as the line takes them
        qint64 silenceAfter = -1;  // go quiet after this many transfers
        bool noise = false;
        quint32 seed = 1;
        int statusMs = 1000;       // how often a status frame goes out
        bool verbose = false;      // report commands on stderr
        QString scenarioPath;      // empty: each mode's shipped scenario

        QString imageOut;
        int bootSilentAt = -1;
        int bootRejectAt = -1;
        int bootLateMs = 0;
        bool bootLog = false;
    };

    explicit Box(const Options &options, QObject *parent = nullptr);
    ~Box() override;

    // Reads the scenarios; false with a message on the first bad line.
    bool loadScenarios(QString &error);
    // Opens the pseudo-terminal pair.
    bool open(QString &error);
    QString devicePath() const { return slavePath; }

    // The shipped scenario of each interpret mode, by mode number.
    static QString builtInScenario(int mode);
    static constexpr int modeCount = 9;

private:
    void readReady();
    void writeReady();
    void handleFrame(const QByteArray &frame);
    void modeSet(int mode, int rate);
    void playOne();
    void fillFlatOut();
    void sendStatus();
    void queue(const QByteArray &bytes);
    void flush();
    void noiseBurst();
    void goQuietIfDone();
    void enterBootLoader();
    void leaveBootLoader(bool ok);
    void stopPlaying();
    quint32 transferTicks(int busBytes) const;
    void note(const QString &text) const;

    Options opt;
    QVector<Scenario> scenarios;  // by mode, or one from --scenario
    int master = -1;
    int slave = -1;
    QString slavePath;
    QSocketNotifier *readNotifier = nullptr;
    QSocketNotifier *writeNotifier = nullptr;
    QTimer *playTimer = nullptr;
    QTimer *statusTimer = nullptr;
    QByteArray rx;
    QByteArray out;
    QRandomGenerator rng;

    int mode = -1;   // -1 until the first modeSet
    int rate = 0;
    const Scenario *current = nullptr;
    int next = 0;
    quint32 tick = 0;
    qint64 transfersSent = 0;
    bool quiet = false;
    bool versionSent = false;
    BootLoader *bootLoader = nullptr;
    bool booting = false;
};

#endif // BOX_H
