#include "app/loglayout.h"

#include <QElapsedTimer>
#include <QFontMetricsF>
#include <QPainter>
#include <QTextDocument>
#include <QTextFrame>
#include <QTextLayout>
#include <QTimerEvent>

#include <algorithm>

namespace {

// More new paragraphs than this in one change (a loaded log, say) get a
// guessed height and are laid out in slices like after a resize.
constexpr int eagerParagraphs = 2000;
constexpr qint64 sliceNs = 8000000;
// The width of a line that never wraps.
constexpr qreal unwrappedWidth = 1e6;

} // namespace

LogLayout::LogLayout(QTextDocument *document) : QAbstractTextDocumentLayout(document)
{
    sameSetup();
}

qreal LogLayout::lineWidth() const
{
    const qreal page = document()->pageSize().width();
    return page > 0 ? qMax<qreal>(0, page - 2 * document()->documentMargin()) : -1;
}

// Records what layouts are made with; false if any of it changed.
bool LogLayout::sameSetup()
{
    QTextDocument *doc = document();
    const QTextOption option = doc->defaultTextOption();
    const bool same = madeWidth == lineWidth() && madeMargin == doc->documentMargin() && madeFont == doc->defaultFont()
                      && madeWrap == option.wrapMode();
    madeWidth = lineWidth();
    madeMargin = doc->documentMargin();
    madeFont = doc->defaultFont();
    madeWrap = option.wrapMode();
    guessHeight = QFontMetricsF(madeFont).lineSpacing();
    return same;
}

// Lays one paragraph out at the current width, lines placed from the top of
// its slot; returns the slot's height.
qreal LogLayout::layOut(const QTextBlock &block)
{
    QTextLayout *layout = block.layout();
    const qreal margin = document()->documentMargin();
    layout->setPosition(QPointF(margin, 0));
    if (!block.isVisible()) {
        layout->clearLayout();
        return 0;
    }
    const QTextBlockFormat format = block.blockFormat();
    const qreal width = lineWidth();
    QTextOption option = document()->defaultTextOption();
    option.setTextDirection(block.textDirection());
    option.setTabs(format.tabPositions());
    if (format.hasProperty(QTextFormat::BlockAlignment))
        option.setAlignment(format.alignment());
    if (width < 0 || format.nonBreakableLines())
        option.setWrapMode(QTextOption::ManualWrap);
    layout->setTextOption(option);

    const qreal left = format.leftMargin() + format.indent() * document()->indentWidth();
    const qreal room = width < 0 ? unwrappedWidth : qMax<qreal>(0, width - left - format.rightMargin());
    qreal y = format.topMargin();
    qreal indent = format.textIndent();
    layout->beginLayout();
    for (QTextLine line = layout->createLine(); line.isValid(); line = layout->createLine()) {
        line.setLeadingIncluded(true);
        line.setLineWidth(qMax<qreal>(0, room - indent));
        line.setPosition(QPointF(left + indent, y));
        y += format.lineHeight(line.height(), 1);
        widest = qMax(widest, left + indent + line.naturalTextWidth() + format.rightMargin());
        indent = 0;
    }
    layout->endLayout();
    return y + format.bottomMargin();
}

void LogLayout::layOutRange(int first, int last)
{
    QTextBlock block = document()->findBlockByNumber(first);
    for (int i = first; i <= last && block.isValid(); ++i, block = block.next()) {
        if (!places[size_t(i)].laid) {
            places[size_t(i)].height = layOut(block);
            places[size_t(i)].laid = true;
        }
    }
}

// Slots take their places one below the other from `from` on.
void LogLayout::restack(int from)
{
    qreal y = from > 0 ? places[size_t(from - 1)].y + places[size_t(from - 1)].height : document()->documentMargin();
    for (auto it = places.begin() + from; it != places.end(); ++it) {
        it->y = y;
        y += it->height;
    }
}

qreal LogLayout::contentBottom() const
{
    return places.empty() ? document()->documentMargin() : places.back().y + places.back().height;
}

// The slot that holds height y, the first or last one beyond the ends.
int LogLayout::slotAt(qreal y) const
{
    const auto above = std::upper_bound(places.begin(), places.end(), y, [](qreal v, const Slot &s) { return v < s.y; });
    return qMax(0, int(above - places.begin()) - 1);
}

