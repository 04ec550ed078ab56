// The firmware downloader against a real HTTP server on 127.0.0.1.
#include "httpserver.h"
#include "testsupport.h"

#include "update/downloader.h"

#include <QNetworkProxy>

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

class TestUpdateDownloader : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy); }
    void init() { QDir(Downloader::firmwareDir()).removeRecursively(); }
    void cleanupTestCase() { init(); QFile::remove(QCoreApplication::applicationDirPath() + "/escape me.bin"); }

    void filesArriveInOrderUnderTheirNames()
    {
        HttpServer server;
        const QByteArray image(100000, '\x5A');
        server.setPage("/fw/DAT_1.1.0.bin", image);
        server.setPage("/fw/INI_1.1.0.bin", "UP ini");
        server.setPage("/fw/COF_1.1.0.bin", "cof", 200, false);
        Downloader d;
        QSignalSpy finished(&d, &Downloader::allFinished);
        QSignalSpy progress(&d, &Downloader::progress);
        for (const char *name : {"DAT_1.1.0.bin", "INI_1.1.0.bin", "COF_1.1.0.bin"})
            d.addUrl(QUrl(server.url("/fw/" + QLatin1String(name))));
        QVERIFY(server.requests.isEmpty()); // adding fetches nothing
        d.start();
        QVERIFY(finished.wait(5000));
        QCOMPARE(finished.count(), 1);
        QCOMPARE(server.requests, QStringList({"/fw/DAT_1.1.0.bin", "/fw/INI_1.1.0.bin", "/fw/COF_1.1.0.bin"}));
        QCOMPARE(stored(), QStringList({"COF_1.1.0.bin=cof", "DAT_1.1.0.bin=" + image, "INI_1.1.0.bin=UP ini"}));
        QVERIFY(progress.contains(QVariantList({QString("DAT_1.1.0.bin"), qint64(100000), qint64(100000)})));
        // The COF came without a length: even its last report says "unknown".
        QCOMPARE(progress.last(), QVariantList({QString("COF_1.1.0.bin"), qint64(3), qint64(-1)}));
    }

    // Each row's download is followed by INI_a.bin, which must still arrive.
    void failuresAndOddNamesLeaveTheListGoing_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QByteArray>("page"); // empty: not served, the server's 404 page
        QTest::addColumn<QStringList>("files");
        QTest::newRow("a 404 page is kept as the file")
            << "/fw/DAT_a.bin" << QByteArray() << QStringList({"DAT_a.bin=<html>no such page</html>", "INI_a.bin=UP"});
        QTest::newRow("a refused connection leaves an empty file")
            << "http://127.0.0.1:1/DAT_a.bin" << QByteArray() << QStringList({"DAT_a.bin=", "INI_a.bin=UP"});
        QTest::newRow("the name is decoded and cannot climb out of the folder")
            << "/fw/..%2Fescape%20me.bin" << QByteArray("payload") << QStringList({"INI_a.bin=UP", "escape me.bin=payload"});
        QTest::newRow("an encoded .. names the folder and writes nothing")
            << "/fw/%2E%2E" << QByteArray("payload") << QStringList({"INI_a.bin=UP"});
        QTest::newRow("an encoded NUL writes nothing") << "/fw/a%00b.dat" << QByteArray("payload") << QStringList({"INI_a.bin=UP"});
    }

    void failuresAndOddNamesLeaveTheListGoing()
    {
        QFETCH(QString, url);
        QFETCH(QByteArray, page);
        HttpServer server;
        if (!page.isEmpty())
            server.setPage(url, page);
        server.setPage("/fw/INI_a.bin", "UP");
        Downloader d;
        QSignalSpy finished(&d, &Downloader::allFinished);
        d.addUrl(QUrl(url.startsWith("/") ? server.url(url) : url));
        d.addUrl(QUrl(server.url("/fw/INI_a.bin")));
        d.start();
        QVERIFY(finished.wait(5000));
        QTEST(stored(), "files");
        QVERIFY(!QFile::exists(QCoreApplication::applicationDirPath() + "/escape me.bin"));
    }

    void withNothingToFetch()
    {
        Downloader d;
        QSignalSpy finished(&d, &Downloader::allFinished);
        d.start(); // an empty list finishes at once
        QCOMPARE(finished.count(), 1);
        // Clearing removes the folder's plain files only.
        const QString dir = Downloader::firmwareDir();
        QVERIFY(QDir(dir).mkpath("old"));
        for (const char *name : {"DAT_old.bin", "INI_old.bin", ".hidden", "old/inner.bin"}) {
            QFile f(dir + "/" + QLatin1String(name));
            QVERIFY(f.open(QIODevice::WriteOnly));
        }
        d.clearFirmwareDir();
        QCOMPARE(stored(), QStringList({".hidden="}));
        QVERIFY(QFile::exists(dir + "/old/inner.bin"));
    }

    void destroyedWhileDownloading()
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
};

QTEST_MAIN(TestUpdateDownloader)
#include "tst_updatedownloader.moc"
