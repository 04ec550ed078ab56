// The box simulator as a user meets it: a process whose line the main window plays.
#include "testsupport.h"

#ifdef VS_BOXSIM

static QPair<int, QString> runToEnd(const QStringList &args)
{
    QProcess p;
    p.start(VS_BOXSIM, args);
    p.waitForFinished(10000);
    return {p.exitCode(), QString::fromLocal8Bit(p.readAllStandardOutput() + p.readAllStandardError())};
}

#endif

class TestBoxSim : public QObject
{
    Q_OBJECT
private slots:
#ifndef VS_BOXSIM
    void simulatorBuilt() { QSKIP("built without tools/"); }
#else
    void init() { writeSettingsIni(); }
    void cleanupTestCase() { removeSettingsIni(); }

    // --check passes the shipped scenarios; --link never replaces a file that is not a link.
    void commandLine()
    {
        QCOMPARE(runToEnd({"--check"}), qMakePair(0, QString()));
        QTemporaryDir dir;
        QVERIFY(QFile(dir.filePath("box")).open(QIODevice::WriteOnly));
        const auto [code, err] = runToEnd({"--link", dir.filePath("box")});
        QCOMPARE(code, 2);
        QVERIFY2(err.contains("is not a symbolic link"), qPrintable(err));
    }

    // The demo's way in: the simulator selects its link in the settings and turns the update check off; the user
    // clicks Connect. A mode switched as a user does it (settings, close, open) brings its traffic and only its
    // traffic; noise is survived, silence reconnected.
    void windowAfterModeSwitch_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("logged");
        QTest::addColumn<QStringList>("shown"); // after the log message, if any
        const QStringList fast = {"--rate", "300"};
        QTest::newRow("MDB: coin, bill, cashless and the one planted FCC err") << fast << 0 << "" << QStringList{
            "JUST RESET", "Changer setup information", "COIN TYPE", "Bill Validator Setup Information", "ESCROW POSITION", "BILL STACKED",
            "Reader Config Data", "Begin Session", "Vend Approved", "SESSION COMPLETE", "VEND DENIED", "unknow command 0x40", "FCC err"};
        QTest::newRow("VSI") << fast << 1 << "" << QStringList{"02 01 05 A2 00"};
        QTest::newRow("VTS") << fast << 2 << "" << QStringList{"M-> 5A 02 10 00 01"};
        QTest::newRow("232 with noise survived") << fast + QStringList{"--noise", "--seed", "7"} << 3 << "FCC error"
                                                 << QStringList{"41 54 2B 43 53 51 0D"};
        QTest::newRow("ISS") << fast << 4 << "" << QStringList{"Serial number registration requirement"};
        QTest::newRow("Debug") << fast << 5 << "" << QStringList{"5B 76 6D 63 5D 20 64 6F 6F 72"};
        QTest::newRow("485") << fast << 6 << "" << QStringList{"01 03 00 00 00 02 C4 0B"};
        QTest::newRow("CAN") << fast << 7 << "" << QStringList{"01 00 02 01 0C"};
        QTest::newRow("TTL") << fast << 8 << "" << QStringList{"10 01 31 32 33 34"};
        QTest::newRow("silence trips the watchdog") << QStringList{"--silence-after", "5", "--rate", "50"} << 0 << "port reconnected:" << QStringList{};
    }
    void windowAfterModeSwitch()
    {
        QFETCH(QStringList, args);
        QFETCH(int, mode);
        QFETCH(QString, logged);
        QFETCH(QStringList, shown);
        MessageLog log;
        QTemporaryDir dir;
        writeSettingsIni({{"Update", true}, {"updateServer", "http://127.0.0.1:1"}});
        BoxSim sim(args + QStringList{"--link", dir.filePath("box"), "--demo-settings", settingsIniPath()});
        MainWindow w;
        QVERIFY(!w.settings->checkBoxUpdate->isChecked());
        w.ui->actionConnect->trigger();
        QCOMPARE(w.settings->serialPort->portName(), dir.filePath("box"));
        QVERIFY(waitUntil([&] { return !w.firmwareVersion.isEmpty(); }));
        w.settings->comboBoxInterpret->setCurrentIndex(mode);
        w.ui->actionClear->trigger();
        QTest::qWait(200); // the box goes on with MDB until it is told the new mode, and no other mode's view shows it
        QVERIFY(mode == 0 || w.ui->textBrowserParsed->toPlainText().isEmpty());
        w.portToggle();
        w.portToggle();
        QVERIFY(waitUntil([&] { return logged.isEmpty() || log.contains(logged); }, 10000));
        w.ui->actionClear->trigger();
        for (const QString &s : shown)
            QVERIFY2(waitUntil([&] { return w.ui->textBrowserParsed->toPlainText().contains(s); }, 20000), qPrintable(s));
        // Each transfer is a paragraph; the only checksum error is the corrupted changer report.
        for (const QString &line : w.ui->textBrowserParsed->document()->toRawText().split(QChar::ParagraphSeparator).filter("FCC err"))
            QVERIFY2(line.contains("S-> 52 3D 8E"), qPrintable(line));
        QVERIFY(w.settings->serialPort->isOpen());
    }
#endif
};

QTEST_MAIN(TestBoxSim)
#include "tst_boxsim.moc"
