#include "app/mainwindow.h"
#include "app/loglayout.h"
#include "app/logscrollbar.h"
#include "app/paths.h"
#include "ui_dialogfirmware.h"
#include "ui_mainwindow.h"
#include "ui_settings.h"

#include "capture/recorder.h"
#include "insight/businsight.h"
#include "link/comm.h"
#include "link/frame.h"
#include "link/framecutter.h"
#include "mdb/mdb.h"
#include "protocols/iebus.h"
#include "protocols/rs232.h"
#include "protocols/vsi.h"
#include "protocols/vts.h"
#include "settings/settings.h"
#include "update/downloader.h"
#include "update/fwupgrade.h"

#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QDebug>
#include <QDialog>
#include <QFile>
#include <QLabel>
#include <QMessageBox>
#include <QPainter>
#include <QPixmap>
#include <QSettings>
#include <QStatusBar>
#include <QScrollBar>
#include <QSpinBox>
#include <QTextBrowser>
#include <QTextCursor>
#include <QTextDocument>
#include <QTimer>

constexpr qint64 defaultCaptureLimitMB = 2048;
constexpr qint64 minCaptureLimitMB = 16;
constexpr qint64 maxCaptureLimitMB = qint64(1) << 30;

// The icons live in the static library, so they must be registered by hand.
static void initResources()
{
    Q_INIT_RESOURCE(icons);
}

MainWindow::MainWindow(QWidget *parent)
    : QMainWindow(parent)
{
    initResources();

    mdb = new MDB(this);
    rs232 = new RS232(this);
    vsi = new VSI(this);
    vts = new VTS(this);
    comm = new Comm(this);
    settings = new Settings(this);

    ui = new Ui_MainWindow;
    firmwareUi = new Ui::DialogFirmware;
    firmwareDialog = new QDialog(this);

    ui->setupUi(this);

    if (firmwareDialog->objectName().isEmpty())
        firmwareDialog->setObjectName("DialogFirmware");
    firmwareUi->setupUi(firmwareDialog);

    // A layout that cuts the oldest lines in time proportional to the cut.
    QTextDocument *log = ui->textBrowserParsed->document();
    log->setDocumentLayout(new LogLayout(log));
    ui->textBrowserParsed->setVerticalScrollBar(new LogScrollBar);
    ui->textBrowserParsed->setStyleSheet(
        QStringLiteral("QTextBrowser {  font-family:\"Consolas\", \"Courier New\", monospace; font-size:14px;}"));

    iebus = new Iebus(this, this);
    fwUpgrade = new FWUpgrade(settings->serialPort, firmwareUi);
    downloader = new Downloader(this);

    connect(downloader, &Downloader::progress, this, &MainWindow::downloadProgress);

    reconnectTimer = new QTimer(this);
    reconnectTimer->setInterval(300);
    connect(reconnectTimer, &QTimer::timeout, this, &MainWindow::reconnectTick);

    connect(downloader, &Downloader::allFinished, this, &MainWindow::downloadAllFinished);
    connect(fwUpgrade, &FWUpgrade::upgradeEnd, this, [this] { reconnectTimer->start(); });

    settingsFile = new QSettings(userPath(Place::Settings), QSettings::IniFormat);

    connect(settings->serialPort, &QSerialPort::readyRead, this, &MainWindow::readData);
    connect(settings->serialPort, &QSerialPort::errorOccurred, this, &MainWindow::portError);

    connect(ui->actionConfig, &QAction::triggered, settings, &QDialog::show);
    connect(ui->actionConnect, &QAction::triggered, this, &MainWindow::portToggle);
    connect(ui->actionClear, &QAction::triggered, ui->textBrowserParsed, &QTextBrowser::clear);
    connect(ui->actionClear, &QAction::triggered, this, &MainWindow::startCapture);
    connect(ui->actionTranslate, &QAction::triggered, this, &MainWindow::toggleInterpret);
    connect(ui->actionSave, &QAction::triggered, this, &MainWindow::saveTextBrowserToFile);

    modeLabel = new QLabel(this);
    statusBar()->addPermanentWidget(modeLabel);

    connect(settings, &QDialog::accepted, this, &MainWindow::settingAccepted);
    connect(ui->actionAbout, &QAction::triggered, this, &MainWindow::showAbout);
    connect(ui->actionLog, &QAction::triggered, this, &MainWindow::loadFileToTextBrowser);
    connect(settings->ui->pushButtonAccept, &QPushButton::clicked, this, &MainWindow::settingAccepted);

    paintTimer = new QTimer(this);
    paintTimer->setSingleShot(true);
    connect(paintTimer, &QTimer::timeout, this,
            [this] { QCoreApplication::postEvent(this, new QEvent(QEvent::UpdateRequest), Qt::LowEventPriority); });

    lampLabel = new QLabel(this);
    lampLabel->setFixedSize(12, 12);
    updateCommStatus(false);
    statusBar()->addPermanentWidget(lampLabel);

    watchdogTimer = new QTimer(this);
    watchdogTimer->setInterval(3000);
    watchdogTimer->setSingleShot(true);
    connect(watchdogTimer, &QTimer::timeout, this, &MainWindow::watchdogTimeout);

    recorder = new CaptureRecorder(userPath(Place::Captures), this);
    connect(recorder, &CaptureRecorder::failed, this, &MainWindow::captureFailed);
    connect(ui->actionOpenCapture, &QAction::triggered, this, &MainWindow::openCaptureFile);
    connect(ui->actionSaveCapture, &QAction::triggered, this, &MainWindow::saveCaptureFile);
    connect(ui->actionExportMdb, &QAction::triggered, this, &MainWindow::exportMdbFile);

    // Following the bottom, and so painting new lines, is paced at 20 Hz;
    // the lines themselves are in the document at once.
    followTimer = new QTimer(this);
    followTimer->setInterval(int(paintIntervalMs));
    followTimer->setSingleShot(true);
    connect(followTimer, &QTimer::timeout, this, &MainWindow::followTick);
    QScrollBar *bar = ui->textBrowserParsed->verticalScrollBar();
    connect(bar, &QScrollBar::actionTriggered, this, [this, bar] {
        // The user moved it: the new position says whether to follow.
        QMetaObject::invokeMethod(this, [this, bar] { followBottom = bar->value() >= bar->maximum(); }, Qt::QueuedConnection);
    });

    connect(vts, &VTS::showTranslation, this, [this] { ui->textBrowserParsed->append(vts->translation); });

    setUpInsight();
    loadSettings();
    QTimer::singleShot(0, this, &MainWindow::checkForUpdates); // once per run, when the loop starts
}

