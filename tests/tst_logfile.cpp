// Saving the log view to files and loading a text file into it.
#include "testsupport.h"

#include "app/mainwindow.h"
#include "ui_mainwindow.h"

#include <QApplication>
#include <QFileDialog>
#include <QLineEdit>
#include <QLocalServer>
#include <QMessageBox>
#include <QTemporaryDir>
#include <QTextBrowser>

// Answers the modal dialogs that come up, one after the other, with the
// given handlers; each handler gets the dialog it is to answer.
class ModalAnswers : public QObject
{
public:
    using Handler = std::function<void(QWidget *)>;
    explicit ModalAnswers(QList<Handler> handlers) : handlers(std::move(handlers))
    {
        startTimer(20);
    }
    int answered = 0;

protected:
    void timerEvent(QTimerEvent *) override
    {
        QWidget *modal = QApplication::activeModalWidget();
        if (!modal || modal == last || answered >= handlers.size())
            return;
        last = modal;
        handlers[answered++](modal);
    }

private:
    QList<Handler> handlers;
    QPointer<QWidget> last;
};

static ModalAnswers::Handler chooseFile(const QString &path, QString *proposed = nullptr)
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

static ModalAnswers::Handler readBox(QString *text)
{
    return [=](QWidget *w) {
        auto *box = qobject_cast<QMessageBox *>(w);
        QVERIFY(box);
        *text = box->windowTitle() + "|" + box->text();
        box->accept();
    };
}

class TestLogFile : public QObject
{
    Q_OBJECT
private slots:
    void init() { writeSettingsIni(); }
    void cleanupTestCase() { removeSettingsIni(); }

    void saveNameRules_data();
    void saveNameRules();
    void saveProposesLastFolder();
    void saveFailureKeepsFolder();
    void loadReplacesView();
    void loadFailure();
    void cancelDoesNothing();
};

void TestLogFile::saveNameRules_data()
{
    QTest::addColumn<QString>("chosen");
    QTest::addColumn<QString>("written");
    QTest::addColumn<bool>("html");
    QTest::newRow("no extension becomes html") << "capture" << "capture.html" << true;
    QTest::newRow("upper-case TXT stays text") << "CAPTURE.TXT" << "CAPTURE.TXT" << false;
    QTest::newRow("mixed-case HTML is html") << "Trace.HTML" << "Trace.HTML" << true;
    QTest::newRow("other extension gets html appended") << "trace.log" << "trace.log.html" << true;
}

void TestLogFile::saveNameRules()
{
    QFETCH(QString, chosen);
    QFETCH(QString, written);
    QFETCH(bool, html);
    QTemporaryDir dir;
    MainWindow w;
    w.ui->textBrowserParsed->append("<span style='color: red;'>0012 : M-&gt; 0B 0B</span>");
    w.ui->textBrowserParsed->append("second line");
    ModalAnswers answers({chooseFile(dir.filePath(chosen))});
    w.ui->actionSave->trigger();
    QCOMPARE(answers.answered, 1);

    QFile file(dir.filePath(written));
    QVERIFY2(file.open(QIODevice::ReadOnly | QIODevice::Text), qPrintable(file.fileName()));
    const QString content = QString::fromUtf8(file.readAll());
    if (html) {
        QVERIFY(content.contains("<html>"));
        QVERIFY(content.contains("color:#ff0000"));
    } else {
        QCOMPARE(content, QString("0012 : M-> 0B 0B\nsecond line"));
    }
    QCOMPARE(w.logPath, QFileInfo(dir.path()).absoluteFilePath());
}

void TestLogFile::saveProposesLastFolder()
{
    QTemporaryDir dir;
    QString proposed;
    {
        MainWindow w;
        ModalAnswers answers({chooseFile(dir.filePath("a.txt"), &proposed)});
        const QDateTime before = QDateTime::currentDateTime();
        w.ui->actionSave->trigger();
        const QString name = QFileInfo(proposed).fileName();
        QCOMPARE(QFileInfo(proposed).absolutePath(), QCoreApplication::applicationDirPath());
        QVERIFY2(QRegularExpression("^Log_\\d{8}_\\d{6}\\.txt$").match(name).hasMatch(), qPrintable(name));
        const QDateTime stamp = QDateTime::fromString(name.mid(4, 15), "yyyyMMdd_HHmmss");
        QVERIFY(qAbs(stamp.secsTo(before)) <= 2);
    }
    // The folder of the last save is proposed again after a restart.
    MainWindow w;
    ModalAnswers answers({chooseFile(dir.filePath("b.txt"), &proposed)});
    w.ui->actionSave->trigger();
    QCOMPARE(QFileInfo(proposed).absolutePath(), QFileInfo(dir.path()).absoluteFilePath());
}

void TestLogFile::saveFailureKeepsFolder()
{
    QTemporaryDir dir;
    MainWindow w;
    const QString before = w.logPath;
    QString error;
    ModalAnswers answers({chooseFile(dir.filePath("missing/folder/log.txt")), readBox(&error)});
    w.ui->actionSave->trigger();
    QCOMPARE(answers.answered, 2);
    QCOMPARE(error, QString("Error|Cannot open file: No such file or directory"));
    QCOMPARE(w.logPath, before);
}

void TestLogFile::loadReplacesView()
{
    QTemporaryDir dir;
    QFile file(dir.filePath("old.txt"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("<b>not bold</b>\nsecond \xC3\xA9\n");
    file.close();
    MainWindow w;
    w.ui->textBrowserParsed->append("shown before");
    const QString before = w.logPath;
    ModalAnswers answers({chooseFile(file.fileName())});
    w.ui->actionLog->trigger();
    QCOMPARE(w.ui->textBrowserParsed->toPlainText(), QString::fromUtf8("<b>not bold</b>\nsecond \xC3\xA9\n"));
    QCOMPARE(w.logPath, before);
}

void TestLogFile::loadFailure()
{
    // A socket exists but cannot be opened as a file, not even by root.
    QTemporaryDir dir;
    QLocalServer socket;
    QVERIFY(socket.listen(dir.filePath("socket.txt")));
    MainWindow w;
    w.ui->textBrowserParsed->append("kept");
    QString error;
    ModalAnswers answers({chooseFile(dir.filePath("socket.txt")), readBox(&error)});
    w.ui->actionLog->trigger();
    QCOMPARE(answers.answered, 2);
    QVERIFY2(error.startsWith("File Error|Cannot open file: "), qPrintable(error));
    QCOMPARE(w.ui->textBrowserParsed->toPlainText(), QString("kept"));
}

void TestLogFile::cancelDoesNothing()
{
    MainWindow w;
    w.ui->textBrowserParsed->append("kept");
    const QString before = w.logPath;
    auto reject = [](QWidget *d) { static_cast<QDialog *>(d)->reject(); };
    ModalAnswers answers({reject, reject});
    w.ui->actionSave->trigger();
    w.ui->actionLog->trigger();
    QCOMPARE(answers.answered, 2);
    QCOMPARE(w.ui->textBrowserParsed->toPlainText(), QString("kept"));
    QCOMPARE(w.logPath, before);
}

QTEST_MAIN(TestLogFile)
#include "tst_logfile.moc"
