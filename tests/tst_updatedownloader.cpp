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

    void filesArriveInOrderAndAreCleared()
    {
        HttpServer server;
        const QByteArray image(100000, '\x5A');
        server.setPage("/fw/DAT_1.1.0.bin", image);
        server.setPage("/fw/INI_1.1.0.bin", "UP ini");
        server.setPage("/fw/COF_1.1.0.bin", "cof", 200, false);
        Downloader d;
        QSignalSpy finished(&d, &Downloader::allFinished);
        QSignalSpy progress(&d, &Downloader::progress);
        d.start(); // an empty list finishes at once
        QCOMPARE(finished.count(), 1);
        for (const char *name : {"DAT_1.1.0.bin", "INI_1.1.0.bin", "COF_1.1.0.bin"})
            d.addUrl(QUrl(server.url("/fw/" + QLatin1String(name))));
        d.start();
        QVERIFY(finished.wait(20000));
        QCOMPARE(server.requests, QStringList({"/fw/DAT_1.1.0.bin", "/fw/INI_1.1.0.bin", "/fw/COF_1.1.0.bin"}));
        QCOMPARE(stored(), QStringList({"COF_1.1.0.bin=cof", "DAT_1.1.0.bin=" + image, "INI_1.1.0.bin=UP ini"}));
        QVERIFY(progress.contains(QVariantList({QString("DAT_1.1.0.bin"), qint64(100000), qint64(100000)})));
        // The COF came without a length: even its last report says "unknown".
        QCOMPARE(progress.last(), QVariantList({QString("COF_1.1.0.bin"), qint64(3), qint64(-1)}));
        const QString dir = Downloader::firmwareDir();
        QVERIFY(QDir(dir).mkpath("old") && QFile(dir + "/old/inner.bin").open(QIODevice::WriteOnly));
        d.clearFirmwareDir();
        QCOMPARE(stored(), QStringList());
        QVERIFY(QFile::exists(dir + "/old/inner.bin"));
    }

    void failuresAndOddNamesLeaveTheListGoing_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("page"); // empty: not served, the server's 404 page
        QTest::addColumn<QString>("files"); // INI_a.bin is fetched next and must still arrive
        QTest::newRow("404 page kept") << "/fw/DAT_a.bin" << "" << "DAT_a.bin=<html>no such page</html> INI_a.bin=UP";
        QTest::newRow("name decoded, kept inside") << "/fw/..%2Fescape%20me.bin" << "x" << "INI_a.bin=UP escape me.bin=x";
        QTest::newRow("encoded .. is the folder: nothing written") << "/fw/%2E%2E" << "x" << "INI_a.bin=UP";
        QTest::newRow("encoded NUL: nothing written") << "/fw/a%00b.dat" << "x" << "INI_a.bin=UP";
    }
    void failuresAndOddNamesLeaveTheListGoing()
    {
        QFETCH(QString, url);
        QFETCH(QString, page);
        HttpServer server;
        if (!page.isEmpty())
            server.setPage(url, page.toUtf8());
        server.setPage("/fw/INI_a.bin", "UP");
        Downloader d;
        QSignalSpy finished(&d, &Downloader::allFinished);
        d.addUrl(QUrl(server.url(url)));
        d.addUrl(QUrl(server.url("/fw/INI_a.bin")));
        d.start();
        QVERIFY(finished.wait(20000));
        QTEST(stored().join(' '), "files");
    }

    void destroyedWhileDownloading()
    {
        HttpServer server;
        server.hold("/fw/DAT_a.bin");
        auto d = std::make_unique<Downloader>();
        d->addUrl(QUrl(server.url("/fw/DAT_a.bin")));
        d->start();
        QVERIFY(waitUntil([&] { return server.requests.size() == 1; }));
        d.reset();
        server.release("/fw/DAT_a.bin"); // the answer finds no one; nothing may crash
        QTest::qWait(50);
    }
};

QTEST_MAIN(TestUpdateDownloader)
#include "tst_updatedownloader.moc"