void LogLayout::markAllStale()
{
    for (Slot &slot : places)
        slot.laid = false;
    staleLow = 0;
    staleHigh = int(places.size());
    if (layoutPending())
        stepTimer.start(0, this);
}

void LogLayout::documentChanged(int from, int charsRemoved, int charsAdded)
{
    QTextDocument *doc = document();
    const int count = doc->blockCount();
    const int oldCount = int(places.size());
    const bool setupChanged = !sameSetup();

    // The whole document announced with nothing removed: a new width, font
    // or margin, not new text.
    if (from == 0 && charsRemoved == 0 && charsAdded == doc->characterCount() && count == oldCount) {
        if (setupChanged) {
            widest = 0;
            markAllStale();
            restack(0);
            reportSize();
            emit update();
        }
        return;
    }

    // The changed paragraphs are [first, last] now and [first, oldLast] before.
    const int end = qBound(0, from + charsAdded, doc->characterCount() - 1);
    const int first = doc->findBlock(qBound(0, from, doc->characterCount() - 1)).blockNumber();
    const int last = doc->findBlock(end).blockNumber();
    const int oldLast = last + oldCount - count;
    if (first < 0 || last < first || oldLast < first - 1 || oldLast >= oldCount) {
        places.assign(size_t(count), Slot{0, guessHeight, false});
        markAllStale();
        restack(0);
        reportSize();
        emit update();
        return;
    }
    places.erase(places.begin() + first, places.begin() + oldLast + 1);
    places.insert(places.begin() + first, size_t(last - first) + 1, Slot{0, guessHeight, false});
    // The pending range follows the paragraphs it held; the new ones are laid
    // out now, but for the top of a large change.
    const auto moved = [&](int i) { return i > oldLast ? i + last - oldLast : qMin(i, first); };
    staleLow = moved(staleLow);
    staleHigh = moved(staleHigh);
    const int eager = qMax(first, last - eagerParagraphs + 1);
    layOutRange(eager, last);
    if (eager > first) {
        staleLow = layoutPending() ? qMin(staleLow, first) : first;
        staleHigh = qMax(staleHigh, eager);
        stepTimer.start(0, this);
    }
    if (setupChanged)
        markAllStale();
    restack(first);
    reportSize();
    emit update(QRectF(0, places[size_t(first)].y, 1e9, 1e9));
}

// Bottom first: that is where a following view looks, and heights that change
// there move nothing above.
void LogLayout::layOutStep()
{
    QElapsedTimer clock;
    clock.start();
    int i = staleHigh - 1;
    int lowest = staleHigh;
    QTextBlock block = document()->findBlockByNumber(i);
    for (; i >= staleLow && block.isValid() && clock.nsecsElapsed() < sliceNs; --i, block = block.previous()) {
        Slot &slot = places[size_t(i)];
        if (!slot.laid) {
            slot.height = layOut(block);
            slot.laid = true;
            lowest = i;
        }
    }
    staleHigh = block.isValid() ? i + 1 : staleLow;
    if (lowest < int(places.size()))
        restack(lowest);
    if (layoutPending())
        stepTimer.start(0, this);
    else
        staleLow = staleHigh = 0;
    reportSize();
    emit update();
}

// Paragraphs about to be painted or hit are laid out at once; their new
// heights can pull more into the area, hence the few rounds.
void LogLayout::layOutVisible(qreal top, qreal bottom)
{
    if (!layoutPending() || places.empty())
        return;
    for (int round = 0; round < 4; ++round) {
        const int a = slotAt(top);
        const int b = slotAt(bottom);
        const auto waiting = [](const Slot &s) { return !s.laid; };
        if (std::none_of(places.begin() + a, places.begin() + b + 1, waiting))
            return;
        layOutRange(a, b);
        restack(a);
        sizeTimer.start(0, this);
    }
}

void LogLayout::timerEvent(QTimerEvent *event)
{
    if (event->timerId() == stepTimer.timerId()) {
        stepTimer.stop();
        if (layoutPending())
            layOutStep();
    } else if (event->timerId() == sizeTimer.timerId()) {
        sizeTimer.stop();
        reportSize();
    } else {
        QAbstractTextDocumentLayout::timerEvent(event);
    }
}

void LogLayout::reportSize()
{
    const QSizeF size = documentSize();
    if (size != reportedSize) {
        reportedSize = size;
        emit documentSizeChanged(size);
    }
}

