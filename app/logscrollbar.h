#pragma once

#include <QRect>
#include <QScrollBar>

// The log view's vertical scroll bar. While lines pour in its range changes
// with every read, which mostly does not move the handle by a pixel; the
// Fusion style's gradients, painted again each time, cost more than the lines.
// It is painted again only when its handle moves or changes size. (A style
// that greys an arrow at either end shows it as of that paint: at the end,
// while the view follows new lines.)
class LogScrollBar : public QScrollBar
{
public:
    explicit LogScrollBar(QWidget *parent = nullptr);

protected:
    void sliderChange(SliderChange change) override;
    void paintEvent(QPaintEvent *event) override;

private:
    QRect handle() const;

    QRect paintedHandle;
    bool paintedOnce = false;
};
