// The downloader and the update checks of the main window, against a real HTTP server on 127.0.0.1.
#include "testsupport.h"

#include "update/downloader.h"
#include "update/fwupgrade.h"

// A small HTTP/1.1 server on 127.0.0.1 for the update tests: GET from a table
// of paths, one request per connection, unknown paths get a 404 page.
class HttpServer : public QTcpServer
{
public:
    HttpServer()
    {
        if (!listen(QHostAddress::LocalHost, 0))
            qFatal("test http server cannot listen");
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = nextPendingConnection()) {
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] { answer(socket); });
            }
        });
    }

    QString base() const { return QStringLiteral("http://127.0.0.1:%1").arg(serverPort()); }
    QString url(const QString &path) const { return base() + path; }
    // "$SERVER" in a body stands for base(); a null body is no page (404). sendLength false: no Content-Length,
    // the body ends when the connection closes.
    void setPage(const QString &path, const QByteArray &body, bool sendLength = true)
    {
        if (body.isNull())
            pages.remove(path);
        else
            pages[path] = Page{QByteArray(body).replace("$SERVER", base().toUtf8()), sendLength};
    }

    QStringList requests; // paths in the order they were asked for

private:
    struct Page
    {
        QByteArray body = "<html>no such page</html>";
        bool sendLength = true;
    };

    void answer(QTcpSocket *socket)
    {
        const QByteArray head = socket->peek(socket->bytesAvailable());
        if (!head.contains("\r\n\r\n"))
            return; // the rest of the request is still on its way
        socket->readAll();
        requests << QString::fromLatin1(head.left(head.indexOf("\r\n")).split(' ').value(1));
        const Page page = pages.value(requests.last());
        QByteArray reply = QByteArray(pages.contains(requests.last()) ? "HTTP/1.1 200 OK" : "HTTP/1.1 404 Not Found")
            + "\r\nContent-Type: application/octet-stream\r\nConnection: close\r\n";
        if (page.sendLength)
            reply += "Content-Length: " + QByteArray::number(page.body.size()) + "\r\n";
        socket->write(reply + "\r\n" + page.body);
        socket->disconnectFromHost();
    }

    QHash<QString, Page> pages;
};

static const QString firmwarePath = "/updates/Tallybox/Firmware/update.json";
static const QString applicationPath = "/updates/Tallybox/Windows/update.json";

// Stands in for the user and the desktop: answers every question box, acknowledges every warning box (OK),
// remembers what they said and what it opened.
class User : public QTimer
{
    Q_OBJECT
public:
    explicit User(QMessageBox::StandardButton answer)
    {
        for (const char *scheme : {"http", "https"}) QDesktopServices::setUrlHandler(scheme, this, "open");
        callOnTimeout([this, answer] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            QAbstractButton *button = !box ? nullptr : box->button(answer) ? box->button(answer) : box->button(QMessageBox::Ok);
            if (button) {
                said << box->windowTitle() + "|" + box->text() + (box->textFormat() == Qt::PlainText ? "" : " <rich>");
                button->click();
            }
        });
        start(10);
    }
    ~User() override { for (const char *scheme : {"http", "https"}) QDesktopServices::unsetUrlHandler(scheme); }
    Q_INVOKABLE void open(const QUrl &url) { said << "opened " + url.toString(); }
    QStringList said;
};

// JSON with single quotes (moc misreads raw strings); "$SERVER" stands for the test server's address.
static QByteArray json(QString text) { return text.replace('\'', '"').toUtf8(); }

// more: further members, each after ", ".
static QByteArray firmwareManifest(const QString &version, const QString &more = QString())
{
    return json("{'version': '" + version + "', 'DAT': '$SERVER/fw/DAT_1.1.0.bin', 'INI': '$SERVER/fw/INI_1.1.0.bin', 'COF': '$SERVER/fw/COF_1.1.0.bin'"
                + (more.isEmpty() ? "" : ", " + more) + "}");
}

// The "sha256" member with the given member text, e.g. "'DAT': 'ab', 'INI': 'cd'".
static QString sha256Member(const QString &members) { return "'sha256': {" + members + "}"; }
static QString digestMembers(const QString &dat, const QString &ini, const QString &cof)
{
    return "'DAT': '" + dat + "', 'INI': '" + ini + "', 'COF': '" + cof + "'";
}
static QString sha256Hex(const QByteArray &data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
}

