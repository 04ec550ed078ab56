// The firmware downloader against a real HTTP server on 127.0.0.1.
#include "httpserver.h"
#include "testsupport.h"

#include "update/downloader.h"

#include <QDir>
#include <QFile>
#include <QNetworkProxy>
#include <QSignalSpy>

class TestUpdateDownloader : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void emptyListFinishesAtOnce();
    void filesArriveInOrderUnderTheirNames();
    void listContinuesPastFailures_data();
    void listContinuesPastFailures();
    void storedNameIsTheDecodedLastSegment_data();
    void storedNameIsTheDecodedLastSegment();
    void unknownSizeReportsMinusOne();
    void clearKeepsFoldersAndHiddenFiles();
    void destroyedWhileDownloading();

private:
    static QByteArray readFile(const QString &name);
    static QStringList firmwareFiles();
};

void TestUpdateDownloader::initTestCase()
{
    // Whatever the environment says, these tests talk to 127.0.0.1 directly.
    QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
}

void TestUpdateDownloader::init()
{
    QDir(Downloader::firmwareDir()).removeRecursively();
}

void TestUpdateDownloader::cleanupTestCase()
{
    QDir(Downloader::firmwareDir()).removeRecursively();
    QDir(QCoreApplication::applicationDirPath()).remove("escape.bin");
}

QByteArray TestUpdateDownloader::readFile(const QString &name)
{
    QFile f(Downloader::firmwareDir() + "/" + name);
    if (!f.open(QIODevice::ReadOnly))
        return "<missing>";
    return f.readAll();
}

QStringList TestUpdateDownloader::firmwareFiles()
{
    QStringList names = QDir(Downloader::firmwareDir()).entryList(QDir::Files | QDir::Hidden);
    names.sort();
    return names;
}

void TestUpdateDownloader::emptyListFinishesAtOnce()
{
    Downloader d;
    QSignalSpy finished(&d, &Downloader::allFinished);
    d.start();
    QCOMPARE(finished.count(), 1);
}

void TestUpdateDownloader::filesArriveInOrderUnderTheirNames()
{
    HttpServer server;
    const QByteArray image(2000, '\x5A');
    server.setPage("/fw/DAT_1.1.0.bin", image);
    server.setPage("/fw/INI_1.1.0.bin", "UP ini");
    server.setPage("/fw/COF_1.1.0.bin", "cof");
    Downloader d;
    QVERIFY(QDir(Downloader::firmwareDir()).exists());
    QSignalSpy finished(&d, &Downloader::allFinished);
    QSignalSpy progress(&d, &Downloader::progress);
    d.addUrl(QUrl(server.url("/fw/DAT_1.1.0.bin")));
    d.addUrl(QUrl(server.url("/fw/INI_1.1.0.bin")));
    d.addUrl(QUrl(server.url("/fw/COF_1.1.0.bin")));
    QVERIFY(server.requests.isEmpty()); // adding fetches nothing
    d.start();
    QVERIFY(finished.wait(5000));
    QCOMPARE(finished.count(), 1);
    QCOMPARE(server.requests, QStringList({"/fw/DAT_1.1.0.bin", "/fw/INI_1.1.0.bin", "/fw/COF_1.1.0.bin"}));
    QCOMPARE(firmwareFiles(), QStringList({"COF_1.1.0.bin", "DAT_1.1.0.bin", "INI_1.1.0.bin"}));
    QCOMPARE(readFile("DAT_1.1.0.bin"), image);
    QCOMPARE(readFile("INI_1.1.0.bin"), QByteArray("UP ini"));
    QCOMPARE(readFile("COF_1.1.0.bin"), QByteArray("cof"));
    // Reports carry the name of the file they are about.
    QCOMPARE(progress.first().at(0).toString(), QString("DAT_1.1.0.bin"));
    QCOMPARE(progress.last(), QVariantList({QString("COF_1.1.0.bin"), qint64(3), qint64(3)}));
}

void TestUpdateDownloader::listContinuesPastFailures_data()
{
    QTest::addColumn<QString>("firstUrl");
    QTest::addColumn<QByteArray>("firstFile");
    QTest::addColumn<QString>("firstName");
    QTest::newRow("a 404 page is kept as the file") << "/fw/DAT_a.bin" << QByteArray("<html>no such page</html>") << "DAT_a.bin";
    QTest::newRow("a refused connection leaves an empty file") << "http://127.0.0.1:1/DAT_a.bin" << QByteArray() << "DAT_a.bin";
    QTest::newRow("an unknown scheme leaves an empty file") << "gopher://127.0.0.1/DAT_a.bin" << QByteArray() << "DAT_a.bin";
    QTest::newRow("no file name writes nothing") << "/fw/" << QByteArray("<missing>") << "";
}

