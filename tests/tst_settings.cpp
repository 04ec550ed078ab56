// Settings dialog and settings.ini: what is loaded, applied and saved.
#include "testsupport.h"

#include "app/mainwindow.h"
#include "settings/settings.h"
#include "ui_mainwindow.h"
#include "ui_settings.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QSerialPort>
#include <QSettings>
#include <QStatusBar>

static QImage iconImage(const QIcon &icon)
{
    return icon.pixmap(32, 32).toImage();
}

class TestSettings : public QObject
{
    Q_OBJECT
private slots:
    void cleanup() { removeSettingsIni(); }

    void firstStartDefaults();
    void storedModes_data();
    void storedModes();
    void rateListFollowsInterpretMode_data();
    void rateListFollowsInterpretMode();
    void savedKeys();
    void interpretSwitchToggles();
    void typedPortPath();
    void storedDevicePathAddedBack();
    void unknownStoredPortLeavesFirst();
    void aboutBox();
};

void TestSettings::firstStartDefaults()
{
    removeSettingsIni();
    MainWindow w;
    QCOMPARE(w.settings->comboBoxInterpret->currentText(), QString("MDB"));
    QCOMPARE(w.settings->comboBoxBaud->currentText(), QString("4800"));
    QCOMPARE(w.settings->comboBoxBaud->count(), 6);
    for (QCheckBox *box : {w.settings->ui->checkBoxPoll, w.settings->ui->checkBoxCoin, w.settings->ui->checkBoxBill,
                           w.settings->ui->checkBoxCard, w.settings->ui->checkBoxRemote, w.settings->ui->checkBoxAmount,
                           w.settings->ui->checkBoxButton, w.settings->checkBoxUpdate})
        QVERIFY2(box->isChecked(), qPrintable(box->text()));
    QVERIFY(w.interpret);
    QCOMPARE(w.logPath, QCoreApplication::applicationDirPath());
    QCOMPARE(w.modeLabel->text(), QString("MDB 4800"));
    QVERIFY(w.statusBar()->currentMessage().startsWith("Current port is "));
    QCOMPARE(w.settings->serialPort->baudRate(), 115200);
    QCOMPARE(w.settings->serialPort->dataBits(), QSerialPort::Data8);
    QCOMPARE(w.settings->serialPort->parity(), QSerialPort::NoParity);
    QCOMPARE(w.settings->serialPort->stopBits(), QSerialPort::OneStop);
    QCOMPARE(w.settings->serialPort->flowControl(), QSerialPort::NoFlowControl);
    QVERIFY(!w.lampOn);
}

void TestSettings::storedModes_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("baud");
    QTest::addColumn<int>("interpretIndex");
    QTest::addColumn<QString>("rate");
    QTest::addColumn<int>("rateCount");
    QTest::addColumn<QString>("label");
    QTest::newRow("MDB keeps the six rates") << 0 << 3 << 0 << "38400" << 6 << "MDB 38400";
    QTest::newRow("VSI empties the rate list") << 1 << 2 << 1 << "" << 0 << "VSI ";
    QTest::newRow("CAN brings its four rates") << 7 << 2 << 7 << "500 kbps" << 4 << "CAN 500 kbps";
    QTest::newRow("TTL with the serial rates") << 8 << 5 << 8 << "115200" << 6 << "TTL 115200";
    QTest::newRow("mode out of range selects nothing") << 12 << 0 << -1 << "" << 0 << " ";
    QTest::newRow("rate out of range selects nothing") << 3 << 9 << 3 << "" << 6 << "232 ";
}

void TestSettings::storedModes()
{
    QFETCH(int, mode);
    QFETCH(int, baud);
    QFETCH(int, interpretIndex);
    QFETCH(QString, rate);
    QFETCH(int, rateCount);
    QFETCH(QString, label);
    writeSettingsIni({{"mode", mode}, {"baudrate", baud}});
    MainWindow w;
    QCOMPARE(w.settings->comboBoxInterpret->currentIndex(), interpretIndex);
    QCOMPARE(w.settings->comboBoxBaud->currentText(), rate);
    QCOMPARE(w.settings->comboBoxBaud->count(), rateCount);
    QCOMPARE(w.modeLabel->text(), label);
}

