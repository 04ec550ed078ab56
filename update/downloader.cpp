#include "update/downloader.h"

Downloader::Downloader(QObject *parent)
    : QObject(parent)
{
}

void Downloader::clearFirmwareDir()
{
}

void Downloader::addUrl(const QUrl &url)
{
    Q_UNUSED(url);
}

void Downloader::start()
{
}
