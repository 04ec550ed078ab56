// The Capture menu: the live capture file, opening a capture into the view,
// and the MDB export for Wireshark.
#include "app/mainwindow.h"
#include "capture/capturefile.h"
#include "capture/recorder.h"
#include "capture/wireshark.h"
#include "insight/businsight.h"
#include "protocols/linebuilder.h"
#include "ui_mainwindow.h"

#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QStatusBar>
#include <QTextBrowser>
#include <QTextCursor>

namespace {
const char *captureFilter = "Captures (*.pcapng);;Serial dumps (*.bin *.raw *.log *.dump);;All Files (*)";
} // namespace

void MainWindow::startCapture()
{
    shownCapture.clear();
    viewTrimmed = false;
    insight->clear();
    showInsightOf(nullptr);
    recorder->start();
}

void MainWindow::captureFailed(const QString &reason)
{
    statusBar()->showMessage("Capture stopped: " + reason);
}

bool MainWindow::showCapture(const QString &path)
{
    LineOptions options;
    options.interpret = interpret;
    options.mdb = mdbFilters();
    options.iebus = iebusFilters();
    LineBuilder builder(options);
    // Only the newest lines the view may hold are kept; a night's capture
    // would not fit.
    const int limit = viewLineLimit();
    QStringList lines;
    qint64 dropped = 0;
    auto figures = std::make_unique<BusInsight>();
    CaptureFile::Sink sink;
    sink.onFrame = [&](qint64 timeUs, const QByteArray &frame) {
        figures->addFrame(timeUs, frame);
        QString line = builder.line(frame);
        if (line.isNull())
            return;
        lines.append(std::move(line));
        if (lines.size() > limit + limit / 10) {
            dropped += lines.size() - limit;
            lines.erase(lines.begin(), lines.end() - limit);
        }
    };
    const CaptureFile::Report report = CaptureFile::read(path, sink);
    const bool usable = report.status == CaptureFile::Status::Ok || report.status == CaptureFile::Status::Truncated;
    if (usable) {
        // What the view held is replaced only by something readable.
        QTextBrowser *view = ui->textBrowserParsed;
        view->clear();
        QTextCursor batch(view->document());
        batch.beginEditBlock();
        for (const QString &line : std::as_const(lines))
            view->append(line);
        batch.endEditBlock();
        shownCapture = path;
        viewTrimmed = false;
        showInsightOf(figures.release());
        QString note = QStringLiteral("%1: %2 frames").arg(path).arg(report.frames);
        if (report.skipped)
            note += QStringLiteral(", %1 bad frames left out").arg(report.skipped);
        if (dropped)
            note += QStringLiteral("; the view holds the newest lines, %1 older ones are not shown").arg(dropped);
        statusBar()->showMessage(note);
        trimView();
    }
    if (report.status == CaptureFile::Status::Ok)
        return true;
    QString text = report.message;
    if (report.status == CaptureFile::Status::Truncated)
        text = QStringLiteral("The capture is damaged: %1.\n%2 frames were read and are shown.").arg(report.message).arg(report.frames);
    QMessageBox::warning(this, QStringLiteral("Open Capture"), path + "\n\n" + text);
    return false;
}

bool MainWindow::saveCapture(const QString &path, QString *error)
{
    const QString live = recorder->currentFile();
    if (live.isEmpty()) {
        *error = QStringLiteral("Nothing has been captured yet: recording starts at Connect.");
        return false;
    }
    recorder->flush();
    if (QFile::exists(path) && !QFile::remove(path)) {
        *error = QStringLiteral("Cannot replace %1.").arg(path);
        return false;
    }
    QFile source(live);
    if (!source.copy(path)) {
        *error = QStringLiteral("Cannot copy the capture to %1: %2").arg(path, source.errorString());
        return false;
    }
    return true;
}

bool MainWindow::exportMdb(const QString &path, QString *error)
{
    QString source = shownCapture;
    if (source.isEmpty()) {
        source = recorder->currentFile();
        recorder->flush();
    }
    if (source.isEmpty()) {
        *error = QStringLiteral("Nothing has been captured yet: recording starts at Connect.");
        return false;
    }
    MdbExport out;
    if (!out.open(path, error))
        return false;
    CaptureFile::Sink sink;
    sink.onFrame = [&](qint64 timeUs, const QByteArray &frame) { out.add(timeUs, frame); };
    const CaptureFile::Report report = CaptureFile::read(source, sink);
    if (!out.close(error))
        return false;
    if (report.status != CaptureFile::Status::Ok && report.status != CaptureFile::Status::Truncated) {
        *error = report.message;
        return false;
    }
    statusBar()->showMessage(QStringLiteral("%1 MDB transfers written to %2").arg(out.packets()).arg(path));
    return true;
}

void MainWindow::openCaptureFile()
{
    const QString path = QFileDialog::getOpenFileName(this, QStringLiteral("Open Capture"),
                                                      recorder->currentFile(), captureFilter);
    if (!path.isEmpty())
        showCapture(path);
}

QString MainWindow::askSavePath(const QString &caption, const QString &proposed, const QString &filter,
                                const QLatin1String &suffix)
{
    QString path = QFileDialog::getSaveFileName(this, caption, proposed, filter);
    if (!path.isEmpty() && !path.endsWith(suffix, Qt::CaseInsensitive))
        path += suffix;
    return path;
}

void MainWindow::saveCaptureFile()
{
    const QString live = QFileInfo(recorder->currentFile()).fileName();
    const QString path = askSavePath(QStringLiteral("Save Capture As"), logPath + "/" + live,
                                     QStringLiteral("Captures (*.pcapng)"), QLatin1String(".pcapng"));
    QString error;
    if (!path.isEmpty() && !saveCapture(path, &error))
        QMessageBox::warning(this, QStringLiteral("Save Capture"), error);
}

void MainWindow::exportMdbFile()
{
    const QString source = shownCapture.isEmpty() ? recorder->currentFile() : shownCapture;
    const QString path = askSavePath(QStringLiteral("Export MDB for Wireshark"),
                                     logPath + "/mdb_" + QFileInfo(source).completeBaseName() + ".pcap",
                                     QStringLiteral("Wireshark pcap (*.pcap)"), QLatin1String(".pcap"));
    QString error;
    if (!path.isEmpty() && !exportMdb(path, &error))
        QMessageBox::warning(this, QStringLiteral("Export MDB"), error);
}
