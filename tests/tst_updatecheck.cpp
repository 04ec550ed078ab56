// The update checks of the main window against a real HTTP server on 127.0.0.1.
#include "httpserver.h"
#include "testsupport.h"

#include "app/mainwindow.h"
#include "settings/settings.h"
#include "ui_dialogfirmware.h"
#include "update/downloader.h"

#include <QtNetwork>
#include <QtWidgets>

static const QString firmwarePath = "/updates/Tallybox/Firmware/update.json";
static const QString applicationPath = "/updates/Tallybox/Windows/update.json";

// Answers every question box that comes up and remembers what it asked; rich text is marked.
struct Answerer : QTimer
{
    explicit Answerer(QMessageBox::StandardButton answer)
    {
        callOnTimeout([this, answer] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            if (box && box->button(answer)) {
                asked << box->windowTitle() + "|" + box->text() + (box->textFormat() == Qt::PlainText ? "" : " <rich text>");
                box->button(answer)->click();
            }
        });
        start(10);
    }
    QStringList asked;
};

// Stands in for the desktop's browser.
class Browser : public QObject
{
    Q_OBJECT
public:
    Browser() { for (const char *scheme : {"http", "https"}) QDesktopServices::setUrlHandler(scheme, this, "open"); }
    ~Browser() override { for (const char *scheme : {"http", "https"}) QDesktopServices::unsetUrlHandler(scheme); }
    QStringList opened;
    Q_INVOKABLE void open(const QUrl &url) { opened << "opened " + url.toString(); }
};

// JSON with single quotes (moc misreads raw strings); "$SERVER" stands for the test server's address.
static QByteArray json(QString text) { return text.replace('\'', '"').toUtf8(); }

static QByteArray firmwareManifest(const QString &version)
{
    return json("{'version': '" + version + "', 'DAT': '$SERVER/fw/DAT_1.1.0.bin', 'INI': '$SERVER/fw/INI_1.1.0.bin', 'COF': '$SERVER/fw/COF_1.1.0.bin'}");
}

class TestUpdateCheck : public QObject
{
    Q_OBJECT
    std::unique_ptr<HttpServer> server;

