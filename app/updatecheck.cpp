// Update checks against the manifests on the update server.
#include "app/mainwindow.h"
#include "ui_dialogfirmware.h"

#include "link/comm.h"
#include "settings/settings.h"
#include "update/downloader.h"
#include "update/fwupgrade.h"
#include "update/manifest.h"
#include "update/versioncompare.h"

#include <QCheckBox>
#include <QDebug>
#include <QDesktopServices>
#include <QDialog>
#include <QFile>
#include <QLabel>
#include <QMessageBox>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>

namespace {

// A manifest is a few hundred bytes; a server that sends more is not one.
constexpr qint64 maxManifestBytes = 1024 * 1024;

// The built-in default server sits under the reserved .invalid domain until a
// real one is configured; asking it would only cost a lookup bound to fail.
bool placeholderServer(const QString &base)
{
    const bool placeholder = QUrl(base).host().endsWith(QLatin1String(".invalid"));
    if (placeholder)
        qDebug().noquote() << "Update server not configured:" << base;
    return placeholder;
}

QNetworkReply *getManifest(QNetworkAccessManager *manager, const QString &url)
{
    QNetworkReply *reply = manager->get(QNetworkRequest(QUrl(url)));
    // A server that never stops sending is cut off early.
    QObject::connect(reply, &QNetworkReply::downloadProgress, reply, [reply](qint64 received, qint64) {
        if (received > maxManifestBytes && reply->isRunning()) {
            reply->setProperty("tooLarge", true);
            reply->abort();
        }
    });
    return reply;
}

// The body of a finished manifest reply, or false after the warning that says why not.
bool readManifest(QNetworkReply *reply, QByteArray *body)
{
    if (reply->property("tooLarge").toBool() || reply->bytesAvailable() > maxManifestBytes) {
        qWarning().noquote() << "Update check failed:" << "manifest larger than 1 MiB";
        return false;
    }
    if (reply->error() != QNetworkReply::NoError) {
        qWarning().noquote() << "Update check failed:" << reply->errorString();
        return false;
    }
    *body = reply->readAll();
    return true;
}

// Plain text, so that a manifest cannot dress up the question with markup.
bool askYesNo(QWidget *parent, const QString &title, const QString &text)
{
    QMessageBox box(QMessageBox::Question, title, text, QMessageBox::Yes | QMessageBox::No, parent);
    box.setTextFormat(Qt::PlainText);
    return box.exec() == QMessageBox::Yes;
}

void warn(QWidget *parent, const QString &title, const QString &text)
{
    QMessageBox box(QMessageBox::Warning, title, text, QMessageBox::Ok, parent);
    box.setTextFormat(Qt::PlainText);
    box.exec();
}

} // namespace

void MainWindow::checkForUpdates()
{
    if (!settings->checkBoxUpdate->isChecked() || placeholderServer(updateServer))
        return;
    // Tied to the window that made it; a later window makes its own.
    static QPointer<QNetworkAccessManager> manager;
    if (!manager)
        manager = new QNetworkAccessManager(this);
    QNetworkReply *reply = getManifest(manager, updateServer + "/updates/Tallybox/Windows/update.json");
    connect(reply, &QNetworkReply::finished, this, [this, reply] { applicationReply(reply); });
}

void MainWindow::checkForUpdatesFirmware()
{
    if (!settings->checkBoxUpdate->isChecked() || !firmwareCheckPending)
        return;
    // Cleared before sending: a failed check is not retried in this run.
    firmwareCheckPending = false;
    if (placeholderServer(updateServer))
        return;
    static QPointer<QNetworkAccessManager> manager;
    if (!manager)
        manager = new QNetworkAccessManager(this);
    QNetworkReply *reply = getManifest(manager, updateServer + "/updates/Tallybox/Firmware/update.json");
    connect(reply, &QNetworkReply::finished, this, [this, reply] { firmwareReply(reply); });
}

void MainWindow::firmwareReply(QNetworkReply *reply)
{
    reply->deleteLater();
    QByteArray body;
    FirmwareManifest manifest;
    if (!readManifest(reply, &body) || !readFirmwareManifest(body, &manifest))
        return;
    const QString &latest = manifest.version;

    // The box reports e.g. "XYZ_2.0.1"; the manifest names only the version.
    const QString current = firmwareVersionOf(firmwareVersion);
    if (!isNewerVersion(latest, current))
        return;
    if (!askYesNo(this, "Firmware Update Available",
                  QString("New version %1 is available.\nCurrent version: %2\nUpdate now?").arg(latest, current)))
        return;

    downloader->clearFirmwareDir();
    firmwareDialog->show();
    firmwareUi->labelStatus->setText("Fetching firmware...");
    downloader->addUrl(QUrl(manifest.dat), manifest.datSha256);
    downloader->addUrl(QUrl(manifest.ini), manifest.iniSha256);
    downloader->addUrl(QUrl(manifest.cof), manifest.cofSha256);
    downloader->start();
}

void MainWindow::applicationReply(QNetworkReply *reply)
{
    reply->deleteLater();
    QByteArray body;
    ApplicationManifest manifest;
    if (!readManifest(reply, &body) || !readApplicationManifest(body, &manifest))
        return;
    const QString &latest = manifest.version;

    const QString current = QCoreApplication::applicationVersion();
    if (!isNewerVersion(latest, current))
        return;
    if (!askYesNo(this, "Update Available",
                  QString("New version %1 is available.\nCurrent version: %2\nDownload now?").arg(latest, current)))
        return;
    QDesktopServices::openUrl(QUrl(manifest.url));
}

void MainWindow::downloadProgress(const QString &fileName, qint64 received, qint64 total)
{
    if (total > 0)
        firmwareUi->labelStatus->setText(fileName + " " + QString::number(received * 100 / total) + "%");
}

void MainWindow::downloadAllFinished()
{
    firmwareUi->labelStatus->setText("All firmware files downloaded.");
    // Where the manifest published digests, every file must match its own
    // before anything goes to the box; a file that does not is deleted with
    // the rest, so that a later firmware request of the box finds nothing.
    const QList<Downloader::Task> fetched = downloader->fetchedTasks();
    for (const Downloader::Task &task : fetched) {
        QString reason;
        if (task.sha256.isEmpty() || fileMatchesSha256(task.filePath, task.sha256, &reason))
            continue;
        qWarning().noquote() << "Firmware refused:" << reason;
        for (const Downloader::Task &file : fetched) // hidden names too, which clearing the folder passes over
            QFile::remove(file.filePath);
        downloader->clearFirmwareDir();
        firmwareUi->labelStatus->setText("Firmware refused: checksum check failed.");
        warn(this, "Firmware Update", reason + "\n\nNothing was flashed; the downloaded files were deleted.");
        return;
    }
    beginUpgrade();
}
