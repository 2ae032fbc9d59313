#include "ui/PinchMark.h"

#include "ui/Brand.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QtMath>

PinchMark::PinchMark(qreal size, const QColor &bracketColor, bool gradientChip, QWidget *parent)
    : QWidget(parent), m_size(size), m_bracketColor(bracketColor), m_gradientChip(gradientChip) {
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void PinchMark::setMarkSize(qreal size) {
    m_size = size;
    updateGeometry();
    update();
}

QSize PinchMark::sizeHint() const { return QSize(qCeil(m_size), qCeil(m_size)); }

void PinchMark::paint(QPainter &painter, const QRectF &bounds, const QColor &bracketColor, bool gradientChip) {
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(bounds.topLeft());
    painter.scale(bounds.width() / grid, bounds.height() / grid);

    const QRectF chip(8, 8, 8, 8);
    QPainterPath chipPath;
    chipPath.addRoundedRect(chip, 2.2, 2.2);
    if (gradientChip) {
        QLinearGradient fill(chip.topLeft(), chip.bottomLeft());
        fill.setColorAt(0, Brand::emberLight());
        fill.setColorAt(1, Brand::emberDeep());
        painter.fillPath(chipPath, fill);
    } else {
        painter.fillPath(chipPath, Brand::ember());
    }

    QPainterPath brackets;
    brackets.moveTo(4, 10);
    brackets.lineTo(4, 7.5);
    brackets.quadTo(4, 4, 7.5, 4);
    brackets.lineTo(10, 4);
    brackets.moveTo(20, 14);
    brackets.lineTo(20, 16.5);
    brackets.quadTo(20, 20, 16.5, 20);
    brackets.lineTo(14, 20);
    painter.strokePath(brackets, QPen(bracketColor, 2.6, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.restore();
}

QImage PinchMark::image(int pixels, const QColor &bracketColor, bool gradientChip) {
    QImage img(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    img.fill(Qt::transparent);
    QPainter p(&img);
    paint(p, QRectF(0, 0, pixels, pixels), bracketColor, gradientChip);
    return img;
}

QIcon PinchMark::icon(const QColor &bracketColor, bool gradientChip) {
    QIcon result;
    for (int px : {16, 22, 24, 32, 48, 64, 128, 256})
        result.addPixmap(QPixmap::fromImage(image(px, bracketColor, gradientChip)));
    return result;
}

void PinchMark::paintEvent(QPaintEvent *) {
    QPainter p(this);
    const qreal side = std::min<qreal>(m_size, std::min(width(), height()));
    paint(p, QRectF((width() - side) / 2, (height() - side) / 2, side, side), m_bracketColor, m_gradientChip);
}
