// The update manifests as a hostile server could send them, and the version
// decision that follows: the first byte picks the manifest and the length of
// the box's version report that the firmware one is compared with.
#include "fuzzsupport.h"

#include "update/manifest.h"
#include "update/versioncompare.h"

#include <QUrl>

#include <cstdio>
#include <cstdlib>

namespace {

// Whatever the body, an accepted manifest names only web addresses.
bool webAddress(const QString &address)
{
    const QUrl url(address);
    return !address.isEmpty() && !url.host().isEmpty() && (url.scheme() == "http" || url.scheme() == "https");
}

void check(bool ok, const char *what)
{
    if (!ok) {
        std::fprintf(stderr, "manifest: %s\n", what);
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::ensureApp();
    fuzz::Input in(data, size);
    const unsigned char pick = in.byte();
    if (pick & 0x80) {
        ApplicationManifest m;
        if (readApplicationManifest(in.rest(), &m)) {
            check(!m.version.isEmpty() && webAddress(m.url), "accepted an application manifest it should not");
            isNewerVersion(m.version, QStringLiteral("1.2.2"));
        }
        return 0;
    }
    const QString report = QString::fromLatin1(in.take(pick & 0x3F));
    FirmwareManifest m;
    if (readFirmwareManifest(in.rest(), &m)) {
        check(!m.version.isEmpty() && webAddress(m.dat) && webAddress(m.ini) && webAddress(m.cof),
              "accepted a firmware manifest it should not");
        const QString current = firmwareVersionOf(report);
        // Newer is a strict order: never both ways round.
        check(!(isNewerVersion(m.version, current) && isNewerVersion(current, m.version)), "newer both ways");
    }
    return 0;
}