void TestUpdateDownloader::listContinuesPastFailures()
{
    QFETCH(QString, firstUrl);
    QFETCH(QByteArray, firstFile);
    QFETCH(QString, firstName);
    HttpServer server;
    server.setPage("/fw/INI_a.bin", "UP");
    Downloader d;
    QSignalSpy finished(&d, &Downloader::allFinished);
    d.addUrl(QUrl(firstUrl.startsWith("/") ? server.url(firstUrl) : firstUrl));
    d.addUrl(QUrl(server.url("/fw/INI_a.bin")));
    d.start();
    QVERIFY(finished.wait(5000));
    QCOMPARE(finished.count(), 1);
    QCOMPARE(readFile("INI_a.bin"), QByteArray("UP"));
    if (!firstName.isEmpty())
        QCOMPARE(readFile(firstName), firstFile);
    else
        QCOMPARE(firmwareFiles(), QStringList({"INI_a.bin"}));
}

void TestUpdateDownloader::storedNameIsTheDecodedLastSegment_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QStringList>("stored");
    QTest::newRow("a blank written as %20 is decoded") << "/fw/a%20b.dat" << QStringList({"a b.dat"});
    QTest::newRow("an encoded slash cannot climb out of the folder") << "/fw/..%2Fescape.bin" << QStringList({"escape.bin"});
    QTest::newRow("an encoded .. names the folder and writes nothing") << "/fw/%2E%2E" << QStringList();
    QTest::newRow("an encoded NUL writes nothing") << "/fw/a%00b.dat" << QStringList();
}

void TestUpdateDownloader::storedNameIsTheDecodedLastSegment()
{
    QFETCH(QString, path);
    QFETCH(QStringList, stored);
    HttpServer server;
    server.setPage(path, "payload");
    Downloader d;
    QSignalSpy finished(&d, &Downloader::allFinished);
    d.addUrl(QUrl(server.url(path)));
    d.start();
    QVERIFY(finished.wait(5000));
    QCOMPARE(server.requests.size(), 1);
    QCOMPARE(firmwareFiles(), stored);
    for (const QString &name : std::as_const(stored))
        QCOMPARE(readFile(name), QByteArray("payload"));
    QVERIFY(!QFile::exists(QCoreApplication::applicationDirPath() + "/escape.bin"));
    QVERIFY(!QFile::exists(QCoreApplication::applicationDirPath() + "/a"));
}

void TestUpdateDownloader::unknownSizeReportsMinusOne()
{
    HttpServer server;
    server.setPage("/fw/DAT_a.bin", QByteArray(100000, 'x'), 200, false);
    Downloader d;
    QSignalSpy finished(&d, &Downloader::allFinished);
    QSignalSpy progress(&d, &Downloader::progress);
    d.addUrl(QUrl(server.url("/fw/DAT_a.bin")));
    d.start();
    QVERIFY(finished.wait(5000));
    QVERIFY(!progress.isEmpty());
    for (const QVariantList &p : std::as_const(progress)) {
        QCOMPARE(p.at(0).toString(), QString("DAT_a.bin"));
        QCOMPARE(p.at(2).toLongLong(), qint64(-1));
    }
    QCOMPARE(progress.last().at(1).toLongLong(), qint64(100000));
    QCOMPARE(readFile("DAT_a.bin").size(), 100000);
}

void TestUpdateDownloader::clearKeepsFoldersAndHiddenFiles()
{
    Downloader d;
    const QString dir = Downloader::firmwareDir();
    QVERIFY(QDir(dir).mkpath("old/deeper"));
    for (const char *name : {"DAT_old.bin", "INI_old.bin", ".hidden", "old/inner.bin"}) {
        QFile f(dir + "/" + QLatin1String(name));
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("x");
    }
    d.clearFirmwareDir();
    QCOMPARE(firmwareFiles(), QStringList({".hidden"}));
    QVERIFY(QFile::exists(dir + "/old/inner.bin"));
    QVERIFY(QDir(dir + "/old/deeper").exists());
}

void TestUpdateDownloader::destroyedWhileDownloading()
{
    HttpServer server;
    server.hold("/fw/DAT_a.bin");
    {
        Downloader d;
        d.addUrl(QUrl(server.url("/fw/DAT_a.bin")));
        d.start();
        QVERIFY(waitUntil([&] { return server.requests.size() == 1; }));
    }
    server.release("/fw/DAT_a.bin"); // the answer finds no one; nothing may crash
    QTest::qWait(50);
}

QTEST_MAIN(TestUpdateDownloader)
#include "tst_updatedownloader.moc"
