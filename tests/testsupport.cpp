#include "testsupport.h"

#include "tools/boxsim/rawpty.h"

#include <cerrno>
#include <unistd.h>

Pty::Pty()
{
    if (!openRawPty(master, slave, path))
        qFatal("openpty failed");
}

Pty::~Pty()
{
    ::close(master);
    ::close(slave);
}

void Pty::write(const QByteArray &bytes)
{
    const char *p = bytes.constData();
    qsizetype left = bytes.size();
    while (left > 0) {
        const ssize_t n = ::write(master, p, size_t(left));
        if (n < 0) {
            if (errno == EAGAIN) {
                QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
                continue;
            }
            qWarning("pty write failed: %d", errno);
            return;
        }
        p += n;
        left -= n;
    }
}

QByteArray Pty::readAtLeast(int n, int timeoutMs)
{
    QByteArray out;
    waitUntil([&] {
        char buf[4096];
        for (ssize_t got; (got = ::read(master, buf, sizeof buf)) > 0;)
            out.append(buf, got);
        return out.size() >= n;
    }, timeoutMs);
    return out;
}

bool waitUntil(const std::function<bool()> &pred, int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (!pred()) {
        if (timer.elapsed() > timeoutMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QTest::qWait(2);
    }
    return true;
}

void writeSettingsIni(const QVariantMap &values)
{
    removeSettingsIni();
    QSettings ini(settingsIniPath(), QSettings::IniFormat);
    ini.setValue("Update", false);
    ini.setValue("updateServer", "http://127.0.0.1:9");
    for (auto it = values.begin(); it != values.end(); ++it)
        ini.setValue(it.key(), it.value());
}

QByteArray busFrame(quint32 startTick, quint32 endTick, int direction, int mode, const QByteArray &bus)
{
    QByteArray body;
    for (quint32 tick : {startTick, endTick})
        for (int shift = 24; shift >= 0; shift -= 8)
            body.append(char((tick >> shift) & 0xFF));
    body.append(char(direction));
    body.append(char(mode));
    body.append(bus);
    return BoxFrame::build(BoxFrame::KindBusData, body);
}

namespace {
QMutex logMutex;
QStringList logLines;
QtMessageHandler previousHandler = nullptr;

void collect(QtMsgType type, const QMessageLogContext &ctx, const QString &msg)
{
    QMutexLocker lock(&logMutex);
    logLines << msg;
    if (type >= QtWarningMsg && previousHandler)
        previousHandler(type, ctx, msg);
}
} // namespace

MessageLog::MessageLog()
{
    logLines.clear();
    previousHandler = qInstallMessageHandler(collect);
}

MessageLog::~MessageLog()
{
    qInstallMessageHandler(previousHandler);
}

QStringList MessageLog::messages() const
{
    QMutexLocker lock(&logMutex);
    return logLines;
}

QString indented(const QString &text)
{
    const QString indent = "&nbsp;&nbsp;&nbsp;&nbsp;";
    return QString(text).replace("~", "<br>" + indent).replace("^", "<br>" + indent + indent);
}

void compareView(const QTextBrowser *view, const QStringList &appended)
{
    QTextBrowser expected;
    for (const QString &fragment : appended)
        expected.append(fragment);
    // Line by line from the first paragraph on, so that a difference shows where it is.
    QCOMPARE(view->toHtml().section("<p ", 1).split('\n'), expected.toHtml().section("<p ", 1).split('\n'));
}

std::unique_ptr<QTimer> answerModals(const QList<Handler> &handlers)
{
    auto timer = std::make_unique<QTimer>();
    QObject::connect(timer.get(), &QTimer::timeout, [handlers, last = QPointer<QWidget>(), n = 0]() mutable {
        QWidget *modal = QApplication::activeModalWidget();
        if (modal && modal != last && n < handlers.size())
            handlers[n++](last = modal);
    });
    timer->start(20);
    return timer;
}

Handler chooseFile(const QString &path, QString *proposed)
{
    return [=](QWidget *w) {
        auto *dialog = qobject_cast<QFileDialog *>(w);
        QVERIFY(dialog);
        if (proposed)
            *proposed = dialog->selectedFiles().value(0);
        // Typed like a user would; selectFile() races with the dialog's own
        // initial selection, which it applies once the folder has loaded.
        auto *edit = dialog->findChild<QLineEdit *>("fileNameEdit");
        QVERIFY(edit);
        edit->setText(path);
        QMetaObject::invokeMethod(dialog, "accept");
    };
}

Handler readBox(QString *text)
{
    return [=](QWidget *w) {
        auto *box = qobject_cast<QMessageBox *>(w);
        QVERIFY(box);
        *text = box->windowTitle() + "|" + box->text();
        box->accept();
    };
}
