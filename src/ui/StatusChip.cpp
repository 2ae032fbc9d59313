#include "ui/StatusChip.h"

#include "ui/Brand.h"
#include "ui/Symbols.h"

#include <QPainter>
#include <QPainterPath>

namespace {
constexpr int kPadX = 7;
constexpr int kPadY = 3;
constexpr int kGap = 4;
constexpr qreal kRadius = 4;

// Made once: list delegates paint many chips per frame.
const QFont &chipFont() {
    static const QFont font = [] {
        QFont f = Brand::monoFont(10, QFont::Medium);
        f.setLetterSpacing(QFont::AbsoluteSpacing, 0.3);
        return f;
    }();
    return font;
}

int symbolSize() {
    static const int size = QFontMetrics(Brand::systemFont(8.5, QFont::DemiBold)).height();
    return size;
}
} // namespace

StatusChip::StatusChip(QWidget *parent) : StatusChip(QString(), QString(), Brand::stone(), parent) {}

StatusChip::StatusChip(const QString &text, const QString &symbol, const QColor &tint, QWidget *parent)
    : QWidget(parent), m_text(text), m_symbol(symbol), m_tint(tint) {
    setFont(chipFont());
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void StatusChip::set(const QString &text, const QString &symbol, const QColor &tint) {
    if (text == m_text && symbol == m_symbol && tint == m_tint)
        return;
    m_text = text;
    m_symbol = symbol;
    m_tint = tint;
    updateGeometry();
    update();
}

QSize StatusChip::sizeHint() const { return sizeFor(m_text, m_symbol); }

QSize StatusChip::sizeFor(const QString &text, const QString &symbol) {
    const QFontMetrics metrics(chipFont());
    int width = metrics.horizontalAdvance(text) + 2 * kPadX;
    if (!symbol.isEmpty())
        width += symbolSize() + kGap;
    return QSize(width, metrics.height() + 2 * kPadY);
}

void StatusChip::paintEvent(QPaintEvent *) {
    QPainter p(this);
    paint(p, rect(), m_text, m_symbol, m_tint);
}

void StatusChip::paint(QPainter &p, const QRect &rect, const QString &text, const QString &symbol, const QColor &tint) {
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    QColor outline = tint;
    outline.setAlphaF(0.45f);
    p.setPen(QPen(outline, 1));
    p.setBrush(Qt::NoBrush);
    p.drawRoundedRect(QRectF(rect).adjusted(0.5, 0.5, -0.5, -0.5), kRadius, kRadius);

    int x = rect.left() + kPadX;
    if (!symbol.isEmpty()) {
        const int size = symbolSize();
        p.drawPixmap(x, rect.top() + (rect.height() - size) / 2, Symbols::pixmap(symbol, tint, size));
        x += size + kGap;
    }
    const QFont &font = chipFont();
    p.setPen(tint);
    p.setFont(font);
    const QRect textRect(x, rect.top(), rect.right() - x - kPadX + 2, rect.height());
    p.drawText(textRect, Qt::AlignVCenter | Qt::AlignLeft | Qt::TextSingleLine,
               QFontMetrics(font).elidedText(text, Qt::ElideRight, textRect.width()));
    p.restore();
}