MainWindow::~MainWindow()
{
    saveSettings();
    delete ui;
    // These have no Qt parent; releasing them here keeps windows built in
    // tests leak-free. Nothing a user sees depends on it.
    delete fwUpgrade;
    delete firmwareUi;
    delete mdb;
    delete rs232;
    delete vsi;
    delete comm;
    delete settingsFile;
    delete insight;
}

namespace {

// The lamp in one colour: a 12 px disc with a darker rim.
QPixmap lampImage(const QColor &fill, const QColor &rim)
{
    QPixmap image(12, 12);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(rim);
    painter.setBrush(fill);
    painter.drawEllipse(QRectF(0.5, 0.5, 11, 11));
    return image;
}

} // namespace

void MainWindow::updateCommStatus(bool on)
{
    // Called for every frame: a ready image, not a style sheet to parse.
    static const QPixmap lit = lampImage(QColor(0x00, 0xc8, 0x00), QColor(0x00, 0x44, 0x00));
    static const QPixmap dark = lampImage(Qt::gray, QColor(0x40, 0x40, 0x40));
    lampOn = on;
    lampLabel->setPixmap(on ? lit : dark);
}

bool MainWindow::event(QEvent *event)
{
    // The window is painted at most 20 times a second, however fast the
    // lines, the lamp and the scroll bar change; a held-back paint follows.
    if (event->type() == QEvent::UpdateRequest) {
        if (paintClock.isValid() && paintClock.elapsed() < paintIntervalMs) {
            if (!paintTimer->isActive())
                paintTimer->start(int(paintIntervalMs - paintClock.elapsed()));
            return true;
        }
        paintClock.start();
    }
    return QMainWindow::event(event);
}

int MainWindow::interpretIndex() const
{
    return settings->comboBoxInterpret->currentIndex();
}