void TestSettings::rateListFollowsInterpretMode_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QStringList>("rates");
    const QStringList serial{"4800", "9600", "19200", "38400", "57600", "115200"};
    QTest::newRow("232") << 3 << serial;
    QTest::newRow("485") << 6 << serial;
    QTest::newRow("TTL") << 8 << serial;
    QTest::newRow("CAN") << 7 << QStringList{"125 kbps", "250 kbps", "500 kbps", "1 Mbps"};
    QTest::newRow("ISS has none") << 4 << QStringList{};
    QTest::newRow("Debug has none") << 5 << QStringList{};
    QTest::newRow("MDB has none once changed") << 0 << QStringList{};
}

void TestSettings::rateListFollowsInterpretMode()
{
    QFETCH(int, mode);
    QFETCH(QStringList, rates);
    writeSettingsIni({{"mode", 2}});
    MainWindow w;
    w.settings->comboBoxInterpret->setCurrentIndex(mode);
    QStringList shown;
    for (int i = 0; i < w.settings->comboBoxBaud->count(); ++i)
        shown << w.settings->comboBoxBaud->itemText(i);
    QCOMPARE(shown, rates);
    QCOMPARE(w.settings->comboBoxBaud->currentIndex(), rates.isEmpty() ? -1 : 0);

    // The label follows only when the settings are applied.
    w.settings->ui->pushButtonAccept->click();
    QCOMPARE(w.modeLabel->text(), w.settings->comboBoxInterpret->currentText() + " " + (rates.isEmpty() ? "" : rates.first()));
    QVERIFY(!w.settings->isVisible());
}

