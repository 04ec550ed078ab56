#ifndef MDB_H
#define MDB_H

#include <QByteArray>
#include <QObject>
#include <QSet>
#include <QString>

class MainWindow;

// Bytes as two upper-case hex digits each, one blank between.
QString hexStringGenerate(const QByteArray &data);

// One MDB message out of a bus-data frame: the data bytes (checksum kept)
// and their mode bits. False for a frame too short to be bus data.
bool splitMessage(const QByteArray &frame, QByteArray *data, QByteArray *modeBits);

// The MDB analyser: one log line per MDB message.
//
// The line of one message is built by renderLine, which needs no window: an
// MDB made with a null MainWindow holds the interpreter state (color,
// lastCommand, lastSubcommand, gap) and the caller holds lastTickEnd and
// lastCmd. packageProcess keeps those two as its function-local statics,
// reads the check boxes and the interpret switch, and appends the line.
class MDB : public QObject
{
    Q_OBJECT
public:
    explicit MDB(MainWindow *mainWindow);

    // The four idle-traffic check boxes of the settings dialog; true means
    // checked, i.e. the frames of that kind are shown.
    struct Filters
    {
        bool poll = true;
        bool coin = true;
        bool bill = true;
        bool card = true;
    };

    void packageProcess(const QByteArray &frame);

    // The line to append for one box frame, or a null string when the frame
    // is hidden (or shorter than a bus-data frame, which also leaves
    // lastTickEnd and lastCmd alone). Hidden frames still move both on.
    QString renderLine(const QByteArray &frame, const Filters &filters, bool interpretOn,
                       quint32 &lastTickEnd, int &lastCmd);

    // Classifies and explains one message; reads the main window's interpret
    // switch (taken as on without a window).
    QString interpretor(const QByteArray &modeBits, const QByteArray &data);
    // The interpreter with the switch given: interpretor's work, window-free.
    QString explain(const QByteArray &modeBits, const QByteArray &data, bool interpretOn);

    // The idle-traffic filters; they look at the data bytes only.
    static bool hidden(const QByteArray &data, const Filters &filters, int lastCmd);

    MainWindow *mainWindow;
    QSet<unsigned char> coinCommands;
    QSet<unsigned char> coinExpansionSubcommands;
    QSet<unsigned char> billCommands;
    QSet<unsigned char> cashless1Commands;
    QSet<unsigned char> cashless2Commands;
    QString color;
    unsigned char lastCommand = 0;
    unsigned char lastSubcommand = 0;
    qint32 gap = 0;

private:
    QString commandText(const unsigned char *d, int n);
    QString replyText(const QByteArray &data);
};

#endif // MDB_H