int MainWindow::baudIndex() const
{
    return settings->comboBoxBaud->currentIndex();
}

void MainWindow::setInterpret(bool on)
{
    interpret = on;
    ui->actionTranslate->setIcon(QIcon(on ? QStringLiteral(":/icon/translate.png")
                                          : QStringLiteral(":/icon/translateDisable.png")));
}

void MainWindow::toggleInterpret()
{
    setInterpret(!interpret);
}

void MainWindow::showAbout()
{
    QMessageBox::about(this, QStringLiteral("About Vendscope"),
                       "App " + QCoreApplication::applicationVersion() + "\nFirmware\n" + firmwareVersion);
}

// ---- settings ------------------------------------------------------------

void MainWindow::loadSettings()
{
    restoreGeometry(settingsFile->value("geometry").toByteArray());
    restoreState(settingsFile->value("state").toByteArray(), 0);

    const QString portName = settingsFile->value("serial/portName", QString()).toString();
    qDebug() << "load settings";
    qDebug().noquote() << portName;
    int index = settings->comboBoxPort->findText(portName, Qt::MatchExactly | Qt::MatchCaseSensitive);
    if (index >= 0)
        settings->comboBoxPort->setCurrentIndex(index);
    else if (portName.startsWith(QLatin1Char('/')) && QFile::exists(portName))
        index = settings->addPortPath(portName); // an unlisted device such as a pseudo-terminal
    qDebug() << index;

    qDebug() << "Serial Infro";
    qDebug().noquote() << "bandRate " + QString::number(settings->serialPort->baudRate());

    setInterpret(settingsFile->value("interpret", true).toBool());
    settings->comboBoxInterpret->setCurrentIndex(settingsFile->value("mode", 0).toInt());
    settings->comboBoxBaud->setCurrentIndex(settingsFile->value("baudrate", 0).toInt());

    settings->ui->checkBoxRemote->setChecked(settingsFile->value("iebusRemote", true).toBool());
    settings->ui->checkBoxAmount->setChecked(settingsFile->value("iebusAmount", true).toBool());
    settings->ui->checkBoxButton->setChecked(settingsFile->value("iebusButton", true).toBool());
    settings->ui->checkBoxPoll->setChecked(settingsFile->value("MDBPoll", true).toBool());
    settings->checkBoxUpdate->setChecked(settingsFile->value("Update", true).toBool());
    settings->spinBoxViewLines->setValue(settingsFile->value("viewLines", 200000).toInt());

    updateServer = settingsFile->value("updateServer", QStringLiteral(VENDSCOPE_UPDATE_SERVER)).toString();

    settingAccepted();

    logPath = settingsFile->value("logPath", userPath(Place::Logs)).toString();
    // A hand-edited limit that is no number gets the default, a tiny one a floor.
    bool ok = false;
    const qint64 limitMB = settingsFile->value("captureLimitMB", defaultCaptureLimitMB).toLongLong(&ok);
    recorder->setLimitBytes(qBound<qint64>(minCaptureLimitMB, ok ? limitMB : defaultCaptureLimitMB, maxCaptureLimitMB) * 1024 * 1024);
}

void MainWindow::saveSettings()
{
    QSettings out(userPath(Place::Settings), QSettings::IniFormat);
    qDebug() << "save settings";
    out.setValue("serial/portName", settings->comboBoxPort->currentText());
    out.setValue("interpret", interpret);
    out.setValue("mode", interpretIndex());
    out.setValue("baudrate", baudIndex());
    out.setValue("geometry", saveGeometry());
    out.setValue("state", saveState(0));
    out.setValue("iebusRemote", settings->ui->checkBoxRemote->isChecked());
    out.setValue("iebusAmount", settings->ui->checkBoxAmount->isChecked());
    out.setValue("iebusButton", settings->ui->checkBoxButton->isChecked());
    out.setValue("MDBPoll", settings->ui->checkBoxPoll->isChecked());
    out.setValue("Update", settings->checkBoxUpdate->isChecked());
    out.setValue("viewLines", settings->spinBoxViewLines->value());
    out.setValue("logPath", logPath);
    out.setValue("captureLimitMB", settingsFile->value("captureLimitMB", defaultCaptureLimitMB));
    qDebug().noquote() << out.value("serial/portName").toString();
}

