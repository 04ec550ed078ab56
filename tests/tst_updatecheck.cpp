// The update checks of the main window against a real HTTP server on 127.0.0.1.
#include "httpserver.h"
#include "testsupport.h"

#include "app/mainwindow.h"
#include "settings/settings.h"
#include "ui_dialogfirmware.h"
#include "update/downloader.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QDesktopServices>
#include <QDialog>
#include <QDir>
#include <QLabel>
#include <QMessageBox>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QProcess>
#include <QProgressBar>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTimer>

static const QString firmwarePath = "/updates/Tallybox/Firmware/update.json";
static const QString applicationPath = "/updates/Tallybox/Windows/update.json";

// Answers every question box that comes up and remembers what it asked.
class Answerer
{
public:
    explicit Answerer(QMessageBox::StandardButton answer)
    {
        timer.setInterval(10);
        QObject::connect(&timer, &QTimer::timeout, [this, answer] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            if (!box || !box->button(answer))
                return;
            asked << box->windowTitle() + "|" + box->text();
            plainText = plainText && box->textFormat() == Qt::PlainText;
            box->button(answer)->click();
        });
        timer.start();
    }
    QStringList asked;
    bool plainText = true;

private:
    QTimer timer;
};

// Stands in for the desktop's browser.
class Browser : public QObject
{
    Q_OBJECT
public:
    Browser()
    {
        QDesktopServices::setUrlHandler("http", this, "open");
        QDesktopServices::setUrlHandler("https", this, "open");
    }
    ~Browser() override
    {
        QDesktopServices::unsetUrlHandler("http");
        QDesktopServices::unsetUrlHandler("https");
    }
    QList<QUrl> opened;
public slots:
    void open(const QUrl &url) { opened << url; }
};

class TestUpdateCheck : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void firmwareQuestion_data();
    void firmwareQuestion();
    void yesFetchesFirmwareFiles();
    void manifestProblemsWarn_data();
    void manifestProblemsWarn();
    void firmwareCheckOncePerRunWhileUpdateChecked();
    void applicationCheckAtStartUp_data();
    void applicationCheckAtStartUp();
    void progressLabel_data();
    void progressLabel();
    void newFirmwareReachesTheBox();

private:
    // Runs the event loop until the server has answered path and the window
    // has dealt with every reply.
    static bool waitHandled(MainWindow &w, HttpServer &server, const QString &path)
    {
        return waitUntil([&] {
            return server.requests.contains(path) && w.findChildren<QNetworkReply *>().isEmpty();
        }, 5000);
    }
    static QStringList firmwareFiles()
    {
        QStringList names = QDir(Downloader::firmwareDir()).entryList(QDir::Files);
        names.sort();
        return names;
    }
    static QByteArray firmwareFile(const QString &name)
    {
        QFile f(Downloader::firmwareDir() + "/" + name);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
    }
    static void putStaleFile()
    {
        QDir().mkpath(Downloader::firmwareDir());
        QFile f(Downloader::firmwareDir() + "/DAT_stale.bin");
        f.open(QIODevice::WriteOnly);
        f.write("stale");
    }

    HttpServer *server = nullptr;
};

void TestUpdateCheck::initTestCase()
{
    QCoreApplication::setApplicationVersion("1.2.2");
    // Whatever the environment says, these tests talk to 127.0.0.1 directly.
    QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
}

