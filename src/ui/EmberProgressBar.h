#pragma once

#include <QWidget>

class QVariantAnimation;

// A 3-pixel determinate bar: hairline track, ember fill that glides to each new value over
// 0.25 s (steps of a few pixels jump). An empty bar still shows a 2-pixel sliver so a started job never looks idle.
class EmberProgressBar : public QWidget {
    Q_OBJECT
public:
    static constexpr int barHeight = 3;
    static constexpr qreal minimumBarWidth = 2;
    static constexpr int animationMs = 250;
    static constexpr double glideMinPixels = 6; // smaller steps jump

    explicit EmberProgressBar(QWidget *parent = nullptr);

    double value() const { return m_value; }
    void setValue(double value);
    // Jumps to `value` without the glide (a freshly shown row).
    void resetValue(double value);

    // Width of the filled part for a bar `available` pixels wide at fraction `value`.
    static qreal fillWidth(double value, qreal available);
    // Paints the rounded hairline track across `bar` and the ember part of it `length` wide from
    // `left`; the busy bar paints with it too, so both read as one control.
    static void paint(QWidget *bar, qreal left, qreal length);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    double m_value = 0;
    double m_shown = 0; // the fraction currently drawn, moving towards m_value
    QVariantAnimation *m_animation;
};
