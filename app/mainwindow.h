#ifndef MAINWINDOW_H
#define MAINWINDOW_H

#include "mdb/mdb.h"
#include "protocols/iebus.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QMainWindow>
#include <QSerialPort>
#include <QString>

#include <memory>

class BusInsight;
class CaptureRecorder;
class InsightModel;
class Comm;
class Downloader;
class FWUpgrade;
class QDialog;
class QNetworkReply;
class QLabel;
class QSettings;
class QTimer;
class RS232;
class Settings;
class Ui_MainWindow;
class VSI;
class VTS;
namespace Ui {
class DialogFirmware;
}

class MainWindow : public QMainWindow
{
    Q_OBJECT
public:
    explicit MainWindow(QWidget *parent = nullptr);
    ~MainWindow() override;

    void updateCommStatus(bool on);
    void loadSettings();
    void saveSettings();
    // One chunk as read from the port: cut into box frames and acted on.
    void receive(const QByteArray &chunk);

    // The settings dialog's traffic filters, as the renderers take them.
    MDB::Filters mdbFilters() const;
    Iebus::Filters iebusFilters() const;
    // Appends a renderer's line; a null line is a frame shown as nothing.
    void appendLine(const QString &line);

    // Captures. showCapture replaces the view with a capture's lines and
    // says in a warning box what went wrong; exportMdb writes the MDB
    // transfers of the shown capture, or else of the live one.
    bool showCapture(const QString &path);
    bool saveCapture(const QString &path, QString *error);
    bool exportMdb(const QString &path, QString *error);
    // Starts a new live capture file: at every Connect and every Clear.
    void startCapture();
    CaptureRecorder *recorder = nullptr;
    QString shownCapture; // the capture the view shows, empty for live traffic

    // Bus insight: the live session's figures, and those of the capture on
    // view. The docks show the latter while there is one.
    enum class InsightTable { Statistics, Money };
    BusInsight *insight = nullptr;
    std::unique_ptr<BusInsight> captureInsight;
    const BusInsight &shownInsight() const;
    void showInsightOf(BusInsight *fromCapture);
    void refreshInsight();
    bool saveInsight(InsightTable which, const QString &path, QString *error) const;
    InsightModel *statisticsModel = nullptr;
    InsightModel *moneyModel = nullptr;

    // The log view is bounded: by the settings' line count and by its height,
    // past which Qt's text layout grinds to a halt. Lines go in chunks.
    qreal viewHeightLimit = 10e6;
    int viewLineLimit() const;
    void trimView();
    // Whether the view follows new lines: the user is at the bottom.
    bool followBottom = true;
    bool viewTrimmed = false;

    MDB *mdb;
    RS232 *rs232;
    Iebus *iebus = nullptr;
    VSI *vsi;
    VTS *vts;
    Comm *comm;
    Settings *settings;
    Ui_MainWindow *ui;
    QByteArray rxBuffer;
    int rxState = 0;
    int frameLength = 0;
    bool interpret = true;
    bool lampOn = false;
    QString firmwareVersion;
    QLabel *lampLabel = nullptr;
    QSettings *settingsFile = nullptr;
    QLabel *modeLabel = nullptr;
    QTimer *watchdogTimer = nullptr;
    Ui::DialogFirmware *firmwareUi;
    QDialog *firmwareDialog;
    Downloader *downloader = nullptr;
    FWUpgrade *fwUpgrade = nullptr;
    QTimer *reconnectTimer = nullptr;
    bool firmwareCheckPending = true;
    QString logPath;

    // Base URL of the update server: the build's default, or "updateServer"
    // from settings.ini (read at load, never written back).
    QString updateServer;

protected:
    bool event(QEvent *event) override;

public slots:
    void portToggle();
    void readData();
    void settingAccepted();
    void saveTextBrowserToFile();
    void checkForUpdates();
    void checkForUpdatesFirmware();
    void loadFileToTextBrowser();
    void openCaptureFile();
    void saveCaptureFile();
    void exportMdbFile();

private:
    void handleFrame(const QByteArray &frame);
    void handleBusData(const QByteArray &frame);
    void handleVersion(const QByteArray &frame);
    void upgradeStart();
    bool beginUpgrade();
    void toggleInterpret();
    void setInterpret(bool on);
    void showAbout();
    void reconnectTick();
    void watchdogTimeout();
    bool reopenPort();
    bool openPort();
    void showPortOpen();
    void showPortClosed(const QString &text);
    void portError(QSerialPort::SerialPortError error);
    void portLost(const QString &reason);
    void downloadProgress(const QString &fileName, qint64 received, qint64 total);
    void downloadAllFinished();
    void firmwareReply(QNetworkReply *reply);
    void applicationReply(QNetworkReply *reply);
    void captureFailed(const QString &reason);
    void followTick();
    void setUpInsight();
    void saveInsightFile(InsightTable which);
    QTimer *insightTimer = nullptr;
    quint64 shownStatisticsRevision = 0;
    quint64 shownMoneyRevision = 0;
    // Asks where to write, the file name given its suffix; empty when cancelled.
    QString askSavePath(const QString &caption, const QString &proposed, const QString &filter,
                        const QLatin1String &suffix);
    QTimer *followTimer = nullptr;
    static constexpr qint64 paintIntervalMs = 50;
    static constexpr qint64 readSliceBytes = 8192;
    bool readPending = false;
    QElapsedTimer paintClock;
    QTimer *paintTimer = nullptr;
    int interpretIndex() const;
    int baudIndex() const;

    // Port errors are handled once per open; a pulled adapter repeats them
    // hundreds of thousands of times a second.
    bool portErrorSeen = false;
    bool portLostClosed = false;
    QSerialPort::SerialPortError lastPortError = QSerialPort::NoError;
};

#endif // MAINWINDOW_H