void TestUpdateCheck::init()
{
    delete server;
    server = new HttpServer;
    // The start-up application check finds nothing new unless a test says so.
    server->setPage(applicationPath, R"({"version": "1.2.2", "url": "http://127.0.0.1/vendscope.tar.gz"})");
    server->setPage(firmwarePath, R"({"version": "1.0", "DAT": "http://127.0.0.1/D", "INI": "http://127.0.0.1/I",)"
                                  R"( "COF": "http://127.0.0.1/C"})");
    writeSettingsIni({{"Update", true}, {"updateServer", server->base()}});
    QDir(Downloader::firmwareDir()).removeRecursively();
}

void TestUpdateCheck::cleanupTestCase()
{
    delete server;
    removeSettingsIni();
    QDir(Downloader::firmwareDir()).removeRecursively();
}

void TestUpdateCheck::firmwareQuestion_data()
{
    QTest::addColumn<QString>("boxVersion");
    QTest::addColumn<QString>("manifestVersion");
    QTest::addColumn<QString>("question");
    QTest::newRow("same version asks nothing") << "XYZ_2.0.1" << "2.0.1" << "";
    QTest::newRow("older manifest asks nothing") << "XYZ_2.0.1" << "2.0.0" << "";
    QTest::newRow("2.0.10 is newer than 2.0.1")
        << "XYZ_2.0.1" << "2.0.10"
        << "Firmware Update Available|New version 2.0.10 is available.\nCurrent version: 2.0.1\nUpdate now?";
    QTest::newRow("a version without underscore is compared whole")
        << "1.5" << "1.6" << "Firmware Update Available|New version 1.6 is available.\nCurrent version: 1.5\nUpdate now?";
    QTest::newRow("only the first underscore splits off the name")
        << "XYZ_BETA_1.0" << "BETA_2.0"
        << "Firmware Update Available|New version BETA_2.0 is available.\nCurrent version: BETA_1.0\nUpdate now?";
    QTest::newRow("beta against 1.0 is compared as text")
        << "XYZ_1.0" << "beta" << "Firmware Update Available|New version beta is available.\nCurrent version: 1.0\nUpdate now?";
    QTest::newRow("markup and placeholders in the manifest stay text")
        << "XYZ_1.0" << "2.0 <b>%2</b>"
        << "Firmware Update Available|New version 2.0 <b>%2</b> is available.\nCurrent version: 1.0\nUpdate now?";
}

void TestUpdateCheck::firmwareQuestion()
{
    QFETCH(QString, boxVersion);
    QFETCH(QString, manifestVersion);
    QFETCH(QString, question);
    server->setPage(firmwarePath, QString(R"({"version": "%1", "DAT": "%2", "INI": "%3", "COF": "%4"})")
                                      .arg(manifestVersion, server->url("/fw/DAT_n.bin"), server->url("/fw/INI_n.bin"),
                                           server->url("/fw/COF_n.bin"))
                                      .toUtf8());
    putStaleFile();
    MainWindow w;
    Answerer answerer(QMessageBox::No);
    w.firmwareVersion = boxVersion;
    w.checkForUpdatesFirmware();
    QVERIFY(waitHandled(w, *server, firmwarePath));
    QCOMPARE(answerer.asked, question.isEmpty() ? QStringList() : QStringList({question}));
    QVERIFY(answerer.plainText);
    // No means no: nothing fetched, nothing cleared, no dialog.
    QVERIFY(!server->requests.contains("/fw/DAT_n.bin"));
    QCOMPARE(firmwareFiles(), QStringList({"DAT_stale.bin"}));
    QVERIFY(!w.firmwareDialog->isVisible());
}

void TestUpdateCheck::yesFetchesFirmwareFiles()
{
    server->setPage(firmwarePath, QString(R"({"version": "1.1.0", "DAT": "%1", "INI": "%2", "COF": "%3"})")
                                      .arg(server->url("/fw/DAT_1.1.0.bin"), server->url("/fw/INI_1.1.0.bin"),
                                           server->url("/fw/COF_1.1.0.bin"))
                                      .toUtf8());
    server->setPage("/fw/DAT_1.1.0.bin", QByteArray(1000, '\x11'));
    server->setPage("/fw/INI_1.1.0.bin", "UP ini of 12");
    server->setPage("/fw/COF_1.1.0.bin", "cof");
    server->hold("/fw/DAT_1.1.0.bin");
    putStaleFile();
    MainWindow w;
    QSignalSpy finished(w.downloader, &Downloader::allFinished);
    Answerer answerer(QMessageBox::Yes);
    w.firmwareVersion = "XYZ_1.0.0";
    w.checkForUpdatesFirmware();

    QVERIFY(waitUntil([&] { return server->requests.contains("/fw/DAT_1.1.0.bin"); }));
    QCOMPARE(answerer.asked, QStringList({"Firmware Update Available|New version 1.1.0 is available.\n"
                                          "Current version: 1.0.0\nUpdate now?"}));
    QVERIFY(w.firmwareDialog->isVisible());
    QCOMPARE(w.firmwareUi->labelStatus->text(), QString("Fetching firmware..."));
    QCOMPARE(firmwareFiles(), QStringList({"DAT_1.1.0.bin"})); // old files went first

    server->hold("/fw/COF_1.1.0.bin");
    server->release("/fw/DAT_1.1.0.bin");
    QVERIFY(waitUntil([&] { return server->requests.contains("/fw/COF_1.1.0.bin"); }));
    QCOMPARE(w.firmwareUi->labelStatus->text(), QString("INI_1.1.0.bin 100%"));
    server->release("/fw/COF_1.1.0.bin");
    QVERIFY(finished.wait(5000));
    QCOMPARE(server->requests.filter("/fw/"),
             QStringList({"/fw/DAT_1.1.0.bin", "/fw/INI_1.1.0.bin", "/fw/COF_1.1.0.bin"}));
    QCOMPARE(firmwareFiles(), QStringList({"COF_1.1.0.bin", "DAT_1.1.0.bin", "INI_1.1.0.bin"}));
    QCOMPARE(firmwareFile("DAT_1.1.0.bin"), QByteArray(1000, '\x11'));
    QCOMPARE(firmwareFile("INI_1.1.0.bin"), QByteArray("UP ini of 12"));
    QCOMPARE(firmwareFile("COF_1.1.0.bin"), QByteArray("cof"));
}

void TestUpdateCheck::manifestProblemsWarn_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("warning");
    const QByteArray files = R"("DAT": "http://127.0.0.1/DAT_a.bin", "INI": "http://127.0.0.1/INI_a.bin")";
    QTest::newRow("firmware manifest missing")
        << firmwarePath << 404 << QByteArray("gone")
        << "Update check failed: Error transferring http://127.0.0.1:%1/updates/Tallybox/Firmware/update.json"
           " - server replied: Not Found";
    QTest::newRow("firmware manifest cut short") << firmwarePath << 200 << QByteArray("{")
                                                 << "Invalid update json: unterminated object";
    QTest::newRow("firmware manifest not json") << firmwarePath << 200 << QByteArray("<html>hello</html>")
                                                << "Invalid update json: illegal value";
    QTest::newRow("firmware manifest an array") << firmwarePath << 200 << QByteArray("[\"2.0\"]")
                                                << "Invalid update json: top level is not an object";
    QTest::newRow("firmware manifest too large") << firmwarePath << 200 << QByteArray(2 * 1024 * 1024, ' ')
                                                 << "Update check failed: manifest larger than 1 MiB";
    QTest::newRow("COF missing") << firmwarePath << 200 << R"({"version": "9.0", )" + files + "}"
                                 << "Update json missing fields";
    QTest::newRow("COF empty") << firmwarePath << 200 << R"({"version": "9.0", "COF": "", )" + files + "}"
                               << "Update json missing fields";
    QTest::newRow("version not a string") << firmwarePath << 200
                                          << R"({"version": 9, "COF": "http://127.0.0.1/COF_a", )" + files + "}"
                                          << "Update json missing fields";
    QTest::newRow("a firmware file on the local disk")
        << firmwarePath << 200 << R"({"version": "9.0", "COF": "file:///etc/passwd", )" + files + "}"
        << "Update json address is not a web address: file:///etc/passwd";
    QTest::newRow("application manifest not json") << applicationPath << 200 << QByteArray("version=9")
                                                    << "Invalid update json: illegal value";
    QTest::newRow("application url missing") << applicationPath << 200 << QByteArray(R"({"version": "9.0"})")
                                             << "Update json missing fields";
    QTest::newRow("application url runs a local program")
        << applicationPath << 200 << QByteArray(R"({"version": "9.0", "url": "file:///usr/bin/xterm"})")
        << "Update json address is not a web address: file:///usr/bin/xterm";
}

void TestUpdateCheck::manifestProblemsWarn()
{
    QFETCH(QString, path);
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(QString, warning);
    server->setPage(path, body, status);
    MessageLog log;
    Browser browser;
    Answerer answerer(QMessageBox::Yes);
    MainWindow w; // the application check goes out at start-up
    w.firmwareVersion = "XYZ_1.0";
    QTest::qWait(0);
    w.checkForUpdatesFirmware();
    QVERIFY(waitHandled(w, *server, firmwarePath));
    QVERIFY(waitHandled(w, *server, applicationPath));
    QCOMPARE(log.count(warning.contains("%1") ? warning.arg(server->serverPort()) : warning), 1);
    QCOMPARE(log.count("Update check failed:") + log.count("Invalid update json:")
                 + log.count("Update json missing fields") + log.count("Update json address"),
             1);
    QCOMPARE(answerer.asked, QStringList());
    QCOMPARE(browser.opened, QList<QUrl>());
}

void TestUpdateCheck::firmwareCheckOncePerRunWhileUpdateChecked()
{
    writeSettingsIni({{"Update", false}, {"updateServer", server->base()}});
    Pty pty;
    MainWindow w;
    connectTo(w, pty.slavePath());
    QVERIFY(w.settings->serialPort->isOpen());

    pty.write(versionFrame("XYZ_1.0"));
    QVERIFY(waitUntil([&] { return w.firmwareVersion == "XYZ_1.0"; }));
    QTest::qWait(100);
    QCOMPARE(server->requests, QStringList()); // neither check while unchecked

    w.settings->checkBoxUpdate->setChecked(true);
    pty.write(versionFrame("XYZ_1.1"));
    QVERIFY(waitHandled(w, *server, firmwarePath));
    QCOMPARE(server->requests, QStringList({firmwarePath}));

    pty.write(versionFrame("XYZ_1.2"));
    QVERIFY(waitUntil([&] { return w.firmwareVersion == "XYZ_1.2"; }));
    QTest::qWait(100);
    QCOMPARE(server->requests, QStringList({firmwarePath}));
}

void TestUpdateCheck::applicationCheckAtStartUp_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<int>("answer");
    QTest::addColumn<QString>("question");
    QTest::addColumn<QList<QUrl>>("opened");
    const QList<QUrl> download = {QUrl("https://127.0.0.1/vendscope-1.2.3.tar.gz")};
    QTest::newRow("same version asks nothing") << "1.2.2" << int(QMessageBox::Yes) << "" << QList<QUrl>();
    QTest::newRow("newer version, yes opens the browser")
        << "1.2.3" << int(QMessageBox::Yes)
        << "Update Available|New version 1.2.3 is available.\nCurrent version: 1.2.2\nDownload now?" << download;
    QTest::newRow("newer version, no opens nothing")
        << "1.2.3" << int(QMessageBox::No)
        << "Update Available|New version 1.2.3 is available.\nCurrent version: 1.2.2\nDownload now?" << QList<QUrl>();
}

void TestUpdateCheck::applicationCheckAtStartUp()
{
    QFETCH(QString, version);
    QFETCH(int, answer);
    QFETCH(QString, question);
    QFETCH(QList<QUrl>, opened);
    server->setPage(applicationPath,
                    QString(R"({"version": "%1", "url": "https://127.0.0.1/vendscope-1.2.3.tar.gz"})").arg(version).toUtf8());
    Browser browser;
    Answerer answerer{QMessageBox::StandardButton(answer)};
    MainWindow w;
    QVERIFY(waitHandled(w, *server, applicationPath));
    QCOMPARE(answerer.asked, question.isEmpty() ? QStringList() : QStringList({question}));
    QCOMPARE(browser.opened, opened);
    QCOMPARE(server->requests, QStringList({applicationPath}));
}

void TestUpdateCheck::progressLabel_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<qint64>("received");
    QTest::addColumn<qint64>("total");
    QTest::addColumn<QString>("label");
    QTest::newRow("a quarter") << "app.dat" << qint64(512) << qint64(2048) << "app.dat 25%";
    QTest::newRow("percent is truncated") << "app.dat" << qint64(2047) << qint64(2048) << "app.dat 99%";
    QTest::newRow("complete") << "app.dat" << qint64(2048) << qint64(2048) << "app.dat 100%";
    QTest::newRow("files over 2 GiB") << "big.dat" << qint64(3221225472) << qint64(4294967296) << "big.dat 75%";
    QTest::newRow("unknown size leaves the label") << "app.dat" << qint64(512) << qint64(-1) << "before";
    QTest::newRow("zero size leaves the label") << "app.dat" << qint64(0) << qint64(0) << "before";
}

void TestUpdateCheck::progressLabel()
{
    QFETCH(QString, fileName);
    QFETCH(qint64, received);
    QFETCH(qint64, total);
    QFETCH(QString, label);
    writeSettingsIni();
    MainWindow w;
    w.firmwareUi->labelStatus->setText("before");
    emit w.downloader->progress(fileName, received, total);
    QCOMPARE(w.firmwareUi->labelStatus->text(), label);
}

// From the box's version report to the image in the box: the simulator
// reports XYZ_1.0.0, the server offers 1.1.0, the user agrees.
void TestUpdateCheck::newFirmwareReachesTheBox()
{
#ifndef VS_BOXSIM
    QSKIP("the box simulator is not built");
#else
    QByteArray image(2000, 0); // two full packets and one of 464 bytes
    for (int i = 0; i < image.size(); ++i)
        image[i] = char((i * 7) % 253);
    // UP, chunk 768, 3 packets, image size 2000, version 1.1.0
    const QByteArray ini = hexBytes("5550000003000003000007D0") + QByteArray("1.1.0", 6);
    server->setPage(firmwarePath, QString(R"({"version": "1.1.0", "DAT": "%1", "INI": "%2", "COF": "%3"})")
                                      .arg(server->url("/fw/DAT_1.1.0.bin"), server->url("/fw/INI_1.1.0.bin"),
                                           server->url("/fw/COF_1.1.0.bin"))
                                      .toUtf8());
    server->setPage("/fw/DAT_1.1.0.bin", image);
    server->setPage("/fw/INI_1.1.0.bin", ini);
    server->setPage("/fw/COF_1.1.0.bin", "coefficients");

    QTemporaryDir out;
    const QString imageOut = out.filePath("image.bin");
    QProcess sim;
    sim.start(VS_BOXSIM, {"--image-out", imageOut, "--rate", "20"});
    QVERIFY(sim.waitForStarted(5000));
    QVERIFY(waitUntil([&] { return sim.canReadLine(); }, 10000));
    const QString path = QString::fromLocal8Bit(sim.readLine()).trimmed();
    {
        Answerer answerer(QMessageBox::Yes);
        MainWindow w;
        connectTo(w, path);
        QVERIFY(waitUntil([&] { return w.firmwareUi->labelStatus->text() == "Upgrade end"; }, 20000));
        QCOMPARE(answerer.asked, QStringList({"Firmware Update Available|New version 1.1.0 is available.\n"
                                              "Current version: 1.0.0\nUpdate now?"}));
        QCOMPARE(server->requests, QStringList({applicationPath, firmwarePath, "/fw/DAT_1.1.0.bin",
                                                "/fw/INI_1.1.0.bin", "/fw/COF_1.1.0.bin"}));
        QCOMPARE(firmwareFiles(), QStringList({"COF_1.1.0.bin", "DAT_1.1.0.bin", "INI_1.1.0.bin"}));
        QCOMPARE(w.firmwareUi->progressBar->value(), 100);
        QVERIFY(waitUntil([&] { return QFile(imageOut).size() == image.size(); }));
        QFile written(imageOut);
        QVERIFY(written.open(QIODevice::ReadOnly));
        QCOMPARE(written.readAll(), image);
    }
    sim.terminate();
    QVERIFY(sim.waitForFinished(5000));
#endif
}

QTEST_MAIN(TestUpdateCheck)
#include "tst_updatecheck.moc"
