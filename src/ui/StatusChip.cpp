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

QFont chipFont() {
    QFont font = Brand::monoFont(10, QFont::Medium);
    font.setLetterSpacing(QFont::AbsoluteSpacing, 0.3);
    return font;
}

int symbolSize() { return QFontMetrics(Brand::systemFont(8.5, QFont::DemiBold)).height(); }
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

QSize StatusChip::sizeHint() const {
    const QFontMetrics metrics(font());
    int width = metrics.horizontalAdvance(m_text) + 2 * kPadX;
    if (!m_symbol.isEmpty())
        width += symbolSize() + kGap;
    return QSize(width, metrics.height() + 2 * kPadY);
}

void StatusChip::paintEvent(QPaintEvent *) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    QColor outline = m_tint;
    outline.setAlphaF(0.45f);
    p.setPen(QPen(outline, 1));
    p.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), kRadius, kRadius);

    int x = kPadX;
    if (!m_symbol.isEmpty()) {
        const int size = symbolSize();
        p.drawPixmap(x, (height() - size) / 2, Symbols::pixmap(m_symbol, m_tint, size));
        x += size + kGap;
    }
    p.setPen(m_tint);
    p.setFont(font());
    const QRect textRect(x, 0, width() - x - kPadX + 1, height());
    p.drawText(textRect, Qt::AlignVCenter | Qt::AlignLeft | Qt::TextSingleLine,
               fontMetrics().elidedText(m_text, Qt::ElideRight, textRect.width()));
}
