#ifndef MANIFEST_H
#define MANIFEST_H

#include <QByteArray>
#include <QString>

// The firmware manifest: the newest box firmware and its three files, with
// their published SHA-256 digests ("sha256": {"DAT": hex, "INI": hex, "COF": hex})
// in lower-case hex, or all three empty when the manifest publishes none.
struct FirmwareManifest
{
    QString version;
    QString dat;
    QString ini;
    QString cof;
    QString datSha256;
    QString iniSha256;
    QString cofSha256;
};

// The application manifest: the newest program version and where to get it.
struct ApplicationManifest
{
    QString version;
    QString url;
};

// A manifest as the server sent it, checked: every member present, every
// address a web address and, where the firmware manifest has "sha256", all
// three digests there and each 64 hex digits. False after the warning that
// says why not.
bool readFirmwareManifest(const QByteArray &body, FirmwareManifest *manifest);
bool readApplicationManifest(const QByteArray &body, ApplicationManifest *manifest);

// The version in the box's report: "XYZ_2.0.1" gives "2.0.1", a report
// without "_" is a version as it stands.
QString firmwareVersionOf(const QString &report);

#endif // MANIFEST_H
