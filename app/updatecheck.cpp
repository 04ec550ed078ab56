// Update checks against the manifests on the update server.
#include "app/mainwindow.h"
#include "ui_dialogfirmware.h"

#include "link/comm.h"
#include "settings/settings.h"
#include "update/downloader.h"
#include "update/fwupgrade.h"
#include "update/versioncompare.h"

#include <QCheckBox>
#include <QDebug>
#include <QDesktopServices>
#include <QDialog>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QLabel>
#include <QMessageBox>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>

namespace {

// A manifest is a few hundred bytes; a server that sends more is not one.
constexpr qint64 maxManifestBytes = 1024 * 1024;

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

// The manifest's top-level object, or false after the warning that says why not.
bool readManifest(QNetworkReply *reply, QJsonObject *manifest)
{
    if (reply->property("tooLarge").toBool() || reply->bytesAvailable() > maxManifestBytes) {
        qWarning().noquote() << "Update check failed:" << "manifest larger than 1 MiB";
        return false;
    }
    if (reply->error() != QNetworkReply::NoError) {
        qWarning().noquote() << "Update check failed:" << reply->errorString();
        return false;
    }
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(reply->readAll(), &error);
    if (error.error != QJsonParseError::NoError) {
        qWarning().noquote() << "Invalid update json:" << error.errorString();
        return false;
    }
    if (!doc.isObject()) {
        qWarning().noquote() << "Invalid update json:" << "top level is not an object";
        return false;
    }
    *manifest = doc.object();
    return true;
}

// Only web addresses: a manifest must not make us read local files or hand
// the desktop something it would run.
bool isWebAddress(const QString &address)
{
    const QUrl url(address, QUrl::StrictMode);
    const QString scheme = url.scheme();
    if (url.isValid() && !url.host().isEmpty() && (scheme == "http" || scheme == "https"))
        return true;
    qWarning().noquote() << "Update json address is not a web address:" << address;
    return false;
}

// Plain text, so that a manifest cannot dress up the question with markup.
bool askYesNo(QWidget *parent, const QString &title, const QString &text)
{
    QMessageBox box(QMessageBox::Question, title, text, QMessageBox::Yes | QMessageBox::No, parent);
    box.setTextFormat(Qt::PlainText);
    return box.exec() == QMessageBox::Yes;
}

} // namespace

void MainWindow::checkForUpdates()
{
    if (!settings->checkBoxUpdate->isChecked())
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
    static QPointer<QNetworkAccessManager> manager;
    if (!manager)
        manager = new QNetworkAccessManager(this);
    QNetworkReply *reply = getManifest(manager, updateServer + "/updates/Tallybox/Firmware/update.json");
    connect(reply, &QNetworkReply::finished, this, [this, reply] { firmwareReply(reply); });
}

void MainWindow::firmwareReply(QNetworkReply *reply)
{
    reply->deleteLater();
    QJsonObject manifest;
    if (!readManifest(reply, &manifest))
        return;
    const QString latest = manifest.value("version").toString();
    const QString dat = manifest.value("DAT").toString();
    const QString ini = manifest.value("INI").toString();
    const QString cof = manifest.value("COF").toString();
    if (latest.isEmpty() || dat.isEmpty() || ini.isEmpty() || cof.isEmpty()) {
        qWarning() << "Update json missing fields";
        return;
    }
    if (!isWebAddress(dat) || !isWebAddress(ini) || !isWebAddress(cof))
        return;

    // The box reports e.g. "XYZ_2.0.1"; the manifest names only the version.
    const qsizetype mark = firmwareVersion.indexOf(QLatin1Char('_'));
    const QString current = mark < 0 ? firmwareVersion : firmwareVersion.mid(mark + 1);
    if (!isNewerVersion(latest, current))
        return;
    if (!askYesNo(this, "Firmware Update Available",
                  QString("New version %1 is available.\nCurrent version: %2\nUpdate now?").arg(latest, current)))
        return;

    downloader->clearFirmwareDir();
    firmwareDialog->show();
    firmwareUi->labelStatus->setText("Fetching firmware...");
    downloader->addUrl(QUrl(dat));
    downloader->addUrl(QUrl(ini));
    downloader->addUrl(QUrl(cof));
    downloader->start();
}

void MainWindow::applicationReply(QNetworkReply *reply)
{
    reply->deleteLater();
    QJsonObject manifest;
    if (!readManifest(reply, &manifest))
        return;
    const QString latest = manifest.value("version").toString();
    const QString url = manifest.value("url").toString();
    if (latest.isEmpty() || url.isEmpty()) {
        qWarning() << "Update json missing fields";
        return;
    }
    if (!isWebAddress(url))
        return;

    const QString current = QCoreApplication::applicationVersion();
    if (!isNewerVersion(latest, current))
        return;
    if (!askYesNo(this, "Update Available",
                  QString("New version %1 is available.\nCurrent version: %2\nDownload now?").arg(latest, current)))
        return;
    QDesktopServices::openUrl(QUrl(url));
}

void MainWindow::downloadProgress(const QString &fileName, qint64 received, qint64 total)
{
    if (total > 0)
        firmwareUi->labelStatus->setText(fileName + " " + QString::number(received * 100 / total) + "%");
}

void MainWindow::downloadAllFinished()
{
    firmwareUi->labelStatus->setText("All firmware files downloaded.");
    beginUpgrade();
}
