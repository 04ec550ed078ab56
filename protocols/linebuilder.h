#ifndef LINEBUILDER_H
#define LINEBUILDER_H

#include "mdb/mdb.h"
#include "protocols/iebus.h"

#include <QByteArray>
#include <QString>
#include <QtGlobal>

// The user's choices that change a line: the translate switch and the
// settings dialog's traffic filters (all on, as on a fresh install).
struct LineOptions
{
    bool interpret = true;
    MDB::Filters mdb;
    Iebus::Filters iebus;
};

// The lines a freshly started program would show for a run of box frames,
// each bus-data frame rendered by the interpreter of its own mode byte. The
// renderers' carried state (last end tick, last command, colour, VTS sync)
// lives here, apart from the live view's.
class LineBuilder
{
public:
    explicit LineBuilder(const LineOptions &options = LineOptions());

    // The line the view appends for this frame, or a null string when it
    // appends none (another kind, hidden, too short, a VTS sync point).
    QString line(const QByteArray &frame);

private:
    LineOptions options;
    MDB mdb{nullptr};
    quint32 mdbTickEnd = 0;
    int mdbLastCmd = 8888;
    quint32 vsiTickEnd = 0;
    quint32 vtsTickEnd = 0;
    qint32 vtsSync = 0;
    quint32 iebusTickEnd = 0;
    QString iebusColor = QStringLiteral("black");
    quint32 serialTickEnd = 0; // the five plain serial modes share one renderer
};

// A line's text as the view's plain-text save holds it: tags dropped, <br>
// a line break, entities resolved, blanks collapsed the way the view's HTML
// import does (none at the start of a line, one for a run).
QString plainText(const QString &line);

#endif // LINEBUILDER_H
