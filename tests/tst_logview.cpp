// The bounded log view in a long session: lines leave it in chunks by count
// or by height, a reader scrolled up keeps their place, saves hold what is shown.
// Its own text layout places and finds text exactly as Qt's does.
#include "testsupport.h"

#include "app/loglayout.h"
#include "app/logscrollbar.h"
#include "capture/recorder.h"

// Plain serial frames (232) whose two bytes count them, so each line says which frame it is.
static QByteArray numbered(int i)
{
    return busFrame(quint32(i) * 10, quint32(i) * 10 + 2, i % 2, 3, QByteArray(1, char(i >> 8)) + char(i & 0xFF));
}

// Counts one kind of event that reaches an object.
class EventCounter : public QObject
{
public:
    EventCounter(QObject *watched, QEvent::Type type, int *count) : type(type), count(count) { watched->installEventFilter(this); }
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == type)
            ++*count;
        return false;
    }

private:
    QEvent::Type type;
    int *count;
};

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
    // The view's scroll bar paints again when what it shows changes, and only then.
    void scrollBarPaints_data()
    {
        QTest::addColumn<int>("maximum");
        QTest::addColumn<int>("value");
        QTest::addColumn<bool>("paints");
        // Shown first: 0..400 000 at 400 000, page 500: a small handle, about
        // 1 150 values a pixel.
        QTest::newRow("range one more, value kept: handle still") << 400001 << 400000 << false;
        QTest::newRow("range and value one more: still at the end") << 400001 << 400001 << false;
        QTest::newRow("value 200 back: handle still") << 400000 << 399800 << false;
        QTest::newRow("value 2 000 back: handle moves a pixel") << 400000 << 398000 << true;
        QTest::newRow("value to the middle: handle moves") << 400000 << 200000 << true;
        QTest::newRow("range shrinks to a page: handle grows") << 1000 << 1000 << true;
        QTest::newRow("nothing to scroll") << 0 << 0 << true;
    }
    void scrollBarPaints()
    {
        QFETCH(int, maximum);
        QFETCH(int, value);
        QFETCH(bool, paints);
        QWidget window;
        auto *bar = new LogScrollBar(&window);
        bar->setGeometry(0, 0, 16, 400);
        bar->setRange(0, 400000);
        bar->setPageStep(500);
        bar->setValue(400000);
        window.resize(16, 400);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        int painted = 0;
        EventCounter counter(bar, QEvent::Paint, &painted);
        QTest::qWait(50);
        painted = 0;
        bar->setMaximum(maximum);
        bar->setValue(value);
        QTest::qWait(100);
        QCOMPARE(painted > 0, paints);
    }

    // The same document laid out by Qt and by the view's layout: every paragraph in the same place, every
    // point hitting the same character, after cuts at the top and new widths too.
    void layoutMatchesQt_data()
    {
        QTest::addColumn<QStringList>("entries");
        QTest::addColumn<int>("cut");      // leading paragraphs removed afterwards
        QTest::addColumn<int>("newWidth"); // page width afterwards, 0: unchanged

        QStringList oneLine, severalRows, wrapping, mixed, loaded;
        for (int i = 0; i < 60; ++i)
            oneLine << QString("<span style='color:#0000ff;'>%1 : M-&gt; 0B 0B</span>").arg(i, 4, 10, QChar('0'));
        for (int i = 0; i < 40; ++i)
            severalRows << QString("%1 : S-&gt; 03 18 40<br>&nbsp;&nbsp;Coin Changer SETUP<br>&nbsp;&nbsp;Level %2").arg(i).arg(i % 4);
        for (int i = 0; i < 30; ++i)
            wrapping << QString("%1 : M-&gt; ").arg(i) + QString("5A ").repeated(20 + i * 3);
        for (int i = 0; i < 90; ++i)
            mixed << (i % 5 == 4 ? QString() : QStringList{oneLine.value(i % 60), severalRows.value(i % 40), wrapping.value(i % 30)}[i % 3]);
        for (int i = 0; i < 2300; ++i) // more than the layout takes at once: guessed, then laid out in slices
            loaded << oneLine[i % 60];

        QTest::newRow("one-line entries") << oneLine << 0 << 0;
        QTest::newRow("entries of several rows") << severalRows << 0 << 0;
        QTest::newRow("lines that wrap") << wrapping << 0 << 0;
        QTest::newRow("mixed, empty paragraphs") << mixed << 0 << 0;
        QTest::newRow("cut at the top") << mixed << 37 << 0;
        QTest::newRow("all but the last cut") << wrapping << 29 << 0;
        QTest::newRow("narrower") << mixed << 0 << 170;
        QTest::newRow("wider") << wrapping << 0 << 900;
        QTest::newRow("cut, then narrower") << mixed << 12 << 250;
        QTest::newRow("a loaded log") << loaded << 0 << 0;
        QTest::newRow("a loaded log, cut") << loaded << 1000 << 0;
    }

    void layoutMatchesQt()
    {
        QFETCH(QStringList, entries);
        QFETCH(int, cut);
        QFETCH(int, newWidth);
        QTextDocument qt;
        QTextDocument ours;
        auto *layout = new LogLayout(&ours);
        ours.setDocumentLayout(layout);
        for (QTextDocument *doc : {&qt, &ours}) {
            doc->setPageSize(QSizeF(400, -1));
            QTextCursor end(doc);
            end.beginEditBlock();
            for (int i = 0; i < entries.size(); ++i) {
                if (i > 0)
                    end.insertBlock();
                end.insertHtml(entries[i]);
            }
            end.endEditBlock();
            if (cut > 0) {
                QTextCursor top(doc);
                top.setPosition(doc->findBlockByNumber(cut).position(), QTextCursor::KeepAnchor);
                top.removeSelectedText();
            }
            if (newWidth > 0)
                doc->setPageSize(QSizeF(newWidth, -1));
        }
        // Whatever waits is laid out in slices by the event loop.
        QTRY_VERIFY(!layout->layoutPending());

        QCOMPARE(ours.blockCount(), qt.blockCount());
        QCOMPARE(ours.size(), qt.size());
        for (QTextBlock a = qt.begin(), b = ours.begin(); a.isValid(); a = a.next(), b = b.next()) {
            const QRectF want = qt.documentLayout()->blockBoundingRect(a);
            const QRectF got = layout->blockBoundingRect(b);
            QVERIFY2(qFuzzyCompare(got.top(), want.top()) && qFuzzyCompare(got.height(), want.height()),
                     qPrintable(QString("paragraph %1: %2+%3, Qt %4+%5").arg(a.blockNumber()).arg(got.top()).arg(got.height())
                                    .arg(want.top()).arg(want.height())));
        }
        const QSizeF size = qt.size();
        for (qreal y = 5; y < size.height() - 5; y += 7) {
            for (qreal x : {6.0, 40.0, 150.0, size.width() - 10}) {
                for (Qt::HitTestAccuracy accuracy : {Qt::FuzzyHit, Qt::ExactHit})
                    QVERIFY2(layout->hitTest({x, y}, accuracy) == qt.documentLayout()->hitTest({x, y}, accuracy),
                             qPrintable(QString("at %1,%2: %3, Qt %4").arg(x).arg(y)
                                            .arg(layout->hitTest({x, y}, accuracy)).arg(qt.documentLayout()->hitTest({x, y}, accuracy))));
            }
        }
    }
};

QTEST_MAIN(TestLogView)
#include "tst_logview.moc"
