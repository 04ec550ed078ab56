// Settings dialog and settings.ini: what is loaded, applied and saved.
#include "testsupport.h"

#include "capture/recorder.h"

static QImage iconImage(const QIcon &icon) { return icon.pixmap(32, 32).toImage(); }

static QString rates(const QComboBox *box)
{
    QStringList shown;
    for (int i = 0; i < box->count(); ++i)
        shown << box->itemText(i);
    return shown.join('|');
}

class TestSettings : public QObject
{
    Q_OBJECT
private slots:
    void cleanup() { removeSettingsIni(); }

    void firstStartDefaults()
    {
        removeSettingsIni();
        MainWindow w;
        const Ui_DialogSettings *ui = w.settings->ui;
        for (QCheckBox *box : {ui->checkBoxPoll, ui->checkBoxCoin, ui->checkBoxBill, ui->checkBoxCard, ui->checkBoxRemote,
                               ui->checkBoxAmount, ui->checkBoxButton, w.settings->checkBoxUpdate})
            QVERIFY2(box->isChecked(), qPrintable(box->text()));
        QVERIFY(w.interpret);
        QCOMPARE(w.logPath, QCoreApplication::applicationDirPath());
        QCOMPARE(w.modeLabel->text(), QString("MDB 4800"));
        QVERIFY(w.statusBar()->currentMessage().startsWith("Current port is "));
        const QSerialPort *port = w.settings->serialPort;
        QCOMPARE(port->baudRate(), 115200);
        QVERIFY(port->dataBits() == QSerialPort::Data8 && port->parity() == QSerialPort::NoParity
                && port->stopBits() == QSerialPort::OneStop && port->flowControl() == QSerialPort::NoFlowControl);
    }

    void storedModes_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<int>("baud");
        QTest::addColumn<QString>("label");
        QTest::addColumn<QString>("rates");
        const QString serial = "4800|9600|19200|38400|57600|115200";
        QTest::newRow("MDB keeps the six rates") << 0 << 3 << "MDB 38400" << serial;
        QTest::newRow("VSI empties the rate list") << 1 << 2 << "VSI " << "";
        QTest::newRow("CAN brings its four rates") << 7 << 2 << "CAN 500 kbps" << "125 kbps|250 kbps|500 kbps|1 Mbps";
        QTest::newRow("mode out of range selects nothing") << 12 << 0 << " " << "";
        QTest::newRow("rate out of range selects nothing") << 3 << 9 << "232 " << serial;
    }
    void storedModes()
    {
        QFETCH(int, mode);
        QFETCH(int, baud);
        writeSettingsIni({{"mode", mode}, {"baudrate", baud}});
        MainWindow w;
        QCOMPARE(w.settings->comboBoxInterpret->currentIndex(), mode > 8 ? -1 : mode);
        QTEST(rates(w.settings->comboBoxBaud), "rates");
        QTEST(w.modeLabel->text(), "label");
    }

    // What one run chose, in the dialog and with the interpret switch, the next run finds again.
    void savedKeys()
    {
        writeSettingsIni({{"mode", 2}, {"logPath", QDir::tempPath()}, {"captureLimitMB", 64}});
        const QImage on = iconImage(QIcon(":/icon/translate.png")), off = iconImage(QIcon(":/icon/translateDisable.png"));
        QVERIFY(on != off);
        {
            MainWindow w;
            w.settings->comboBoxInterpret->setCurrentIndex(7);
            w.settings->comboBoxBaud->setCurrentIndex(1);
            QCOMPARE(w.modeLabel->text(), QString("VTS ")); // the label follows only once the settings are applied
            w.settings->ui->pushButtonAccept->click();
            QCOMPARE(w.modeLabel->text(), QString("CAN 250 kbps"));
            QVERIFY(!w.settings->isVisible());
            for (QCheckBox *box : {w.settings->ui->checkBoxRemote, w.settings->ui->checkBoxPoll, w.settings->ui->checkBoxCoin})
                box->setChecked(false);
            w.settings->addPortPath("/dev/null");
            QCOMPARE(w.settings->spinBoxViewLines->value(), 200000);
            w.settings->spinBoxViewLines->setValue(2000000); // past the range: the largest allowed
            for (bool expected : {false, true, false}) {
                w.ui->actionTranslate->trigger();
                QCOMPARE(w.interpret, expected);
                QCOMPARE(iconImage(w.ui->actionTranslate->icon()), expected ? on : off);
            }
        }
        QSettings ini(settingsIniPath(), QSettings::IniFormat);
        const QVariantMap expected{{"serial/portName", "/dev/null"}, {"interpret", "false"}, {"mode", "7"},
                                   {"baudrate", "1"}, {"iebusRemote", "false"}, {"iebusAmount", "true"},
                                   {"iebusButton", "true"}, {"MDBPoll", "false"}, {"Update", "false"},
                                   {"logPath", QDir::tempPath()}, {"viewLines", "500000"}, {"captureLimitMB", "64"}};
        for (auto it = expected.begin(); it != expected.end(); ++it)
            QCOMPARE(ini.value(it.key()).toString(), it.value().toString());
        QVERIFY(!ini.value("geometry").toByteArray().isEmpty() && !ini.value("state").toByteArray().isEmpty());

        // Coin is not kept and starts checked.
        MainWindow again;
        QVERIFY(!again.settings->ui->checkBoxPoll->isChecked() && !again.settings->ui->checkBoxRemote->isChecked());
        QVERIFY(again.settings->ui->checkBoxCoin->isChecked());
        QCOMPARE(again.settings->comboBoxBaud->currentText(), QString("250 kbps"));
        QCOMPARE(again.settings->comboBoxPort->currentData().toString(), QString("/dev/null"));
        QVERIFY(!again.interpret);
        QCOMPARE(iconImage(again.ui->actionTranslate->icon()), off);
        QCOMPARE(again.viewLineLimit(), 500000);
        for (const auto &[written, limit] : {qMakePair(QString("abc"), 2048), qMakePair(QString("-5"), 16)}) {
            writeSettingsIni({{"captureLimitMB", written}});
            MainWindow edited; // a hand-edited limit: the default, or the floor
            QCOMPARE(edited.recorder->limitBytes(), qint64(limit) * 1024 * 1024);
        }
    }

    void unlistedPorts()
    {
        // A typed device path becomes the current port and opens.
        writeSettingsIni();
        Pty pty;
        {
            MainWindow w;
            QComboBox *ports = w.settings->comboBoxPort;
            ports->lineEdit()->setText(pty.slavePath());
            QTest::keyClick(ports->lineEdit(), Qt::Key_Return);
            QCOMPARE(ports->currentData().toString(), pty.slavePath());
            w.ui->actionConnect->trigger();
            QCOMPARE(pty.readAtLeast(10).size(), 10);
        }
        // Stored, it is added back at the next start while the device exists.
        MainWindow w;
        QCOMPARE(w.settings->comboBoxPort->currentText(), pty.slavePath());
        // Neither a gone device nor another driver's text of a listed port is.
        for (const char *stored : {"/dev/vendscope-gone", "ttyS99 Some Other Driver"}) {
            writeSettingsIni({{"serial/portName", stored}});
            MessageLog log;
            MainWindow other;
            QCOMPARE(other.settings->comboBoxPort->findText(stored), -1);
            QCOMPARE(other.settings->comboBoxPort->currentIndex(), 0);
            QVERIFY(log.messages().contains("-1"));
        }
    }
};

QTEST_MAIN(TestSettings)
#include "tst_settings.moc"