    // A null body: no such manifest, the server answers 404.
    void serve(const QString &path, const QByteArray &body)
    {
        server->setPage(path, QByteArray(body).replace("$SERVER", server->base().toUtf8()), body.isNull() ? 404 : 200);
    }
    // Runs the event loop until the server has answered path and the window has dealt with every reply.
    bool waitHandled(MainWindow &w, const QString &path)
    {
        return waitUntil([&] { return server->requests.contains(path) && w.findChildren<QNetworkReply *>().isEmpty(); }, 5000);
    }

private slots:
    void init()
    {
        QCoreApplication::setApplicationVersion("1.2.2");
        QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy); // talk to 127.0.0.1 directly
        server = std::make_unique<HttpServer>();
        // Both checks find nothing new unless a test says so.
        serve(applicationPath, json("{'version': '1.2.2', 'url': 'https://127.0.0.1/vendscope.tar.gz'}"));
        serve(firmwarePath, firmwareManifest("1.0"));
        writeSettingsIni({{"Update", true}, {"updateServer", server->base()}});
        QDir(Downloader::firmwareDir()).removeRecursively();
        QDir().mkpath(Downloader::firmwareDir());
        QFile(Downloader::firmwareDir() + "/DAT_stale.bin").open(QIODevice::WriteOnly);
    }
    void cleanupTestCase() { removeSettingsIni(); QDir(Downloader::firmwareDir()).removeRecursively(); }

    // One manifest per row, the other says nothing new; the box reports boxVersion and the firmware
    // check goes out. "said" is every question asked, warning given and address opened.
    void whatTheChecksSay_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("boxVersion");
        QTest::addColumn<bool>("yes");
        QTest::addColumn<QStringList>("said");
        const QString fw = firmwarePath, files = "'DAT': 'http://127.0.0.1/D', 'INI': 'http://127.0.0.1/I'}";
        QTest::newRow("equal asks nothing (report without _)") << fw << firmwareManifest("2.0.1") << "2.0.1" << false << QStringList();
        QTest::newRow("older manifest asks nothing") << fw << firmwareManifest("2.0.0") << "XYZ_2.0.1" << false << QStringList();
        QTest::newRow("2.0.10 is newer than 2.0.1") << fw << firmwareManifest("2.0.10") << "XYZ_2.0.1" << false
            << QStringList({"Firmware Update Available|New version 2.0.10 is available.\nCurrent version: 2.0.1\nUpdate now?"});
        QTest::newRow("beta against 1.0 is compared as text") << fw << firmwareManifest("beta") << "XYZ_1.0" << false
            << QStringList({"Firmware Update Available|New version beta is available.\nCurrent version: 1.0\nUpdate now?"});
        QTest::newRow("only the first underscore splits; markup stays text") << fw << firmwareManifest("B_2.0 <b>%2</b>") << "X_B_1.0" << false
            << QStringList({"Firmware Update Available|New version B_2.0 <b>%2</b> is available.\nCurrent version: B_1.0\nUpdate now?"});
        QTest::newRow("firmware manifest missing") << fw << QByteArray() << "XYZ_1.0" << true
            << QStringList({"Update check failed: Error transferring $SERVER/updates/Tallybox/Firmware/update.json - server replied: Not Found"});
        QTest::newRow("cut short") << fw << QByteArray("{") << "XYZ_1.0" << true << QStringList({"Invalid update json: unterminated object"});
        QTest::newRow("too large") << fw << QByteArray(2 << 20, ' ') << "XYZ_1.0" << true << QStringList({"Update check failed: manifest larger than 1 MiB"});
        QTest::newRow("COF missing") << fw << json("{'version': '9.0', " + files) << "XYZ_1.0" << true << QStringList({"Update json missing fields"});
        QTest::newRow("COF empty") << fw << json("{'version': '9.0', 'COF': '', " + files) << "XYZ_1.0" << true << QStringList({"Update json missing fields"});
        QTest::newRow("COF a local file") << fw << json("{'version': '9.0', 'COF': 'file:///etc/passwd', " + files) << "XYZ_1.0" << true
            << QStringList({"Update json address is not a web address: file:///etc/passwd"});
        QTest::newRow("application url runs a local program") << applicationPath << json("{'version': '9.0', 'url': 'file:///usr/bin/xterm'}")
            << "XYZ_1.0" << true << QStringList({"Update json address is not a web address: file:///usr/bin/xterm"});
        const QByteArray application = json("{'version': '1.2.3', 'url': 'https://127.0.0.1/vendscope-1.2.3.tar.gz'}");
        const QString question = "Update Available|New version 1.2.3 is available.\nCurrent version: 1.2.2\nDownload now?";
        QTest::newRow("newer application, yes opens the browser") << applicationPath << application << "XYZ_1.0" << true
            << QStringList({question, "opened https://127.0.0.1/vendscope-1.2.3.tar.gz"});
        QTest::newRow("newer application, no opens nothing") << applicationPath << application << "XYZ_1.0" << false << QStringList({question});
    }

    void whatTheChecksSay()
    {
        QFETCH(QString, path);
        QFETCH(QByteArray, body);
        QFETCH(QString, boxVersion);
        QFETCH(bool, yes);
        serve(path, body);
        MessageLog log;
        Browser browser;
        Answerer answerer(yes ? QMessageBox::Yes : QMessageBox::No);
        MainWindow w; // the application check goes out at start-up
        w.firmwareVersion = boxVersion;
        w.checkForUpdatesFirmware();
        QVERIFY(waitHandled(w, firmwarePath));
        QVERIFY(waitHandled(w, applicationPath));
        const QRegularExpression warning("^(Update check failed|Invalid update json|Update json)");
        QTEST((answerer.asked + log.messages().filter(warning) + browser.opened).replaceInStrings(server->base(), "$SERVER"), "said");
        // No firmware question answered yes: nothing fetched, nothing cleared, no dialog.
        QCOMPARE(server->requests.filter("/fw/"), QStringList());
        QCOMPARE(QDir(Downloader::firmwareDir()).entryList(QDir::Files), QStringList({"DAT_stale.bin"}));
        QVERIFY(!w.firmwareDialog->isVisible());
    }

    void firmwareCheckOncePerRunWhileUpdateChecked()
    {
        writeSettingsIni({{"Update", false}, {"updateServer", server->base()}});
        Pty pty;
        MainWindow w;
        connectTo(w, pty.slavePath());

        pty.write(versionFrame("XYZ_1.0"));
        QVERIFY(waitUntil([&] { return w.firmwareVersion == "XYZ_1.0"; }));
        QTest::qWait(100);
        QCOMPARE(server->requests, QStringList()); // neither check while unchecked

        w.settings->checkBoxUpdate->setChecked(true);
        pty.write(versionFrame("XYZ_1.1"));
        QVERIFY(waitHandled(w, firmwarePath));
        pty.write(versionFrame("XYZ_1.2"));
        QVERIFY(waitUntil([&] { return w.firmwareVersion == "XYZ_1.2"; }));
        QTest::qWait(100);
        QCOMPARE(server->requests, QStringList({firmwarePath}));
    }

    void progressLabel_data()
    {
        QTest::addColumn<qint64>("received");
        QTest::addColumn<qint64>("total");
        QTest::addColumn<QString>("label");
        QTest::newRow("percent is truncated") << qint64(2047) << qint64(2048) << "app.dat 99%";
        QTest::newRow("files over 2 GiB") << qint64(3221225472) << qint64(4294967296) << "app.dat 75%";
        QTest::newRow("unknown size leaves the label") << qint64(512) << qint64(-1) << "before";
        QTest::newRow("zero size leaves the label") << qint64(0) << qint64(0) << "before";
    }

    void progressLabel()
    {
        QFETCH(qint64, received);
        QFETCH(qint64, total);
        MainWindow w;
        w.firmwareUi->labelStatus->setText("before");
        emit w.downloader->progress("app.dat", received, total);
        QTEST(w.firmwareUi->labelStatus->text(), "label");
    }

    // From the box's version report to the image in the box: the simulator
    // reports XYZ_1.0.0, the server offers 1.1.0, the user agrees.
    void newFirmwareReachesTheBox()
    {
#ifndef VS_BOXSIM
        QSKIP("the box simulator is not built");
#else
        QByteArray image(2000, 0); // two full packets and one of 464 bytes
        for (int i = 0; i < image.size(); ++i)
            image[i] = char((i * 7) % 253);
        serve(firmwarePath, firmwareManifest("1.1.0"));
        server->setPage("/fw/DAT_1.1.0.bin", image);
        // UP, chunk 768, 3 packets, image size 2000, version 1.1.0
        server->setPage("/fw/INI_1.1.0.bin", hexBytes("5550000003000003000007D0") + QByteArray("1.1.0", 6));
        server->setPage("/fw/COF_1.1.0.bin", "coefficients");
        server->hold("/fw/DAT_1.1.0.bin");

        QTemporaryDir out;
        QProcess sim;
        sim.start(VS_BOXSIM, {"--image-out", out.filePath("image.bin"), "--rate", "20"});
        QVERIFY(waitUntil([&] { return sim.canReadLine(); }, 10000));
        Answerer answerer(QMessageBox::Yes);
        MainWindow w;
        QVERIFY(waitHandled(w, applicationPath)); // the start-up check, first so that the order below is known
        connectTo(w, QString::fromLocal8Bit(sim.readLine()).trimmed());
        QVERIFY(waitUntil([&] { return server->requests.contains("/fw/DAT_1.1.0.bin"); }, 5000));
        QCOMPARE(answerer.asked,
                 QStringList({"Firmware Update Available|New version 1.1.0 is available.\nCurrent version: 1.0.0\nUpdate now?"}));
        QVERIFY(w.firmwareDialog->isVisible());
        QCOMPARE(w.firmwareUi->labelStatus->text(), QString("Fetching firmware..."));

        server->release("/fw/DAT_1.1.0.bin");
        QVERIFY(waitUntil([&] { return w.firmwareUi->labelStatus->text() == "Upgrade end"; }, 20000));
        QCOMPARE(server->requests,
                 QStringList({applicationPath, firmwarePath, "/fw/DAT_1.1.0.bin", "/fw/INI_1.1.0.bin", "/fw/COF_1.1.0.bin"}));
        QCOMPARE(QDir(Downloader::firmwareDir()).entryList(QDir::Files, QDir::Name), QStringList({"COF_1.1.0.bin", "DAT_1.1.0.bin", "INI_1.1.0.bin"}));
        QFile written(out.filePath("image.bin")); // the simulator received the image unchanged
        QVERIFY(waitUntil([&] { return written.size() == image.size(); }));
        QVERIFY(written.open(QIODevice::ReadOnly));
        QCOMPARE(written.readAll(), image);
        sim.terminate();
        QVERIFY(sim.waitForFinished(5000));
#endif
    }
};

QTEST_MAIN(TestUpdateCheck)
#include "tst_updatecheck.moc"
