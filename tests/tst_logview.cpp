// The bounded log view in a long session: lines leave it in chunks by count
// or by height, a reader scrolled up keeps their place, saves hold what is shown.
#include "testsupport.h"

#include "capture/recorder.h"

// Plain serial frames (232) whose two bytes count them, so each line says which frame it is.
static QByteArray numbered(int i)
{
    return busFrame(quint32(i) * 10, quint32(i) * 10 + 2, i % 2, 3, QByteArray(1, char(i >> 8)) + char(i & 0xFF));
}

static QString countText(int i)
{
    return hexStringGenerate(QByteArray(1, char(i >> 8)) + char(i & 0xFF));
}

// A window on a pseudo-terminal, in the 232 mode, with a small view bound.
struct Session
{
    Pty pty;
    MainWindow *w;
    QTextBrowser *view;
    explicit Session(int viewLines)
    {
        writeSettingsIni({{"mode", 3}, {"viewLines", viewLines}});
        w = new MainWindow;
        view = w->ui->textBrowserParsed;
        w->resize(800, 600);
        w->show();
        connectTo(*w, pty.slavePath());
        pty.readAtLeast(10); // the modeSet
    }
    ~Session() { delete w; }
    // Frames from..to-1, in reads of a few frames, as the box sends them.
    void feed(int from, int to)
    {
        for (int i = from; i < to; i += 6) {
            QByteArray burst;
            for (int j = i; j < qMin(to, i + 6); ++j)
                burst += numbered(j);
            pty.write(burst);
            if ((i / 6) % 20 == 0)
                QCoreApplication::processEvents();
        }
        QVERIFY(waitUntil([&] { return view->document()->lastBlock().text().endsWith(countText(to - 1)); }, 20000));
    }
    QStringList lines() const { return view->toPlainText().split('\n'); }
};

class TestLogView : public QObject
{
    Q_OBJECT
private slots:
    void init() { writeSettingsIni(); }
    void cleanupTestCase() { removeSettingsIni(); }

    // The newest lines stay, in order; a save writes exactly them; the first trim says where the rest is.
    void boundByCount()
    {
        Session s(1000);
        s.feed(0, 5000);
        const QStringList lines = s.lines();
        QVERIFY2(lines.size() >= 900 && lines.size() <= 1000, qPrintable(QString::number(lines.size())));
        for (int k = 0; k < lines.size(); ++k)
            QVERIFY2(lines[k].endsWith(countText(5000 - lines.size() + k)), qPrintable(lines[k]));
        QVERIFY(s.w->statusBar()->currentMessage().contains(s.w->recorder->currentFile()));

        QTemporaryDir dir;
        {
            const auto answers = answerModals({chooseFile(dir.filePath("shown.txt"))});
            s.w->saveTextBrowserToFile();
        }
        QFile saved(dir.filePath("shown.txt"));
        QVERIFY(saved.open(QIODevice::ReadOnly | QIODevice::Text));
        QCOMPARE(QString::fromUtf8(saved.readAll()), s.view->toPlainText());
    }

    // Entries of many rows reach the height bound long before the count.
    void boundByHeight()
    {
        Session s(500000);
        s.w->viewHeightLimit = 30000;
        s.w->settings->comboBoxInterpret->setCurrentIndex(0);
        // A coin changer SETUP and its reply: one entry of many rows.
        const QByteArray setup = hx("0901" "0900");
        QByteArray reply;
        for (char c : hx("03 1840 01 02 0003 01 02 05 0A 14 32 00000000000000000000 8E"))
            reply += QByteArray(1, c) + '\0';
        reply[reply.size() - 1] = 1;
        for (int i = 0; i < 300; ++i)
            s.pty.write(busFrame(i * 10, i * 10 + 2, 0, 0, setup) + busFrame(i * 10 + 4, i * 10 + 8, 1, 0, reply));
        QVERIFY(waitUntil([&] { return s.w->viewTrimmed; }, 20000));
        QTest::qWait(300);
        QVERIFY(s.view->document()->size().height() <= 30000 * 1.2);
        QVERIFY(s.view->document()->blockCount() < 600);
    }

    // A reader scrolled up sees the same text while lines arrive and older ones leave; at the bottom again,
    // the view follows.
    void readerKeepsPlace()
    {
        Session s(1000);
        s.feed(0, 1000);
        QScrollBar *bar = s.view->verticalScrollBar();
        QTest::qWait(100);
        bar->setSliderPosition(bar->maximum() - 2000); // a hundred lines up: still there after the trims
        bar->triggerAction(QAbstractSlider::SliderMove);
        QTest::qWait(100);
        QVERIFY(!s.w->followBottom);
        const auto topLine = [&] { return s.view->cursorForPosition(QPoint(2, 2)).block().text(); };
        const QString reading = topLine();
        s.feed(1000, 1500); // past the bound: a trim
        QTest::qWait(100);
        QVERIFY(s.lines().first().endsWith(countText(1500 - s.lines().size())));
        QCOMPARE(topLine(), reading);

        bar->setSliderPosition(bar->maximum());
        bar->triggerAction(QAbstractSlider::SliderMove);
        QTest::qWait(100);
        s.feed(1500, 1600);
        QTest::qWait(200);
        QCOMPARE(bar->value(), bar->maximum());
    }

    // A capture that cannot be written says so once in the status bar; the view goes on.
    void captureFailureKeepsTheView()
    {
        const QString folder = QCoreApplication::applicationDirPath() + "/captures";
        QDir(folder).removeRecursively();
        QFile blocker(folder); // a plain file where the folder should be
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        {
            Session s(1000);
            s.feed(0, 50);
            QVERIFY2(s.w->statusBar()->currentMessage().startsWith("Capture stopped: cannot create the capture folder"),
                     qPrintable(s.w->statusBar()->currentMessage()));
            QCOMPARE(s.view->document()->blockCount(), 50);
            QVERIFY(s.w->recorder->currentFile().isEmpty());
        }
        QFile::remove(folder);
    }

    // One read's lines land in order, each one in the document as its packageProcess returns, edit block or not.
    void linesInDocumentAtOnce()
    {
        Session s(1000);
        s.w->settings->comboBoxInterpret->setCurrentIndex(0);
        s.view->clear();
        QTextCursor batch(s.view->document());
        batch.beginEditBlock();
        for (int i = 0; i < 4; ++i) {
            const QByteArray bus = i % 2 ? hx("0001") : hx(i ? "3301 3300" : "0B01 0B00");
            s.w->mdb->packageProcess(busFrame(100 + i * 10, 102 + i * 10, i % 2, 0, bus));
            const QString shown = s.view->document()->lastBlock().text();
            QVERIFY2(shown.contains(QStringList{"M-> 0B 0B", "S-> 00", "M-> 33 33", "S-> 00"}[i]), qPrintable(shown));
            QCOMPARE(s.view->document()->blockCount(), i + 1);
        }
        batch.endEditBlock();
    }
};

QTEST_MAIN(TestLogView)
#include "tst_logview.moc"
