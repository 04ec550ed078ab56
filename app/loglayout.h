// The log view's text layout: paragraphs stacked top to bottom, each wrapped
// at the view's width. Qt's general layout re-places every later paragraph
// after any change, so cutting the oldest lines off a long log costs as much
// as the lines left. This one keeps each paragraph's place in a plain array:
// adding at the bottom or cutting at the top costs the paragraphs touched and
// one pass of additions over the array.
//
// After a width or font change the paragraphs are laid out again in slices of
// a few milliseconds, the bottom first and any paragraph about to be painted
// at once, so the window stays responsive with a full view.
#pragma once

#include <QAbstractTextDocumentLayout>
#include <QBasicTimer>
#include <QFont>
#include <QTextBlock>

#include <deque>

class LogLayout : public QAbstractTextDocumentLayout
{
    Q_OBJECT
public:
    explicit LogLayout(QTextDocument *document);

    void draw(QPainter *painter, const PaintContext &context) override;
    int hitTest(const QPointF &point, Qt::HitTestAccuracy accuracy) const override;
    int pageCount() const override { return 1; }
    QSizeF documentSize() const override;
    QRectF frameBoundingRect(QTextFrame *frame) const override;
    QRectF blockBoundingRect(const QTextBlock &block) const override;

    // Whether paragraphs still wait to be laid out at the current width.
    bool layoutPending() const { return staleHigh > staleLow; }

protected:
    void documentChanged(int from, int charsRemoved, int charsAdded) override;
    void timerEvent(QTimerEvent *event) override;

private:
    // A paragraph's place: its top in document coordinates and its height,
    // margins included. Until laid out, the height is a guess.
    struct Slot
    {
        qreal y = 0;
        qreal height = 0;
        bool laid = false;
    };

    qreal layOut(const QTextBlock &block);
    void layOutRange(int first, int last);
    void layOutVisible(qreal top, qreal bottom);
    void restack(int from);
    void markAllStale();
    void layOutStep();
    int slotAt(qreal y) const;
    qreal contentBottom() const;
    qreal lineWidth() const;
    bool sameSetup();
    void reportSize();

    std::deque<Slot> places;
    // Slots in [staleLow, staleHigh) may still wait for a layout.
    int staleLow = 0;
    int staleHigh = 0;
    qreal widest = 0;
    qreal guessHeight = 0;
    QSizeF reportedSize;
    QBasicTimer stepTimer;
    QBasicTimer sizeTimer;

    // What the layouts were made with; a full notice that changes none of it
    // needs no new layout.
    qreal madeWidth = -1;
    qreal madeMargin = -1;
    QFont madeFont;
    QTextOption::WrapMode madeWrap = QTextOption::WrapAtWordBoundaryOrAnywhere;
};
