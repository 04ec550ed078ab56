#include "update/manifest.h"

#include <QDebug>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QUrl>

namespace {

// The top-level object, or false after the warning that says why not.
bool parseObject(const QByteArray &body, QJsonObject *object)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError) {
        qWarning().noquote() << "Invalid update json:" << error.errorString();
        return false;
    }
    if (!doc.isObject()) {
        qWarning().noquote() << "Invalid update json:" << "top level is not an object";
        return false;
    }
    *object = doc.object();
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

} // namespace

bool readFirmwareManifest(const QByteArray &body, FirmwareManifest *manifest)
{
    QJsonObject object;
    if (!parseObject(body, &object))
        return false;
    FirmwareManifest m;
    m.version = object.value("version").toString();
    m.dat = object.value("DAT").toString();
    m.ini = object.value("INI").toString();
    m.cof = object.value("COF").toString();
    if (m.version.isEmpty() || m.dat.isEmpty() || m.ini.isEmpty() || m.cof.isEmpty()) {
        qWarning() << "Update json missing fields";
        return false;
    }
    if (!isWebAddress(m.dat) || !isWebAddress(m.ini) || !isWebAddress(m.cof))
        return false;
    *manifest = m;
    return true;
}

bool readApplicationManifest(const QByteArray &body, ApplicationManifest *manifest)
{
    QJsonObject object;
    if (!parseObject(body, &object))
        return false;
    ApplicationManifest m;
    m.version = object.value("version").toString();
    m.url = object.value("url").toString();
    if (m.version.isEmpty() || m.url.isEmpty()) {
        qWarning() << "Update json missing fields";
        return false;
    }
    if (!isWebAddress(m.url))
        return false;
    *manifest = m;
    return true;
}

QString firmwareVersionOf(const QString &report)
{
    const qsizetype mark = report.indexOf(QLatin1Char('_'));
    return mark < 0 ? report : report.mid(mark + 1);
}
