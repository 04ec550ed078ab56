// Saving the log view to files and loading a text file into it.
#include "testsupport.h"

class TestLogFile : public QObject
{
    Q_OBJECT
private slots:
    void init() { writeSettingsIni(); }
    void cleanupTestCase() { removeSettingsIni(); }

    void saveNameRules_data()
    {
        QTest::addColumn<QString>("chosen");
        QTest::addColumn<QString>("written");
        QTest::addColumn<bool>("html");
        QTest::newRow("no extension becomes html") << "capture" << "capture.html" << true;
        QTest::newRow("upper-case TXT stays text") << "CAPTURE.TXT" << "CAPTURE.TXT" << false;
        QTest::newRow("mixed-case HTML is html") << "Trace.HTML" << "Trace.HTML" << true;
        QTest::newRow("other extension gets html appended") << "trace.log" << "trace.log.html" << true;
    }
    void saveNameRules()
    {
        QFETCH(QString, chosen);
        QFETCH(QString, written);
        QFETCH(bool, html);
        QTemporaryDir dir;
        QString proposed;
        {
            MainWindow w;
            w.ui->textBrowserParsed->append("<span style='color: red;'>0012 : M-&gt; 0B 0B</span>");
            w.ui->textBrowserParsed->append("second line");
            const auto answers = answerModals({chooseFile(dir.filePath(chosen), &proposed)});
            const QDateTime now = QDateTime::currentDateTime();
            w.ui->actionSave->trigger();
            QCOMPARE(QFileInfo(proposed).absolutePath(), QCoreApplication::applicationDirPath());
            const QString name = QFileInfo(proposed).fileName();
            QVERIFY2(QRegularExpression("^Log_\\d{8}_\\d{6}\\.txt$").match(name).hasMatch(), qPrintable(name));
            QVERIFY(qAbs(QDateTime::fromString(name.mid(4, 15), "yyyyMMdd_HHmmss").secsTo(now)) <= 2);
            QCOMPARE(w.logPath, QFileInfo(dir.path()).absoluteFilePath());
        }
        QFile file(dir.filePath(written));
        QVERIFY2(file.open(QIODevice::ReadOnly | QIODevice::Text), qPrintable(file.fileName()));
        const QString content = QString::fromUtf8(file.readAll());
        if (html)
            QVERIFY(content.contains("<html>") && content.contains("color:#ff0000"));
        else
            QCOMPARE(content, QString("0012 : M-> 0B 0B\nsecond line"));
        // The folder of the last save is proposed again after a restart.
        MainWindow again;
        QCOMPARE(again.logPath, QFileInfo(dir.path()).absoluteFilePath());
    }
    // A loaded text file replaces the view as plain text; a failure or a cancel changes nothing.
    void openOrFail_data()
    {
        QTest::addColumn<bool>("save");
        QTest::addColumn<QString>("path"); // empty: the user cancels
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("view");
        QTest::newRow("load replaces the view") << false << "old.txt" << "" << QString::fromUtf8("<b>not bold</b>\nsecond \xC3\xA9\n");
        QTest::newRow("save into a missing folder") << true << "missing/folder/log.txt"
                                                    << "Error|Cannot open file: No such file or directory" << "kept";
        // A socket exists but cannot be opened as a file, not even by root.
        QTest::newRow("load what is no file") << false << "socket.txt"
                                              << "File Error|Cannot open file: No such device or address" << "kept";
        QTest::newRow("save cancelled") << true << "" << "" << "kept";
        QTest::newRow("load cancelled") << false << "" << "" << "kept";
    }
    void openOrFail()
    {
        QFETCH(bool, save);
        QFETCH(QString, path);
        QTemporaryDir dir;
        QLocalServer socket;
        QVERIFY(socket.listen(dir.filePath("socket.txt")));
        QFile old(dir.filePath("old.txt"));
        QVERIFY(old.open(QIODevice::WriteOnly) && old.write("<b>not bold</b>\nsecond \xC3\xA9\n") > 0);
        old.close();
        MainWindow w;
        w.ui->textBrowserParsed->append("kept");
        const QString before = w.logPath;
        QString shown;
        auto reject = [](QWidget *d) { static_cast<QDialog *>(d)->reject(); };
        const auto answers = answerModals(path.isEmpty() ? QList<Handler>{reject}
                                                         : QList<Handler>{chooseFile(dir.filePath(path)), readBox(&shown)});
        (save ? w.ui->actionSave : w.ui->actionLog)->trigger();
        QTEST(shown, "message");
        QTEST(w.ui->textBrowserParsed->toPlainText(), "view");
        QCOMPARE(w.logPath, before); // only a save moves it
    }
};

QTEST_MAIN(TestLogFile)
#include "tst_logfile.moc"