void MainWindow::settingAccepted()
{
    modeLabel->setText(settings->comboBoxInterpret->currentText() + " " + settings->comboBoxBaud->currentText());
    settings->serialPort->setPortName(settings->comboBoxPort->currentData().toString());
    statusBar()->showMessage("Current port is " + settings->serialPort->portName());
}

// ---- box frame receiver ----------------------------------------------------

void MainWindow::readData()
{
    QSerialPort *port = settings->serialPort;
    if (!port->isOpen()) {
        qDebug() << "Port not open yet!";
        return;
    }
    // A flood is taken in slices, so that the window paints and answers
    // between them; the rest is read as soon as the loop comes round.
    const QByteArray chunk = port->read(readSliceBytes);
    if (port->bytesAvailable() > 0 && !readPending) {
        readPending = true;
        QTimer::singleShot(0, this, [this] {
            readPending = false;
            readData();
        });
    }
    // One edit block per read: the view lays out once for all its lines.
    QTextCursor batch(ui->textBrowserParsed->document());
    batch.beginEditBlock();
    receive(chunk);
    batch.endEditBlock();
    trimView();
}

void MainWindow::receive(const QByteArray &chunk)
{
    if (fwUpgrade->upgradeRunning) {
        fwUpgrade->upgradeHandling(chunk);
        return;
    }
    rxBuffer.append(chunk);
    QByteArray frame;
    qint64 arrivalUs = 0; // one clock read for all frames of a chunk
    for (;;) {
        const qint64 buffered = rxBuffer.size();
        switch (FrameCutter::next(rxBuffer, rxState, frameLength, &frame)) {
        case FrameCutter::Cut::Noise:
            insight->addNoise(buffered - rxBuffer.size());
            return;
        case FrameCutter::Cut::Wait:
            return;
        case FrameCutter::Cut::FccError:
            insight->addFccError();
            qDebug() << "FCC error";
            qDebug().noquote() << (frame + rxBuffer).toHex().toUpper(); // the buffer as it was
            break;
        case FrameCutter::Cut::Frame:
            if (!arrivalUs)
                arrivalUs = CaptureRecorder::nowUs();
            recorder->record(arrivalUs, frame);
            insight->addFrame(arrivalUs, frame);
            handleFrame(frame);
            lampOn = !lampOn;
            updateCommStatus(lampOn);
            watchdogTimer->start();
            break;
        }
    }
}

void MainWindow::handleFrame(const QByteArray &frame)
{
    switch (static_cast<unsigned char>(frame.at(4))) {
    case BoxFrame::KindNone:
        break;
    case BoxFrame::KindBusData:
        handleBusData(frame);
        break;
    case BoxFrame::KindVersion:
        handleVersion(frame);
        break;
    case BoxFrame::KindFirmwareRequest:
        upgradeStart();
        break;
    default:
        comm->heart();
        break;
    }
}

void MainWindow::handleBusData(const QByteArray &frame)
{
    if (frame.size() < BoxFrame::busDataOffset + BoxFrame::trailerSize) {
        qDebug() << "bus data frame too short:" << frame.size();
        return;
    }
    const int mode = static_cast<signed char>(frame.at(BoxFrame::modeOffset));
    const int selected = interpretIndex();
    if (mode != selected || selected < 0 || selected > 8)
        return;
    switch (selected) {
    case 0:
        mdb->packageProcess(frame);
        break;
    case 1:
        vsi->packageProcess(frame);
        break;
    case 2:
        vts->packageProcess(frame);
        break;
    case 4:
        iebus->packageProcess(frame);
        break;
    default: // 232, Debug, 485, CAN, TTL
        rs232->packageProcess(frame);
        break;
    }
}

void MainWindow::handleVersion(const QByteArray &frame)
{
    const int count = static_cast<signed char>(frame.at(5));
    const int available = int(frame.size()) - 9; // characters before FCC 0D 0A
    if (count > available) {
        qDebug() << "version frame count runs past the frame:" << count << "of" << available;
        return;
    }
    firmwareVersion.clear();
    for (int i = 0; i < count; ++i)
        firmwareVersion.append(QChar(static_cast<unsigned char>(frame.at(6 + i))));
    qDebug().noquote() << firmwareVersion;
    checkForUpdatesFirmware();
}