// Every file in the firmware folder as "name=content", sorted by name.
static QStringList stored()
{
    QStringList files;
    for (const QFileInfo &info : QDir(Downloader::firmwareDir()).entryInfoList(QDir::Files | QDir::Hidden, QDir::Name)) {
        QFile f(info.filePath());
        files << info.fileName() + "=" + (f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<unreadable>"));
    }
    return files;
}

class TestUpdateCheck : public QObject
{
    Q_OBJECT
    std::unique_ptr<HttpServer> server;

    // Runs the event loop until the server has had n requests and the window has dealt with every reply.
    bool waitHandled(MainWindow &w, int n)
    {
        return waitUntil([&] { return server->requests.size() >= n && w.findChildren<QNetworkReply *>().isEmpty(); },
                         10000);
    }

private slots:
    void init()
    {
        QCoreApplication::setApplicationVersion("1.2.2");
        QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy); // talk to 127.0.0.1 directly
        server = std::make_unique<HttpServer>();
        // Both checks find nothing new unless a test says so.
        server->setPage(applicationPath, json("{'version': '1.2.2', 'url': 'https://127.0.0.1/vendscope.tar.gz'}"));
        server->setPage(firmwarePath, firmwareManifest("1.0"));
        writeSettingsIni({{"Update", true}, {"updateServer", server->base()}});
        QDir(Downloader::firmwareDir()).removeRecursively();
        QDir().mkpath(Downloader::firmwareDir());
        QFile(Downloader::firmwareDir() + "/DAT_stale.bin").open(QIODevice::WriteOnly);
    }
    void cleanupTestCase()
    {
        removeSettingsIni();
        QDir(Downloader::firmwareDir()).removeRecursively();
        QFile::remove(QCoreApplication::applicationDirPath() + "/escape me.bin");
    }

    // The first file, then an INI sent without a length: a 404 page or an odd name does not stop the list.
    void downloads_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QByteArray>("page"); // null: not served, the server's 404 page
        QTest::addColumn<QString>("files");
        const QByteArray image(100000, 'Z');
        QTest::newRow("in order, whole") << "/fw/DAT_a.bin" << image << "DAT_a.bin=" + QString(image) + " INI_a.bin=UP";
        QTest::newRow("404 page kept") << "/fw/DAT_a.bin" << QByteArray() << "DAT_a.bin=<html>no such page</html> INI_a.bin=UP";
        QTest::newRow("name decoded, kept inside") << "/fw/..%2Fescape%20me.bin" << QByteArray("x") << "INI_a.bin=UP escape me.bin=x";
        QTest::newRow("encoded .. is the folder: nothing written") << "/fw/%2E%2E" << QByteArray("x") << "INI_a.bin=UP";
        QTest::newRow("encoded NUL: nothing written") << "/fw/a%00b.dat" << QByteArray("x") << "INI_a.bin=UP";
    }
    void downloads()
    {
        QFETCH(QString, path);
        QFETCH(QByteArray, page);
        QDir(Downloader::firmwareDir()).removeRecursively();
        server->setPage(path, page);
        server->setPage("/fw/INI_a.bin", "UP", false);
        Downloader d;
        QSignalSpy finished(&d, &Downloader::allFinished);
        QSignalSpy progress(&d, &Downloader::progress);
        d.addUrl(QUrl(server->url(path)));
        d.addUrl(QUrl(server->url("/fw/INI_a.bin")), "AB12"); // the digest only travels with the task
        d.start();
        QVERIFY(finished.wait(20000));
        QTEST(stored().join(' '), "files");
        QCOMPARE(d.fetchedTasks().size(), 2);
        QCOMPARE(d.fetchedTasks().first().sha256, QString());
        QCOMPARE(d.fetchedTasks().last().filePath, Downloader::firmwareDir() + "/INI_a.bin");
        QCOMPARE(d.fetchedTasks().last().sha256, QString("AB12"));
        // Qt's HTTP client may ask again for the page without a length when the close beats
        // its read (seen under load); the downloader itself asks once for each, in order.
        server->requests.removeDuplicates();
        QCOMPARE(server->requests.size(), 2);
        QCOMPARE(server->requests.last(), QString("/fw/INI_a.bin"));
        if (page.size() > 1) // the large file reports its whole size
            QVERIFY(progress.contains(QVariantList({QString("DAT_a.bin"), qint64(page.size()), qint64(page.size())})));
        QCOMPARE(progress.last(), QVariantList({QString("INI_a.bin"), qint64(2), qint64(-1)})); // no length: unknown
    }

    // The check of a downloaded file against its published digest, without a window.
    void digestCheck_data()
    {
        QTest::addColumn<QString>("name"); // in the firmware folder; "" is the folder itself
        QTest::addColumn<QByteArray>("content"); // null: no such file
        QTest::addColumn<QString>("sha256");
        QTest::addColumn<QString>("reason"); // empty: it matches
        const QByteArray image = QByteArray("0123456789abcdef").repeated(70000); // more than one read
        const QString empty = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
        QTest::newRow("matches") << "DAT_1.bin" << image << sha256Hex(image) << "";
        QTest::newRow("matches, upper case") << "DAT_1.bin" << image << sha256Hex(image).toUpper() << "";
        QTest::newRow("empty file") << "COF_1.bin" << QByteArray("") << empty << "";
        QTest::newRow("one byte changed") << "DAT_1.bin" << QByteArray(image).replace(700000, 1, "X") << sha256Hex(image).toUpper()
            << "DAT_1.bin does not match the published checksum.\nPublished SHA-256: " + sha256Hex(image)
                   + "\nSHA-256 of the file: " + sha256Hex(QByteArray(image).replace(700000, 1, "X"));
        QTest::newRow("no such file") << "INI_1.bin" << QByteArray() << empty
            << "INI_1.bin cannot be read (No such file or directory), so it cannot be checked against the published checksum.";
        QTest::newRow("the folder") << "" << QByteArray() << empty << "<folder>";
    }
    void digestCheck()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, content);
        QFETCH(QString, sha256);
        QFETCH(QString, reason);
        const QString path = Downloader::firmwareDir() + "/" + name;
        if (!content.isNull()) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
            QCOMPARE(file.write(content), content.size());
        }
        QString said = "untouched";
        QCOMPARE(fileMatchesSha256(path, sha256, &said), reason.isEmpty());
        if (reason.isEmpty())
            QCOMPARE(said, QString("untouched"));
        else if (reason == "<folder>") // the system's words for it vary
            QVERIFY2(QRegularExpression("^/.+/firmware/ cannot be read \\(.+\\), so it cannot be checked against the published checksum\\.$")
                         .match(said).hasMatch(), qPrintable(said));
        else
            QCOMPARE(said, reason);
    }

    // One manifest per row, the other says nothing new; the box reports boxVersion, the firmware check is asked
    // for twice. "said" is every question asked (the application's answered yes), warning given and page opened.
    void whatTheChecksSay_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("boxVersion");
        QTest::addColumn<QStringList>("said");
        const QString fw = firmwarePath, v = "XYZ_1.0";
        const QString files = "'DAT': 'http://127.0.0.1/D', 'INI': 'http://127.0.0.1/I'}";
        const QStringList missing{"Update json missing fields"};
        QTest::newRow("equal, no _, asks nothing") << fw << firmwareManifest("2.0.1") << "2.0.1" << QStringList();
        QTest::newRow("older manifest asks nothing") << fw << firmwareManifest("2.0.0") << "XYZ_2.0.1" << QStringList();
        QTest::newRow("2.0.10 is newer than 2.0.1, numbers compare as numbers") << fw << firmwareManifest("2.0.10") << "XYZ_2.0.1" << QStringList{
            "Firmware Update Available|New version 2.0.10 is available.\nCurrent version: 2.0.1\nUpdate now?"};
        QTest::newRow("beta as text, <b> %2 kept") << fw << firmwareManifest("beta <b>%2</b>") << v << QStringList{
            "Firmware Update Available|New version beta <b>%2</b> is available.\nCurrent version: 1.0\nUpdate now?"};
        QTest::newRow("firmware manifest missing") << fw << QByteArray() << v << QStringList{"Update check failed: "
            "Error transferring $SERVER/updates/Tallybox/Firmware/update.json - server replied: Not Found"};
        QTest::newRow("cut") << fw << QByteArray("{") << v << QStringList{"Invalid update json: unterminated object"};
        QTest::newRow("too large") << fw << QByteArray(2 << 20, ' ') << v
                                   << QStringList{"Update check failed: manifest larger than 1 MiB"};
        QTest::newRow("COF missing") << fw << json("{'version': '9.0', " + files) << v << missing;
        QTest::newRow("COF empty") << fw << json("{'version': '9.0', 'COF': '', " + files) << v << missing;
        // Digests, where there are any, are checked with the rest of the manifest; a bad one is a bad manifest.
        const QString d64 = QString(64, 'd'), hex = "0123456789abcdefABCDEF0123456789abcdefABCDEF0123456789abcdefABCD";
        QTest::newRow("sha256 of all three, either case: asks") << fw << firmwareManifest("9.0", sha256Member(digestMembers(d64, hex, hex.toUpper())))
            << v << QStringList{"Firmware Update Available|New version 9.0 is available.\nCurrent version: 1.0\nUpdate now?"};
        QTest::newRow("sha256 of DAT 63 digits") << fw << firmwareManifest("9.0", sha256Member(digestMembers(d64.left(63), d64, d64)))
            << v << QStringList{"Update json sha256 not 64 hex digits: DAT"};
        QTest::newRow("sha256 of INI 65 digits") << fw << firmwareManifest("9.0", sha256Member(digestMembers(d64, d64 + "d", d64)))
            << v << QStringList{"Update json sha256 not 64 hex digits: INI"};
        QTest::newRow("sha256 of COF not hex") << fw << firmwareManifest("9.0", sha256Member(digestMembers(d64, d64, d64.left(63) + "g")))
            << v << QStringList{"Update json sha256 not 64 hex digits: COF"};
        QTest::newRow("sha256 of DAT empty") << fw << firmwareManifest("9.0", sha256Member(digestMembers("", d64, d64)))
            << v << QStringList{"Update json sha256 not 64 hex digits: DAT"};
        QTest::newRow("sha256 of INI a number") << fw << firmwareManifest("9.0", sha256Member("'DAT': '" + d64 + "', 'INI': 12, 'COF': '" + d64 + "'"))
            << v << QStringList{"Update json sha256 not 64 hex digits: INI"};
        QTest::newRow("sha256 of DAT a list") << fw << firmwareManifest("9.0", sha256Member("'DAT': ['" + d64 + "'], 'INI': '" + d64 + "', 'COF': '" + d64 + "'"))
            << v << QStringList{"Update json sha256 not 64 hex digits: DAT"};
        QTest::newRow("sha256 without COF") << fw << firmwareManifest("9.0", sha256Member("'DAT': '" + d64 + "', 'INI': '" + d64 + "'"))
            << v << QStringList{"Update json sha256 missing: COF"};
        QTest::newRow("sha256 empty") << fw << firmwareManifest("9.0", sha256Member("")) << v << QStringList{"Update json sha256 missing: DAT"};
        QTest::newRow("sha256 a string") << fw << firmwareManifest("9.0", "'sha256': '" + d64 + "'") << v
                                         << QStringList{"Update json sha256 is not an object"};
        QTest::newRow("sha256 a list") << fw << firmwareManifest("9.0", "'sha256': ['" + d64 + "', '" + d64 + "', '" + d64 + "']") << v
                                       << QStringList{"Update json sha256 is not an object"};
        QTest::newRow("sha256 null") << fw << firmwareManifest("9.0", "'sha256': null") << v
                                     << QStringList{"Update json sha256 is not an object"};
        QTest::newRow("local program") << applicationPath << json("{'version': '9.0', 'url': 'file:///bin/sh'}") << v
            << QStringList{"Update json address is not a web address: file:///bin/sh"};
        QTest::newRow("newer application, yes opens the browser") << applicationPath
            << json("{'version': '1.2.3', 'url': 'https://127.0.0.1/vendscope-1.2.3.tar.gz'}") << v
            << QStringList{"Update Available|New version 1.2.3 is available.\nCurrent version: 1.2.2\nDownload now?",
                           "opened https://127.0.0.1/vendscope-1.2.3.tar.gz"};
    }

    void whatTheChecksSay()
    {
        QFETCH(QString, path);
        QFETCH(QByteArray, body);
        QFETCH(QString, boxVersion);
        server->setPage(path, body);
        MessageLog log;
        User user(path == applicationPath ? QMessageBox::Yes : QMessageBox::No);
        MainWindow w; // the application check goes out at start-up
        w.firmwareVersion = boxVersion;
        w.checkForUpdatesFirmware();
        w.checkForUpdatesFirmware(); // once per run
        QVERIFY(waitHandled(w, 2));
        const QRegularExpression warning("^(Update check failed|Invalid update json|Update json)");
        QTEST((user.said + log.messages().filter(warning)).replaceInStrings(server->base(), "$SERVER"), "said");
        QCOMPARE(server->requests.size(), 2); // one of each check, no firmware fetched
        QCOMPARE(QDir(Downloader::firmwareDir()).entryList(QDir::Files), QStringList{"DAT_stale.bin"}); // none cleared
    }

    // Neither check goes out while "Update" is unchecked; download progress shows all the same.
    void updateUnchecked()
    {
        writeSettingsIni({{"Update", false}, {"updateServer", server->base()}});
        MainWindow w;
        w.checkForUpdatesFirmware();
        emit w.downloader->progress("app.dat", 2047, 2048);
        QCOMPARE(w.firmwareUi->labelStatus->text(), QString("app.dat 99%")); // truncated
        emit w.downloader->progress("app.dat", 3221225472, 4294967296);
        QCOMPARE(w.firmwareUi->labelStatus->text(), QString("app.dat 75%")); // files over 2 GiB
        emit w.downloader->progress("app.dat", 512, 0);
        QCOMPARE(w.firmwareUi->labelStatus->text(), QString("app.dat 75%")); // no size known: the label stays
        QTest::qWait(300);
        QCOMPARE(server->requests, QStringList());
        w.settings->checkBoxUpdate->setChecked(true);
        w.firmwareVersion = "XYZ_1.0"; // what the server offers: nothing to ask
        w.checkForUpdatesFirmware();
        QVERIFY(waitUntil([&] { return server->requests == QStringList{firmwarePath}; }, 10000));
    }

    // The built-in placeholder server is never looked up, not even on a first start.
    void placeholderServerNeverAsked()
    {
        writeSettingsIni({{"Update", true}, {"updateServer", "https://updates.vendscope.invalid"}});
        MessageLog log;
        MainWindow w;
        w.checkForUpdatesFirmware();
        QTest::qWait(50); // the start-up check runs from the event loop
        QCOMPARE(log.messages().filter("Update server not configured: https://updates.vendscope.invalid").size(), 2);
        QVERIFY(!w.firmwareCheckPending);
    }

    // The simulator reports XYZ_1.0.0, the server offers 1.1.0, the user agrees: the image reaches the box, unless
    // the manifest publishes digests that a downloaded file does not match. Then nothing goes to the box, the files
    // are deleted and a warning names the file.
    void newFirmwareReachesTheBox_data()
    {
        QTest::addColumn<QString>("sha256"); // the manifest's digests of the files below: "", "lower" or "mixed" case
        QTest::addColumn<QString>("changed"); // the file that the server sends changed after the manifest was written
        QTest::addColumn<QString>("refused"); // the file the warning names; empty: flashed
        QTest::newRow("no digests: flashed as before") << "" << "DAT" << "";
        // One flashing row with digests: each is another run of the boot-loader exchange, which is timing-sensitive.
        QTest::newRow("matching digests, INI's in upper case: flashed") << "mixed" << "" << "";
        QTest::newRow("DAT changed on the server: refused") << "lower" << "DAT" << "DAT_1.1.0.bin";
        QTest::newRow("INI changed on the server: refused") << "mixed" << "INI" << "INI_1.1.0.bin";
        QTest::newRow("COF changed, though the upgrade does not use it: refused") << "lower" << "COF" << "COF_1.1.0.bin";
        QTest::newRow("DAT gone from the server, its 404 page: refused") << "lower" << "DAT404" << "DAT_1.1.0.bin";
    }
    void newFirmwareReachesTheBox()
    {
#ifndef VS_BOXSIM
        QSKIP("the box simulator is not built");
#else
        QFETCH(QString, sha256);
        QFETCH(QString, changed);
        QFETCH(QString, refused);
        const QByteArray image = QByteArray("0123456789abcdefghijklmnopqrstuvwxyz").repeated(56).left(2000);
        // UP, chunk 768, 3 packets (the last of 464 bytes), image size 2000, version 1.1.0
        const QByteArray ini = hx("5550000003000003000007D0") + QByteArray("1.1.0", 6);
        const QByteArray cof = "coefficients";
        const QString iniDigest = sha256 == "mixed" ? sha256Hex(ini).toUpper() : sha256Hex(ini);
        server->setPage(firmwarePath, firmwareManifest("1.1.0", sha256.isEmpty() ? QString()
            : sha256Member(digestMembers(sha256Hex(image), iniDigest, sha256Hex(cof)))));
        // What the server sends from now on: one byte changed in one file, or a file gone.
        auto served = [&](const QString &name, QByteArray data) {
            return changed == name ? data.replace(data.size() / 2, 1, "!") : data;
        };
        server->setPage("/fw/DAT_1.1.0.bin", changed == "DAT404" ? QByteArray() : served("DAT", image));
        server->setPage("/fw/INI_1.1.0.bin", served("INI", ini));
        server->setPage("/fw/COF_1.1.0.bin", served("COF", cof));
        QTemporaryDir out;
        // --verbose: the simulator lists the commands it receives. Only the refused rows look; the flashing ones run as before.
        BoxSim sim(QStringList{"--image-out", out.filePath("image.bin"), "--rate", "20"}
                   + (refused.isEmpty() ? QStringList() : QStringList{"--verbose"}));
        User user(QMessageBox::Yes);
        MainWindow w;
        QVERIFY(waitHandled(w, 1)); // the start-up check, first so that the order below is known
        connectTo(w, sim.path);
        const QStringList fetched{applicationPath, firmwarePath, "/fw/DAT_1.1.0.bin", "/fw/INI_1.1.0.bin", "/fw/COF_1.1.0.bin"};
        const QString asked = "Firmware Update Available|New version 1.1.0 is available.\nCurrent version: 1.0.0\nUpdate now?";
        if (refused.isEmpty()) {
            QVERIFY2(waitUntil([&] { return w.firmwareUi->labelStatus->text() == "Upgrade end"; }, 30000),
                     qPrintable(w.firmwareUi->labelStatus->text() + " " + server->requests.join(' ')));
            QCOMPARE(server->requests, fetched);
            QCOMPARE(user.said, QStringList{asked});
            QCOMPARE(QDir(Downloader::firmwareDir()).entryList(QDir::Files, QDir::Name),
                     QStringList({"COF_1.1.0.bin", "DAT_1.1.0.bin", "INI_1.1.0.bin"}));
            QFile written(out.filePath("image.bin")); // the simulator received the image as served
            QVERIFY(waitUntil([&] { return written.size() == image.size(); }));
            QVERIFY(written.open(QIODevice::ReadOnly));
            QCOMPARE(written.readAll(), changed == "DAT" ? served("DAT", image) : image);
            return;
        }
        QVERIFY(waitUntil([&] { return user.said.size() == 2; }, 30000));
        QCOMPARE(server->requests, fetched);
        QCOMPARE(user.said.first(), asked);
        const QString warning = user.said.last();
        QVERIFY2(warning.startsWith("Firmware Update|" + refused + " does not match the published checksum.\nPublished SHA-256: "),
                 qPrintable(warning));
        QVERIFY2(warning.endsWith("\n\nNothing was flashed; the downloaded files were deleted."), qPrintable(warning));
        // The box heard its mode and the heartbeats, never the boot command; no image reached it.
        QByteArray heard;
        waitUntil([&] { return (heard += sim.proc.readAllStandardError()).contains("heart") || heard.contains("boot"); }, 5000);
        QTest::qWait(300);
        heard += sim.proc.readAllStandardError();
        QVERIFY2(heard.contains("modeSet") && heard.contains("heart") && !heard.contains("boot"), heard.constData());
        QVERIFY(!w.fwUpgrade->upgradeRunning);
        QVERIFY(!QFile::exists(out.filePath("image.bin")));
        QCOMPARE(w.firmwareUi->labelStatus->text(), QString("Firmware refused: checksum check failed."));
        QCOMPARE(stored(), QStringList()); // hidden files included
#endif
    }
};

QTEST_MAIN(TestUpdateCheck)
#include "tst_updatecheck.moc"
