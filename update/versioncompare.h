#ifndef VERSIONCOMPARE_H
#define VERSIONCOMPARE_H

#include <QString>

// True when the published version `latest` is newer than `current`.
// Texts that start with dotted numbers compare by their numbers (2.0.10 is
// newer than 2.0.1; anything after the numbers is ignored); when either text
// starts with no number, the two texts compare as plain case-sensitive text.
bool isNewerVersion(const QString &latest, const QString &current);

#endif // VERSIONCOMPARE_H
