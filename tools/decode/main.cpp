// vendscope-decode: the lines of a capture or a raw serial dump, as the
// window shows them, without a window.
#include "capture/capturefile.h"
#include "capture/wireshark.h"
#include "insight/businsight.h"
#include "link/frame.h"
#include "protocols/linebuilder.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QStringList>

#include <cstdio>

namespace {

constexpr int exitUnusable = 2;

const QStringList modeNames = {"MDB", "VSI", "VTS", "232", "ISS", "Debug", "485", "CAN", "TTL"};

int fail(const QString &why)
{
    std::fprintf(stderr, "vendscope-decode: %s\n", qPrintable(why));
    return exitUnusable;
}

// Sets the named filters to `on`; false, with the bad name in *bad, for a name it does not know.
bool setFilters(const QString &list, bool on, LineOptions *options, QString *bad)
{
    for (const QString &raw : list.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const QString name = raw.trimmed().toLower();
        bool *flag = name == "poll"     ? &options->mdb.poll
                     : name == "coin"   ? &options->mdb.coin
                     : name == "bill"   ? &options->mdb.bill
                     : name == "card"   ? &options->mdb.card
                     : name == "remote" ? &options->iebus.remote
                     : name == "button" ? &options->iebus.button
                     : name == "amount" ? &options->iebus.amount
                                        : nullptr;
        if (!flag) {
            *bad = raw;
            return false;
        }
        *flag = on;
    }
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vendscope-decode"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VENDSCOPE_VERSION));
    // The renderers' debug notes would mix with the lines; skipped frames are said below.
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Prints the lines Vendscope shows for a capture (.pcapng) or a raw dump of the box's serial stream."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption modeOption("mode", "Keep only this bus's frames: " + modeNames.join(", ") + ".", "NAME");
    const QCommandLineOption noTranslate("no-translate", "Bytes only, as with Translate switched off.");
    const QCommandLineOption show("show", "Show this hidden traffic: poll, coin, bill, card, remote, button, amount.", "NAME,...");
    const QCommandLineOption hide("hide", "Hide this idle traffic, as the settings' unchecked boxes do (same names).", "NAME,...");
    const QCommandLineOption html("html", "Print the HTML lines instead of the plain text.");
    const QCommandLineOption wireshark("wireshark", "Also write the MDB transfers as a pcap file for Wireshark.", "OUT.pcap");
    const QCommandLineOption stats("stats", "Print the MDB statistics per device and the link's figures as CSV instead of the lines.");
    const QCommandLineOption money("money", "Print the money timeline and its summary as CSV instead of the lines (after --stats and a blank line when both are given).");
    parser.addOptions({modeOption, noTranslate, show, hide, html, wireshark, stats, money});
    parser.addPositionalArgument("INPUT", "A Vendscope capture or a raw serial dump.");

    if (!parser.parse(QCoreApplication::arguments()))
        return fail(parser.errorText());
    if (parser.isSet(QStringLiteral("help"))) {
        std::fputs(qPrintable(parser.helpText()), stdout);
        return 0;
    }
    if (parser.isSet(QStringLiteral("version"))) {
        std::printf("vendscope-decode %s\n", VENDSCOPE_VERSION);
        return 0;
    }
    const QStringList inputs = parser.positionalArguments();
    if (inputs.size() != 1)
        return fail(inputs.isEmpty() ? QStringLiteral("no INPUT file given") : QStringLiteral("one INPUT file only"));

    int mode = -1;
    if (parser.isSet(modeOption)) {
        const QString name = parser.value(modeOption);
        for (int i = 0; i < modeNames.size() && mode < 0; ++i)
            if (modeNames.at(i).compare(name, Qt::CaseInsensitive) == 0)
                mode = i;
        if (mode < 0)
            return fail("unknown mode \"" + name + "\"; one of " + modeNames.join(", "));
    }
    if ((parser.isSet(stats) || parser.isSet(money)) && parser.isSet(html))
        return fail(QStringLiteral("--html shapes lines; --stats and --money print CSV"));
    LineOptions options;
    options.interpret = !parser.isSet(noTranslate);
    QString bad;
    if (!setFilters(parser.values(hide).join(','), false, &options, &bad)
        || !setFilters(parser.values(show).join(','), true, &options, &bad))
        return fail("unknown traffic name \"" + bad + "\"; one of poll, coin, bill, card, remote, button, amount");

    MdbExport exporter;
    if (parser.isSet(wireshark)) {
        QString error;
        if (!exporter.open(parser.value(wireshark), &error))
            return fail(error);
    }

    LineBuilder builder(options);
    const bool asHtml = parser.isSet(html);
    const bool exporting = parser.isSet(wireshark);
    const bool tables = parser.isSet(stats) || parser.isSet(money);
    BusInsight insight;
    qint64 badFrames = 0;
    CaptureFile::Sink sink;
    sink.onFrame = [&](qint64 timeUs, const QByteArray &frame) {
        if (tables) // every frame, as the window's figures see them; --mode picks lines only
            insight.addFrame(timeUs, frame);
        if (mode >= 0 && (frame.size() <= BoxFrame::modeOffset || frame.at(BoxFrame::modeOffset) != mode))
            return;
        if (exporting)
            exporter.add(timeUs, frame);
        if (tables)
            return;
        const QString line = builder.line(frame);
        if (line.isNull())
            return;
        const QByteArray text = (asHtml ? line : plainText(line)).toUtf8();
        std::fwrite(text.constData(), 1, size_t(text.size()), stdout);
        std::fputc('\n', stdout);
    };
    sink.onSkip = [&badFrames](const QString &why) {
        ++badFrames;
        std::fprintf(stderr, "vendscope-decode: %s\n", qPrintable(why));
    };

    const CaptureFile::Report report = CaptureFile::read(inputs.first(), sink);
    if (tables && (report.status == CaptureFile::Status::Ok || report.status == CaptureFile::Status::Truncated)) {
        // A raw dump leaves a frame out only when its check byte fails.
        for (qint64 i = 0; report.raw && i < badFrames; ++i)
            insight.addFccError();
        QString csv;
        if (parser.isSet(stats))
            csv += toCsv(insight.statistics());
        if (parser.isSet(stats) && parser.isSet(money))
            csv += QLatin1String("\r\n");
        if (parser.isSet(money))
            csv += toCsv(insight.money());
        const QByteArray text = csv.toUtf8();
        std::fwrite(text.constData(), 1, size_t(text.size()), stdout);
    }
    std::fflush(stdout);
    if (exporting) {
        QString error;
        if (!exporter.close(&error))
            return fail(error);
    }
    if (report.status != CaptureFile::Status::Ok) {
        QString why = report.message;
        if (report.status == CaptureFile::Status::Truncated)
            why += QStringLiteral(" (%1 frames read)").arg(report.frames);
        return fail(inputs.first() + ": " + why);
    }
    if (!report.message.isEmpty())
        std::fprintf(stderr, "vendscope-decode: %s\n", qPrintable(report.message));
    return 0;
}
