// Update checks against the manifests on the update server.
#include "app/mainwindow.h"
#include "ui_dialogfirmware.h"

#include "link/comm.h"
#include "update/fwupgrade.h"

#include <QNetworkReply>

void MainWindow::checkForUpdates()
{
}

void MainWindow::checkForUpdatesFirmware()
{
}

void MainWindow::firmwareReply(QNetworkReply *reply)
{
    reply->deleteLater();
}

void MainWindow::applicationReply(QNetworkReply *reply)
{
    reply->deleteLater();
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
