#pragma once

#include <QColor>
#include <QIcon>
#include <QWidget>

class QPainter;

// The application's mark: an ember chip pinched between two rounded brackets, drawn from a
// 24-unit grid so it stays sharp at any size.
class PinchMark : public QWidget {
    Q_OBJECT
public:
    static constexpr qreal grid = 24;

    PinchMark(qreal size, const QColor &bracketColor, bool gradientChip, QWidget *parent = nullptr);

    qreal markSize() const { return m_size; }
    void setMarkSize(qreal size);

    // Paints the mark into the square `bounds`.
    static void paint(QPainter &painter, const QRectF &bounds, const QColor &bracketColor, bool gradientChip);
    // The mark rendered into an image `pixels` wide (transparent background).
    static QImage image(int pixels, const QColor &bracketColor, bool gradientChip);
    // Window and tray icon in the usual sizes.
    static QIcon icon(const QColor &bracketColor, bool gradientChip);

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    qreal m_size;
    QColor m_bracketColor;
    bool m_gradientChip;
};
