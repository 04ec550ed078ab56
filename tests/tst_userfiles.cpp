// Settings, firmware and captures stay beside the program while its folder can
// be written, and go to the user's folders when it cannot, as for an installed
// program. A copy of this test plays the program, started from a folder the
// test made.
#include "testsupport.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

static const char windowFlag[] = "--run-window";
static const int cannotDropRoot = 77;

// The copy's part: the window reads its settings, starts a capture and writes
// the settings back as it goes.
static int runWindow(int argc, char **argv)
{
    QApplication app(argc, argv);
    QCoreApplication::setApplicationName("vendscope"); // as the program names itself
    auto *w = new MainWindow;
    w->startCapture();
    delete w;
    return 0;
}

// Every folder ("name/") and file below root, capture names without their time.
static QStringList tree(const QString &root)
{
    QStringList found;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        QString name = QDir(root).relativeFilePath(it.filePath());
        name.replace(QRegularExpression("capture_\\d{8}_\\d{6}\\.pcapng$"), "capture.pcapng");
        found << (it.fileInfo().isDir() ? name + "/" : name);
    }
    found.sort();
    return found;
}

class TestUserFiles : public QObject
{
    Q_OBJECT
private slots:
    void placeFollowsFolder_data()
    {
        QTest::addColumn<bool>("writable");
        QTest::addColumn<bool>("installed"); // the menu entry lies in ../share/applications
        QTest::addColumn<bool>("stored"); // a settings.ini waits where the program should find it
        QTest::addColumn<QString>("settings");
        QTest::addColumn<QString>("logs");
        QTest::addColumn<QStringList>("files");
        QTest::newRow("writable folder keeps them beside the program")
            << true << false << true << "bin/settings.ini" << "bin"
            << QStringList{"bin/", "bin/captures/", "bin/captures/capture.pcapng", "bin/firmware/", "bin/settings.ini",
                           "bin/vendscope", "config/", "data/"};
        QTest::newRow("read-only folder reads and writes the user's settings")
            << false << false << true << "config/vendscope/settings.ini" << "data/vendscope"
            << QStringList{"bin/", "bin/vendscope", "config/", "config/vendscope/", "config/vendscope/settings.ini", "data/",
                           "data/vendscope/", "data/vendscope/captures/", "data/vendscope/captures/capture.pcapng",
                           "data/vendscope/firmware/"};
        QTest::newRow("read-only folder on first start makes the user's folders")
            << false << false << false << "config/vendscope/settings.ini" << "data/vendscope"
            << QStringList{"bin/", "bin/vendscope", "config/", "config/vendscope/", "config/vendscope/settings.ini", "data/",
                           "data/vendscope/", "data/vendscope/captures/", "data/vendscope/captures/capture.pcapng",
                           "data/vendscope/firmware/"};
        QTest::newRow("installed program uses the user's folders even where it could write")
            << true << true << false << "config/vendscope/settings.ini" << "data/vendscope"
            << QStringList{"bin/", "bin/vendscope", "config/", "config/vendscope/", "config/vendscope/settings.ini", "data/",
                           "data/vendscope/", "data/vendscope/captures/", "data/vendscope/captures/capture.pcapng",
                           "data/vendscope/firmware/", "share/", "share/applications/",
                           "share/applications/vendscope.desktop"};
    }
    void placeFollowsFolder()
    {
        QFETCH(bool, writable);
        QFETCH(bool, installed);
        QFETCH(bool, stored);
        QFETCH(QString, settings);
        QFETCH(QString, logs);

        QTemporaryDir tmp, home;
        QVERIFY(tmp.isValid() && home.isValid());
        const QDir root(tmp.path());
        for (const char *folder : {"bin", "config", "data"})
            QVERIFY(root.mkdir(folder));
        QVERIFY(QFile::copy(QCoreApplication::applicationFilePath(), root.filePath("bin/vendscope")));
        if (installed) {
            QVERIFY(root.mkpath("share/applications"));
            QVERIFY(QFile(root.filePath("share/applications/vendscope.desktop")).open(QIODevice::WriteOnly));
        }
        if (stored) {
            QVERIFY(root.mkpath(QFileInfo(settings).path()));
            QSettings ini(root.filePath(settings), QSettings::IniFormat);
            ini.setValue("Update", false);
            ini.setValue("updateServer", "http://127.0.0.1:9");
            ini.setValue("viewLines", 4321);
        }

        QProcess window;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_CONFIG_HOME", root.filePath("config"));
        env.insert("XDG_DATA_HOME", root.filePath("data"));
        env.insert("XDG_CACHE_HOME", home.path());
        env.insert("HOME", home.path());
        window.setProcessEnvironment(env);
        window.setProcessChannelMode(QProcess::MergedChannels);

        const bool root0 = ::geteuid() == 0;
        if (!writable) {
            // Root writes anywhere, so the window runs as nobody, who needs
            // the user's folders open to it.
            if (root0) {
                const passwd *nobody = ::getpwnam("nobody");
                if (!nobody)
                    QSKIP("running as root and there is no user nobody to run the window as");
                const uid_t uid = nobody->pw_uid;
                const gid_t gid = nobody->pw_gid;
                window.setChildProcessModifier([uid, gid] {
                    if (::setgroups(0, nullptr) != 0 || ::setgid(gid) != 0 || ::setuid(uid) != 0)
                        ::_exit(cannotDropRoot);
                });
                const QStringList open = {tmp.path(), home.path(), root.filePath("config"), root.filePath("data"),
                                          root.filePath("config/vendscope"), root.filePath(settings)};
                for (const QString &path : open)
                    ::chmod(QFile::encodeName(path).constData(), 0777);
            }
            QVERIFY(::chmod(QFile::encodeName(root.filePath("bin")).constData(), 0555) == 0);
            if (!root0 && QTemporaryFile(root.filePath("bin/probe-XXXXXX")).open())
                QSKIP("this file system lets a read-only folder be written");
        }

        window.start(root.filePath("bin/vendscope"), {windowFlag});
        const bool finished = window.waitForFinished(60000);
        const QByteArray output = window.readAll();
        ::chmod(QFile::encodeName(root.filePath("bin")).constData(), 0755); // so that it can be removed
        QVERIFY2(finished, output.constData());
        if (window.exitCode() == cannotDropRoot)
            QSKIP("running as root and cannot run the window as nobody");
        QVERIFY2(window.exitStatus() == QProcess::NormalExit && window.exitCode() == 0, output.constData());

        QTEST(tree(tmp.path()), "files");
        QSettings ini(root.filePath(settings), QSettings::IniFormat);
        QCOMPARE(ini.value("viewLines").toInt(), stored ? 4321 : 200000);
        QCOMPARE(ini.value("logPath").toString(), root.filePath(logs));
    }
};

int main(int argc, char **argv)
{
    if (argc > 1 && qstrcmp(argv[1], windowFlag) == 0)
        return runWindow(argc, argv);
    QCoreApplication app(argc, argv);
    TestUserFiles test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_userfiles.moc"
