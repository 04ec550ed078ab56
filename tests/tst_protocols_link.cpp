// Each interpret mode over the serial link: bus data reaches the mode's renderer only while the settings show it.
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
    void cleanupTestCase() { removeSettingsIni(); }

    void modeReachesItsRenderer_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<QByteArray>("bus");
        QTest::addColumn<QString>("shown");
        QTest::newRow("VSI") << 1 << hexBytes("0AFF") << "0007 : 0A FF";
        QTest::newRow("VTS") << 2 << hexBytes("5A01") << "0007 : M-> 5A 01";
        QTest::newRow("232") << 3 << hexBytes("41540D") << "0007 : 41 54 0D";
        QTest::newRow("ISS") << 4 << hexBytes("0102" "010800080011") << "0007 : 01 08 00 08 00 individual";
        QTest::newRow("Debug") << 5 << hexBytes("444247") << "0007 : 44 42 47";
        QTest::newRow("485") << 6 << hexBytes("01030000000A") << "0007 : 01 03 00 00 00 0A";
        QTest::newRow("CAN") << 7 << hexBytes("0123456789ABCDEF") << "0007 : 01 23 45 67 89 AB CD EF";
        QTest::newRow("TTL") << 8 << hexBytes("00") << "0007 : 00";
    }
    void modeReachesItsRenderer()
    {
        QFETCH(int, mode);
        QFETCH(QByteArray, bus);
        const int other = mode % 8 + 1; // another non-MDB mode
        writeSettingsIni({{"mode", mode}});
        Pty pty;
        MainWindow w;
        connectTo(w, pty.slavePath());
        QTextDocument *view = w.ui->textBrowserParsed->document();
        view->setPlainText("marker");
        // The renderers' tick is process-wide: a first frame of our own sets it.
        pty.write(busFrame(0, 1000, 0, mode, QByteArray()) + busFrame(1007, 1010, 0, mode, bus));
        QVERIFY(waitUntil([&] { return view->blockCount() == 3; }, 10000));
        QTEST(view->lastBlock().text().simplified(), "shown"); // IEBus's breaks as spaces
        w.settings->comboBoxInterpret->setCurrentIndex(other);
        pty.write(busFrame(1020, 1030, 0, mode, bus) + busFrame(1040, 1050, 1, other, hexBytes("01027E")));
        QVERIFY(waitUntil([&] { return view->lastBlock().text().endsWith("7E"); }, 10000)); // every renderer ends so
        QCOMPARE(view->blockCount(), 4); // frames are handled in order: ours, now nowhere, came first
    }
};

QTEST_MAIN(TestProtocolsLink)
#include "tst_protocols_link.moc"
