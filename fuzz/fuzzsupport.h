#ifndef FUZZSUPPORT_H
#define FUZZSUPPORT_H

// Shared by the fuzz targets.

#include "app/mainwindow.h"
#include "app/paths.h"
#include "link/frame.h"
#include "settings/settings.h"
#include "ui_mainwindow.h"
#include "ui_settings.h"
#include "update/fwupgrade.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QSettings>
#include <QTextBrowser>
#include <QTimer>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace fuzz {

// Under libFuzzer nobody else makes the application object.
inline void ensureApp()
{
    if (QCoreApplication::instance())
        return;
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static int argc = 1;
    static char name[] = "fuzz";
    static char *argv[] = {name, nullptr};
    static QApplication app(argc, argv);
    // The parsers log every bad frame; the fuzzer should measure parsing.
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
}

// Reads the input front to back; past the end every read gives zeros.
class Input
{
public:
    Input(const uint8_t *data, size_t size) : p(data), left(size) {}

    bool atEnd() const { return left == 0; }
    size_t remaining() const { return left; }

    unsigned char byte()
    {
        if (!left)
            return 0;
        --left;
        return *p++;
    }

    quint16 word()
    {
        const unsigned char high = byte();
        return quint16((high << 8) | byte());
    }

    QByteArray take(size_t n)
    {
        n = n < left ? n : left;
        QByteArray out(reinterpret_cast<const char *>(p), qsizetype(n));
        p += n;
        left -= n;
        return out;
    }

    QByteArray rest() { return take(left); }

    // A count byte k (0 to 15), k chunk sizes (0 means 256), then the stream,
    // cut with those sizes in turn: real frames stay contiguous in the input
    // while the fuzzer moves the chunk boundaries.
    QList<QByteArray> chunks()
    {
        const int k = byte() % 16;
        QList<int> sizes;
        for (int i = 0; i < k; ++i) {
            const int s = byte();
            sizes.append(s ? s : 256);
        }
        const QByteArray stream = rest();
        QList<QByteArray> out;
        if (sizes.isEmpty()) {
            out.append(stream);
            return out;
        }
        qsizetype at = 0;
        for (int i = 0; at < stream.size(); ++i) {
            const int s = sizes.at(i % sizes.size());
            out.append(stream.mid(at, s));
            at += s;
        }
        return out;
    }

private:
    const uint8_t *p;
    size_t left;
};

inline MainWindow *&windowSlot()
{
    static MainWindow *w = nullptr;
    return w;
}

// The window must go before the application object.
inline void releaseWindow()
{
    delete windowSlot();
    windowSlot() = nullptr;
}

// One main window for the whole run. The update check stays off and any
// server address is local, so no input can make it reach the network.
inline MainWindow *window()
{
    MainWindow *&w = windowSlot();
    if (w)
        return w;
    ensureApp();
    {
        QSettings ini(userPath(Place::Settings), QSettings::IniFormat);
        ini.clear();
        ini.setValue("Update", false);
        ini.setValue("updateServer", "http://127.0.0.1:9");
    }
    w = new MainWindow;
    // Registered after the static application object, so it runs first.
    std::atexit(releaseWindow);
    return w;
}

// The interpret mode, the interpret switch and every traffic check box from
// two bytes.
inline void configure(MainWindow *w, unsigned char mode, unsigned char flags)
{
    w->settings->comboBoxInterpret->setCurrentIndex(mode % 9);
    w->interpret = flags & 0x01;
    auto *form = w->settings->ui;
    form->checkBoxPoll->setChecked(flags & 0x02);
    form->checkBoxCoin->setChecked(flags & 0x04);
    form->checkBoxBill->setChecked(flags & 0x08);
    form->checkBoxCard->setChecked(flags & 0x10);
    form->checkBoxRemote->setChecked(flags & 0x20);
    form->checkBoxButton->setChecked(flags & 0x40);
    form->checkBoxAmount->setChecked(flags & 0x80);
}

// Leaves no timer that could touch the port if an event loop runs later,
// and a log view that does not grow run by run.
inline void settle(MainWindow *w)
{
    w->watchdogTimer->stop();
    w->reconnectTimer->stop();
    w->fwUpgrade->stallTimer->stop();
    w->fwUpgrade->responseTimer.stop();
    w->ui->textBrowserParsed->clear();
}

// A bus-data frame around the given bus bytes; the FCC is right.
inline QByteArray busFrame(quint32 start, quint32 end, unsigned char direction, unsigned char mode,
                           const QByteArray &bus)
{
    QByteArray body;
    for (quint32 t : {start, end})
        for (int shift = 24; shift >= 0; shift -= 8)
            body.append(char((t >> shift) & 0xFF));
    body.append(char(direction));
    body.append(char(mode));
    body.append(bus);
    return BoxFrame::build(BoxFrame::KindBusData, body);
}

} // namespace fuzz

#endif // FUZZSUPPORT_H