void MainWindow::upgradeStart()
{
    firmwareDialog->show();
    beginUpgrade();
}

bool MainWindow::beginUpgrade()
{
    if (!fwUpgrade->openFirmware(userPath(Place::Firmware)))
        return false;
    comm->boot();
    fwUpgrade->upgradeRunning = true;
    fwUpgrade->stallTimer->start();
    reconnectTimer->start();
    return true;
}

// ---- port control ------------------------------------------------------------

bool MainWindow::openPort()
{
    const bool ok = settings->serialPort->open(QIODevice::ReadWrite);
    if (ok) {
        portErrorSeen = false;
        lastPortError = QSerialPort::NoError;
        if (portLostClosed) {
            // A reopen after a loss: the tool bar goes back to the truth.
            portLostClosed = false;
            showPortOpen();
        }
    }
    return ok;
}

void MainWindow::showPortOpen()
{
    ui->actionConnect->setIcon(QIcon(QStringLiteral(":/icon/connect.png")));
    ui->actionConnect->setText(QStringLiteral("Connect"));
    ui->actionConfig->setEnabled(false);
}

void MainWindow::showPortClosed(const QString &text)
{
    ui->actionConnect->setIcon(QIcon(QStringLiteral(":/icon/disconnect.png")));
    ui->actionConnect->setText(text);
    ui->actionConfig->setEnabled(true);
}

void MainWindow::portToggle()
{
    QSerialPort *port = settings->serialPort;
    if (port->isOpen()) {
        port->clear(QSerialPort::AllDirections);
        port->close();
        showPortClosed(QStringLiteral("Disconnect"));
        statusBar()->showMessage(port->portName() + " closed");
        return;
    }
    port->setPortName(settings->comboBoxPort->currentData().toString());
    portLostClosed = false;
    if (openPort()) {
        showPortOpen();
        statusBar()->showMessage(port->portName() + " openned");
        startCapture();
        comm->modeSet(interpretIndex(), baudIndex());
    } else {
        qDebug() << "open port failed";
        statusBar()->showMessage("open " + port->portName() + " failed");
    }
}

bool MainWindow::reopenPort()
{
    QSerialPort *port = settings->serialPort;
    port->close();
    qDebug().noquote() << "port reconnecting:" << port->portName();
    if (!openPort())
        return false;
    qDebug().noquote() << "port reconnected:" << port->portName();
    return true;
}

void MainWindow::reconnectTick()
{
    if (!reopenPort())
        return;
    reconnectTimer->stop();
    if (!fwUpgrade->upgradeRunning)
        comm->modeSet(interpretIndex(), baudIndex());
}

void MainWindow::watchdogTimeout()
{
    insight->addWatchdogReopen();
    updateCommStatus(false);
    reopenPort();
}

void MainWindow::portError(QSerialPort::SerialPortError error)
{
    QSerialPort *port = settings->serialPort;
    // Open failures are reported by whoever tried to open; timeouts are harmless.
    if (error == QSerialPort::NoError || error == QSerialPort::TimeoutError || !port->isOpen() || portErrorSeen)
        return;
    const bool fatal = error == QSerialPort::ResourceError || error == QSerialPort::ReadError;
    if (!fatal && error != lastPortError) {
        lastPortError = error; // a single stray error; a repeat counts as a loss
        return;
    }
    portErrorSeen = true;
    // errorString() may still carry a stale errno here; say what we know.
    portLost(error == QSerialPort::ResourceError ? QStringLiteral("device removed")
             : error == QSerialPort::ReadError   ? QStringLiteral("read failed, far side gone")
                                                 : port->errorString());
}

void MainWindow::portLost(const QString &reason)
{
    const QString name = settings->serialPort->portName();
    qDebug().noquote() << "port lost:" << name << reason;
    insight->addPortLost();
    statusBar()->showMessage(name + " lost: " + reason);
    // Closing from inside the error signal would re-enter the port.
    QMetaObject::invokeMethod(this, [this] {
        QSerialPort *port = settings->serialPort;
        if (!port->isOpen() || !portErrorSeen)
            return;
        port->close();
        portLostClosed = true;
        showPortClosed(QStringLiteral("Connect"));
    }, Qt::QueuedConnection);
}