QSizeF LogLayout::documentSize() const
{
    const qreal margin = document()->documentMargin();
    const qreal page = document()->pageSize().width();
    return {page > 0 ? page : widest + 2 * margin, contentBottom() + margin};
}

QRectF LogLayout::frameBoundingRect(QTextFrame *frame) const
{
    return frame == document()->rootFrame() ? QRectF(QPointF(0, 0), documentSize()) : QRectF();
}

QRectF LogLayout::blockBoundingRect(const QTextBlock &block) const
{
    const int i = block.isValid() && block.document() == document() ? block.blockNumber() : -1;
    if (i < 0 || i >= int(places.size()))
        return {};
    if (!places[size_t(i)].laid) {
        auto *self = const_cast<LogLayout *>(this);
        self->layOutRange(i, i);
        self->restack(i);
        self->sizeTimer.start(0, self);
    }
    const Slot &slot = places[size_t(i)];
    const qreal width = lineWidth();
    return {document()->documentMargin(), slot.y, width < 0 ? widest : width, slot.height};
}

// As Qt's layout answers: above a paragraph's text is its start, below it its
// end, and on a line the nearest cursor place; an exact hit must be on text.
int LogLayout::hitTest(const QPointF &point, Qt::HitTestAccuracy accuracy) const
{
    if (places.empty())
        return -1;
    const bool exact = accuracy == Qt::ExactHit;
    const_cast<LogLayout *>(this)->layOutVisible(point.y(), point.y());
    const int i = slotAt(point.y());
    const QTextBlock block = document()->findBlockByNumber(i);
    const QTextLayout *layout = block.layout();
    const QPointF local = point - QPointF(layout->position().x(), places[size_t(i)].y);
    const int last = document()->characterCount() - 1;
    if (layout->lineCount() == 0 || local.y() < layout->lineAt(0).y())
        return exact ? -1 : qMin(block.position(), last);
    const QTextLine bottom = layout->lineAt(layout->lineCount() - 1);
    if (local.y() > bottom.y() + bottom.height())
        return exact ? -1 : qMin(block.position() + block.length(), last);
    int offset = 0;
    bool onText = false;
    for (int n = 0; n < layout->lineCount(); ++n) {
        const QTextLine line = layout->lineAt(n);
        const QRectF rect = line.naturalTextRect();
        if (rect.bottom() <= local.y()) {
            offset = qMax(offset, line.textStart() + line.textLength());
        } else if (rect.top() <= local.y()) {
            onText = rect.left() <= local.x() && local.x() <= rect.right();
            offset = line.xToCursor(local.x(), exact ? QTextLine::CursorOnCharacter : QTextLine::CursorBetweenCharacters);
            break;
        }
    }
    if (exact && !onText)
        return -1;
    return qBound(0, block.position() + offset, last);
}

void LogLayout::draw(QPainter *painter, const PaintContext &context)
{
    if (places.empty())
        return;
    const QRectF clip = context.clip.isValid() ? context.clip : QRectF(0, 0, documentSize().width(), contentBottom());
    layOutVisible(clip.top(), clip.bottom());
    const int first = slotAt(clip.top());
    const int last = slotAt(clip.bottom());
    const QVariant cursorWidth = property("cursorWidth");
    QTextBlock block = document()->findBlockByNumber(first);
    for (int i = first; i <= last && block.isValid(); ++i, block = block.next()) {
        const Slot &slot = places[size_t(i)];
        if (!block.isVisible() || !slot.laid)
            continue;
        const QPointF offset(0, slot.y);
        QTextLayout *layout = block.layout();
        const QBrush background = block.blockFormat().background();
        if (background.style() != Qt::NoBrush)
            painter->fillRect(QRectF(layout->position().x(), slot.y, documentSize().width(), slot.height), background);

        const int start = block.position();
        const int length = block.length();
        QList<QTextLayout::FormatRange> selections;
        for (const Selection &selection : context.selections) {
            const int from = qMax(selection.cursor.selectionStart(), start) - start;
            const int to = qMin(selection.cursor.selectionEnd(), start + length) - start;
            if (to > from)
                selections.append({from, to - from, selection.format});
        }
        painter->setPen(context.palette.color(QPalette::Text));
        layout->draw(painter, offset, selections, clip);
        if (context.cursorPosition >= start && context.cursorPosition < start + length)
            layout->drawCursor(painter, offset, context.cursorPosition - start,
                               cursorWidth.isValid() ? cursorWidth.toInt() : 1);
    }
}
