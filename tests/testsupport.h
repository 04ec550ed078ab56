#ifndef TESTSUPPORT_H
#define TESTSUPPORT_H

// What every test here uses: Qt's modules, the main window and its forms.
#include "app/mainwindow.h"
#include "app/paths.h"
#include "link/frame.h"
#include "settings/settings.h"
#include "ui_dialogfirmware.h"
#include "ui_mainwindow.h"
#include "ui_settings.h"

#include <QtNetwork>
#include <QtSerialPort>
#include <QtTest>
#include <QtWidgets>

#include <functional>
#include <memory>

// The far side of the serial link: a real pseudo-terminal pair. The window
// opens the slave path; the test reads and writes the master.
class Pty
{
public:
    Pty();
    ~Pty();
    Pty(const Pty &) = delete;
    Pty &operator=(const Pty &) = delete;

    QString slavePath() const { return path; }
    void write(const QByteArray &bytes);
    // Everything the program sent, waiting (running the event loop) until at least n bytes came back.
    QByteArray readAtLeast(int n, int timeoutMs = 3000);

private:
    int master = -1;
    int slave = -1;
    QString path;
};

// Runs the event loop until pred holds or the time is up.
bool waitUntil(const std::function<bool()> &pred, int timeoutMs = 3000);

// Writes settings.ini beside the test executable. Unless the caller says
// otherwise the update check is off, so no test ever looks up the real server.
void writeSettingsIni(const QVariantMap &values = {});
inline QString settingsIniPath() { return userPath(Place::Settings); }
inline void removeSettingsIni() { QFile::remove(settingsIniPath()); }

// A bus-data frame as the box sends it.
QByteArray busFrame(quint32 startTick, quint32 endTick, int direction, int mode, const QByteArray &bus);
inline QByteArray versionFrame(const QByteArray &text) { return BoxFrame::build(BoxFrame::KindVersion, char(text.size()) + text); }
inline QByteArray hx(const char *hex) { return QByteArray::fromHex(hex); }

// Collects Qt's debug and warning output while it lives (one at a time).
class MessageLog
{
public:
    MessageLog();
    ~MessageLog();
    QStringList messages() const;
    bool contains(const QString &text) const { return !messages().filter(text).isEmpty(); }
};

// Shorthand in expected lines: "~" is a line break and the field indent, "^" a line break and the list indent.
QString indented(const QString &text);
inline QString span(const QString &color, const QString &text)
{
    return "<span style='color: " + color + ";'>" + indented(text) + "</span>";
}
// "colour text" as the view's span.
inline QString coloured(const QString &line) { return span(line.section(' ', 0, 0), line.section(' ', 1)); }

// The view holds exactly what appending these fragments, one by one, to an empty view gives.
void compareView(const QTextBrowser *view, const QStringList &appended);

// Answers the modal dialogs that come up, one after the other, each with its handler, while the timer lives.
using Handler = std::function<void(QWidget *)>;
std::unique_ptr<QTimer> answerModals(const QList<Handler> &handlers);
// Types path into a file dialog and accepts it; *proposed gets the file it offered first.
Handler chooseFile(const QString &path, QString *proposed = nullptr);
// Reads a message box as "title|text" and accepts it.
Handler readBox(QString *text);

// Opens the window's port on the given path through the port combo box.
inline void connectTo(MainWindow &w, const QString &path)
{
    w.settings->addPortPath(path);
    w.portToggle();
}

#ifdef VS_BOXSIM
// The box simulator as a process, stopped when this goes; path is the device it printed first.
struct BoxSim
{
    explicit BoxSim(const QStringList &args)
    {
        proc.start(VS_BOXSIM, args);
        waitUntil([&] { return proc.canReadLine() || proc.state() == QProcess::NotRunning; }, 10000);
        path = QString::fromLocal8Bit(proc.readLine()).trimmed();
    }
    ~BoxSim()
    {
        proc.terminate(); // QProcess kills it if that is not enough
        proc.waitForFinished(5000);
    }
    QProcess proc;
    QString path;
};
#endif

#endif // TESTSUPPORT_H