void TestSettings::savedKeys()
{
    const QString logDir = QDir::tempPath();
    writeSettingsIni({{"mode", 7}, {"baudrate", 1}, {"logPath", logDir}});
    {
        MainWindow w;
        w.settings->ui->checkBoxRemote->setChecked(false);
        w.settings->ui->checkBoxPoll->setChecked(false);
        w.settings->ui->checkBoxCoin->setChecked(false); // not persisted
        w.settings->checkBoxUpdate->setChecked(false);
        w.settings->addPortPath("/dev/null");
    }
    QSettings ini(settingsIniPath(), QSettings::IniFormat);
    QCOMPARE(ini.value("serial/portName").toString(), QString("/dev/null"));
    QCOMPARE(ini.value("interpret").toBool(), true);
    QCOMPARE(ini.value("mode").toInt(), 7);
    QCOMPARE(ini.value("baudrate").toInt(), 1);
    QCOMPARE(ini.value("iebusRemote").toBool(), false);
    QCOMPARE(ini.value("iebusAmount").toBool(), true);
    QCOMPARE(ini.value("iebusButton").toBool(), true);
    QCOMPARE(ini.value("MDBPoll").toBool(), false);
    QCOMPARE(ini.value("Update").toBool(), false);
    QCOMPARE(ini.value("logPath").toString(), logDir);
    QVERIFY(!ini.value("geometry").toByteArray().isEmpty());
    QVERIFY(!ini.value("state").toByteArray().isEmpty());
    QVERIFY(!ini.contains("checkBoxCoin") && !ini.contains("Coin"));

    // The next start finds them again; Coin is checked afresh.
    MainWindow again;
    QVERIFY(!again.settings->ui->checkBoxPoll->isChecked());
    QVERIFY(!again.settings->ui->checkBoxRemote->isChecked());
    QVERIFY(again.settings->ui->checkBoxCoin->isChecked());
    QCOMPARE(again.settings->comboBoxBaud->currentText(), QString("250 kbps"));
    QCOMPARE(again.settings->comboBoxPort->currentData().toString(), QString("/dev/null"));

    QFile file(settingsIniPath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray text = file.readAll();
    QVERIFY(text.contains("[General]"));
    QVERIFY(text.contains("[serial]"));
}

void TestSettings::interpretSwitchToggles()
{
    writeSettingsIni();
    const QImage on = iconImage(QIcon(":/icon/translate.png"));
    const QImage off = iconImage(QIcon(":/icon/translateDisable.png"));
    QVERIFY(on != off);
    {
        MainWindow w;
        w.ui->actionTranslate->trigger();
        QVERIFY(!w.interpret);
        QCOMPARE(iconImage(w.ui->actionTranslate->icon()), off);
        QCOMPARE(w.ui->actionTranslate->text(), QString("Translate"));
        w.ui->actionTranslate->trigger();
        QVERIFY(w.interpret);
        QCOMPARE(iconImage(w.ui->actionTranslate->icon()), on);
        w.ui->actionTranslate->trigger();
    }
    QCOMPARE(QSettings(settingsIniPath(), QSettings::IniFormat).value("interpret").toBool(), false);
    MainWindow w;
    QVERIFY(!w.interpret);
    QCOMPARE(iconImage(w.ui->actionTranslate->icon()), off);
}

void TestSettings::typedPortPath()
{
    writeSettingsIni();
    Pty pty;
    MainWindow w;
    QComboBox *ports = w.settings->comboBoxPort;
    ports->lineEdit()->setText(pty.slavePath());
    QTest::keyClick(ports->lineEdit(), Qt::Key_Return);
    QCOMPARE(ports->currentText(), pty.slavePath());
    QCOMPARE(ports->currentData().toString(), pty.slavePath());
    w.ui->actionConnect->trigger();
    QVERIFY(w.settings->serialPort->isOpen());
    QCOMPARE(pty.readAtLeast(10).size(), 10);

    // Typing it again selects the same item instead of adding another.
    const int count = ports->count();
    QCOMPARE(w.settings->addPortPath(pty.slavePath()), ports->currentIndex());
    QCOMPARE(ports->count(), count);
}

void TestSettings::storedDevicePathAddedBack()
{
    Pty pty;
    writeSettingsIni({{"serial/portName", pty.slavePath()}});
    MainWindow w;
    QCOMPARE(w.settings->comboBoxPort->currentText(), pty.slavePath());
    QCOMPARE(w.settings->comboBoxPort->currentData().toString(), pty.slavePath());
    w.portToggle();
    QVERIFY(w.settings->serialPort->isOpen());
}

void TestSettings::unknownStoredPortLeavesFirst()
{
    writeSettingsIni({{"serial/portName", "ttyS99 Some Other Driver"}});
    MessageLog log;
    MainWindow w;
    QCOMPARE(w.settings->comboBoxPort->currentIndex(), 0);
    QVERIFY(log.messages().contains("-1"));
    // A typed path that does not exist is not added back either.
    writeSettingsIni({{"serial/portName", "/dev/vendscope-gone"}});
    MainWindow again;
    QCOMPARE(again.settings->comboBoxPort->findText("/dev/vendscope-gone"), -1);
}

void TestSettings::aboutBox()
{
    writeSettingsIni();
    QCoreApplication::setApplicationVersion("1.2.2");
    MainWindow w;
    QStringList texts;
    auto answer = [&] {
        QTimer::singleShot(50, [&] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            if (!box)
                return;
            texts << box->windowTitle() + "|" + box->text();
            box->accept();
        });
    };
    answer();
    w.ui->actionAbout->trigger();
    w.firmwareVersion = "XYZ_1.0.0";
    answer();
    w.ui->actionAbout->trigger();
    QCOMPARE(texts, QStringList({"About Vendscope|App 1.2.2\nFirmware\n", "About Vendscope|App 1.2.2\nFirmware\nXYZ_1.0.0"}));
}

QTEST_MAIN(TestSettings)
#include "tst_settings.moc"
