#pragma once

#include <QColor>
#include <QProxyStyle>

class QAbstractButton;

// The primary-action button look: bold bone label on an ember rounded rectangle that deepens
// while pressed. Applied per button; the fill change is eased over 0.1 s.
class EmberButtonStyle : public QProxyStyle {
    Q_OBJECT
public:
    static constexpr int fillAnimationMs = 100;
    static constexpr qreal cornerRadius = 6;

    explicit EmberButtonStyle(bool compact);

    bool isCompact() const { return m_compact; }
    // Padding around the label: 20 × 9, or 12 × 5 when compact.
    QMargins padding() const;

    // Gives `button` the style, its font and the animated pressed fill.
    static void apply(QAbstractButton *button, bool compact = false);
    // The fill the button is painted with at this moment.
    static QColor currentFill(const QAbstractButton *button);

    QSize sizeFromContents(ContentsType type, const QStyleOption *option, const QSize &contents,
                           const QWidget *widget) const override;
    void drawControl(ControlElement element, const QStyleOption *option, QPainter *painter,
                     const QWidget *widget) const override;
    int pixelMetric(PixelMetric metric, const QStyleOption *option, const QWidget *widget) const override;

private:
    static EmberButtonStyle *instance(bool compact);
    bool m_compact;
};
