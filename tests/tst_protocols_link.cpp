// Each interpret mode over the serial link: the box's bus data reaches the
// mode's renderer only while the settings show that mode.
#include "testsupport.h"

#include "app/mainwindow.h"
#include "settings/settings.h"
#include "ui_mainwindow.h"

#include <QComboBox>
#include <QTextBlock>
#include <QTextBrowser>

class TestProtocolsLink : public QObject
{
    Q_OBJECT
private slots:
    void init() { writeSettingsIni(); }
    void cleanupTestCase() { removeSettingsIni(); }

    void modeReachesItsRenderer_data();
    void modeReachesItsRenderer();
};

void TestProtocolsLink::modeReachesItsRenderer_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("direction");
    QTest::addColumn<QByteArray>("bus");
    QTest::addColumn<QString>("shown");
    QTest::newRow("VSI") << 1 << 0 << hexBytes("0AFF") << "0007 : 0A FF";
    QTest::newRow("VTS") << 2 << 0 << hexBytes("5A01") << "0007 : M-> 5A 01";
    QTest::newRow("232") << 3 << 0 << hexBytes("41540D") << "0007 : 41 54 0D";
    QTest::newRow("ISS") << 4 << 0 << hexBytes("0102" "00080008000F010121")
                         << "0007 : 00 08 00 08 00 0F 01 01\u2028\u00a0\u00a0\u00a0\u00a0broadcast"
                            "\u2028\u00a0\u00a0\u00a0\u00a0Serial number registration started";
    QTest::newRow("Debug") << 5 << 1 << hexBytes("444247") << "0007 : 44 42 47";
    QTest::newRow("485") << 6 << 0 << hexBytes("01030000000A") << "0007 : 01 03 00 00 00 0A";
    QTest::newRow("CAN") << 7 << 1 << hexBytes("0123456789ABCDEF") << "0007 : 01 23 45 67 89 AB CD EF";
    QTest::newRow("TTL") << 8 << 1 << hexBytes("00") << "0007 : 00";
}

void TestProtocolsLink::modeReachesItsRenderer()
{
    QFETCH(int, mode);
    QFETCH(int, direction);
    QFETCH(QByteArray, bus);
    QFETCH(QString, shown);
    const int other = mode % 8 + 1; // another non-MDB mode

    writeSettingsIni({{"mode", mode}});
    Pty pty;
    MainWindow w;
    QCOMPARE(w.settings->comboBoxInterpret->currentIndex(), mode);
    connectTo(w, pty.slavePath());
    QVERIFY(w.settings->serialPort->isOpen());
    pty.readAtLeast(10); // the mode set of the open

    QTextBrowser *view = w.ui->textBrowserParsed;
    view->append("marker");
    const int before = view->document()->blockCount();

    // Another mode's data is dropped; the renderers' tick is process-wide,
    // so a first frame of our own sets it before the one checked.
    pty.write(busFrame(0, 1000, direction, other, bus));
    pty.write(busFrame(0, 1000, 0, mode, QByteArray()));
    pty.write(busFrame(1007, 1010, direction, mode, bus));
    QVERIFY(waitUntil([&] { return view->document()->blockCount() == before + 2; }));
    QCOMPARE(view->document()->lastBlock().text(), shown);

    // Once the settings show another mode, this mode's data goes nowhere.
    w.settings->comboBoxInterpret->setCurrentIndex(other);
    pty.write(busFrame(1020, 1030, direction, mode, bus));
    pty.write(busFrame(1040, 1050, 1, other, hexBytes("7E")));
    QVERIFY(waitUntil([&] { return view->document()->blockCount() >= before + 3; }));
    QTest::qWait(50); // room for a wrongly shown line to turn up
    QCOMPARE(view->document()->blockCount(), before + 3);
    QVERIFY(view->document()->lastBlock().text() != shown);
}

QTEST_MAIN(TestProtocolsLink)
#include "tst_protocols_link.moc"
