// The renderers' window side: read the user's switches, build the line with
// the window-free builders, append it. Nothing else of a line lives here.
#include "app/mainwindow.h"
#include "mdb/mdb.h"
#include "protocols/bustransfer.h"
#include "protocols/iebus.h"
#include "protocols/rs232.h"
#include "protocols/vsi.h"
#include "settings/settings.h"
#include "ui_mainwindow.h"
#include "ui_settings.h"

#include <QCheckBox>
#include <QTextBrowser>

MDB::Filters MainWindow::mdbFilters() const
{
    const auto *form = settings->ui;
    MDB::Filters filters;
    filters.poll = form->checkBoxPoll->isChecked();
    filters.coin = form->checkBoxCoin->isChecked();
    filters.bill = form->checkBoxBill->isChecked();
    filters.card = form->checkBoxCard->isChecked();
    return filters;
}

Iebus::Filters MainWindow::iebusFilters() const
{
    const auto *form = settings->ui;
    Iebus::Filters filters;
    filters.remote = form->checkBoxRemote->isChecked();
    filters.button = form->checkBoxButton->isChecked();
    filters.amount = form->checkBoxAmount->isChecked();
    return filters;
}

void MainWindow::appendLine(const QString &line)
{
    if (!line.isNull())
        ui->textBrowserParsed->append(line);
}

void MDB::packageProcess(const QByteArray &frame)
{
    static quint32 lastTickEnd = 0;
    static int lastCmd = 8888;
    mainWindow->appendLine(renderLine(frame, mainWindow->mdbFilters(), mainWindow->interpret, lastTickEnd, lastCmd));
}

QString MDB::interpretor(const QByteArray &modeBits, const QByteArray &data)
{
    return explain(modeBits, data, mainWindow ? mainWindow->interpret : true);
}

QString Iebus::interpretor(const QByteArray &record)
{
    color = colorOf(record);
    return mainWindow->interpret ? describe(record) : QString();
}

void Iebus::packageProcess(const QByteArray &frame)
{
    static quint32 lastTickEnd = 0;
    mainWindow->appendLine(step(frame, lastTickEnd, mainWindow->iebusFilters(), mainWindow->interpret, &color));
}

void RS232::packageProcess(const QByteArray &frame)
{
    static quint32 lastTickEnd = 0;
    mainWindow->appendLine(plainStep(frame, lastTickEnd));
}

void VSI::packageProcess(const QByteArray &frame)
{
    static quint32 lastTickEnd = 0;
    mainWindow->appendLine(plainStep(frame, lastTickEnd));
}
