#include "update/manifest.h"

#include <QDebug>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QJsonValue>
#include <QUrl>

#include <utility>

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

// A SHA-256 digest as published: 64 hex digits, either case.
bool isSha256Hex(const QString &text)
{
    if (text.size() != 64)
        return false;
    for (const QChar c : text) {
        const bool hex = (c >= QLatin1Char('0') && c <= QLatin1Char('9'))
            || (c >= QLatin1Char('a') && c <= QLatin1Char('f')) || (c >= QLatin1Char('A') && c <= QLatin1Char('F'));
        if (!hex)
            return false;
    }
    return true;
}

// The optional "sha256" member: absent, or an object with a digest for each
// of the three files. Anything else is a bad manifest, false after the warning.
bool readDigests(const QJsonObject &object, FirmwareManifest *m)
{
    if (!object.contains(QLatin1String("sha256")))
        return true;
    const QJsonValue value = object.value(QLatin1String("sha256"));
    if (!value.isObject()) {
        qWarning() << "Update json sha256 is not an object";
        return false;
    }
    const QJsonObject digests = value.toObject();
    const std::pair<const char *, QString *> files[] = {{"DAT", &m->datSha256}, {"INI", &m->iniSha256}, {"COF", &m->cofSha256}};
    for (const auto &[key, digest] : files) {
        const QJsonValue d = digests.value(QLatin1String(key));
        if (d.isUndefined()) {
            qWarning().noquote() << "Update json sha256 missing:" << key;
            return false;
        }
        if (!d.isString() || !isSha256Hex(d.toString())) {
            qWarning().noquote() << "Update json sha256 not 64 hex digits:" << key;
            return false;
        }
        *digest = d.toString().toLower();
    }
    return true;
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
    if (!readDigests(object, &m))
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
