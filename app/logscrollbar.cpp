#include "app/logscrollbar.h"

#include <QStyle>
#include <QStyleOptionSlider>

LogScrollBar::LogScrollBar(QWidget *parent)
    : QScrollBar(Qt::Vertical, parent)
{
}

QRect LogScrollBar::handle() const
{
    QStyleOptionSlider option;
    initStyleOption(&option);
    return style()->subControlRect(QStyle::CC_ScrollBar, &option, QStyle::SC_ScrollBarSlider, this);
}

void LogScrollBar::sliderChange(SliderChange change)
{
    if (change != SliderOrientationChange && paintedOnce && handle() == paintedHandle)
        return;
    QScrollBar::sliderChange(change);
}

void LogScrollBar::paintEvent(QPaintEvent *event)
{
    paintedHandle = handle();
    paintedOnce = true;
    QScrollBar::paintEvent(event);
}
