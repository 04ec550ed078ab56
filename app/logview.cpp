// The log view's bound: older lines leave it in chunks, and a user who has
// scrolled up to read keeps their place while lines come and go.
#include "app/mainwindow.h"
#include "capture/recorder.h"
#include "settings/settings.h"
#include "ui_mainwindow.h"

#include <QAbstractTextDocumentLayout>
#include <QScrollBar>
#include <QSpinBox>
#include <QStatusBar>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTextCursor>
#include <QTextDocument>
#include <QTimer>

int MainWindow::viewLineLimit() const
{
    return settings->spinBoxViewLines->value();
}

namespace {

// The number of leading blocks that lie wholly above height y.
int blocksAbove(QTextDocument *doc, qreal y)
{
    QAbstractTextDocumentLayout *layout = doc->documentLayout();
    int low = 0;
    int high = doc->blockCount() - 1;
    while (low < high) {
        const int mid = (low + high) / 2;
        if (layout->blockBoundingRect(doc->findBlockByNumber(mid)).bottom() <= y)
            low = mid + 1;
        else
            high = mid;
    }
    return low;
}

} // namespace

void MainWindow::trimView()
{
    QTextDocument *doc = ui->textBrowserParsed->document();
    const int limit = viewLineLimit();
    const int blocks = doc->blockCount();
    // A tenth more than needed each time, so cuts are rare.
    int remove = blocks > limit ? blocks - limit + limit / 10 : 0;
    const qreal height = doc->documentLayout()->documentSize().height();
    if (height > viewHeightLimit)
        remove = qMax(remove, blocksAbove(doc, height - viewHeightLimit * 0.9));
    remove = qMin(remove, blocks - 1);
    if (remove > 0) {
        const QTextBlock first = doc->findBlockByNumber(remove);
        QAbstractTextDocumentLayout *layout = doc->documentLayout();
        const qreal removedHeight = layout->blockBoundingRect(first).top() - layout->blockBoundingRect(doc->firstBlock()).top();
        QTextCursor cut(doc);
        cut.setPosition(first.position(), QTextCursor::KeepAnchor);
        cut.removeSelectedText();
        if (!followBottom) {
            QScrollBar *bar = ui->textBrowserParsed->verticalScrollBar();
            bar->setValue(bar->value() - qRound(removedHeight));
        }
        if (!viewTrimmed) {
            viewTrimmed = true;
            const QString whole = shownCapture.isEmpty() ? recorder->currentFile() : shownCapture;
            statusBar()->showMessage("Older lines left the view; all of them are in " + whole
                                     + QStringLiteral(" (Capture → Open Capture…)"));
        }
    }
    if (followBottom && !followTimer->isActive())
        followTimer->start();
}

void MainWindow::followTick()
{
    QScrollBar *bar = ui->textBrowserParsed->verticalScrollBar();
    if (followBottom && bar->value() != bar->maximum())
        bar->setValue(bar->maximum());
}
