#include "ui/ScreenParts.h"

#include "ui/Brand.h"
#include "ui/ElidedLabel.h"
#include "ui/EmberBusyBar.h"
#include "ui/EmberButtonStyle.h"
#include "ui/Symbols.h"

#include <QAction>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QToolButton>
#include <QVariantAnimation>
#include <QVBoxLayout>

namespace {
// The theme has a magnifier but no sparkle: a four-pointed star is added at its upper right.
QPixmap headlineSymbol(const QString &symbol, int size) {
    const bool sparkle = symbol == QLatin1String("sparkle.magnifyingglass");
    QPixmap pm = Symbols::pixmap(sparkle ? QStringLiteral("magnifyingglass") : symbol, Brand::ember(), size);
    if (!sparkle)
        return pm;
    QPainter p(&pm);
    p.setRenderHint(QPainter::Antialiasing);
    const QPointF c(size * 0.84, size * 0.16);
    const qreal r = size * 0.16;
    const qreal w = r * 0.28;
    QPainterPath star;
    star.moveTo(c.x(), c.y() - r);
    star.quadTo(c.x() + w, c.y() - w, c.x() + r, c.y());
    star.quadTo(c.x() + w, c.y() + w, c.x(), c.y() + r);
    star.quadTo(c.x() - w, c.y() + w, c.x() - r, c.y());
    star.quadTo(c.x() - w, c.y() - w, c.x(), c.y() - r);
    p.fillPath(star, Brand::emberLight());
    return pm;
}

class TurningRing : public QWidget {
public:
    TurningRing(int size, qreal pen, qreal inset) : m_pen(pen), m_inset(inset) {
        setFixedSize(size, size);
        m_turn.setStartValue(0.0);
        m_turn.setEndValue(360.0);
        m_turn.setDuration(900);
        m_turn.setLoopCount(-1);
        QObject::connect(&m_turn, &QVariantAnimation::valueChanged, this, [this] { update(); });
    }

protected:
    void showEvent(QShowEvent *) override { m_turn.start(); }
    void hideEvent(QHideEvent *) override { m_turn.stop(); }
    void paintEvent(QPaintEvent *) override {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        const QRectF ring = QRectF(rect()).adjusted(m_inset, m_inset, -m_inset, -m_inset);
        p.setPen(QPen(Brand::hairline(), m_pen));
        p.drawEllipse(ring);
        p.setPen(QPen(Brand::ember(), m_pen, Qt::SolidLine, Qt::RoundCap));
        p.drawArc(ring, int(-m_turn.currentValue().toReal() * 16), 100 * 16);
    }

private:
    qreal m_pen;
    qreal m_inset;
    QVariantAnimation m_turn;
};

QLineEdit *styledField(const QString &symbol, int fontSize, int symbolSize, int minimumHeight, const QString &style) {
    auto *field = new QLineEdit;
    field->setFont(Brand::monoFont(fontSize));
    field->setClearButtonEnabled(true);
    field->setMinimumHeight(minimumHeight);
    field->addAction(Symbols::icon(symbol, Brand::stone(), symbolSize), QLineEdit::LeadingPosition);
    ScreenParts::nameFieldButtons(field, QStringLiteral("Search"));
    field->setStyleSheet(style);
    return field;
}
} // namespace

namespace ScreenParts {

QLabel *label(const QString &text, const QFont &font, const QColor &color) {
    auto *l = new QLabel(text);
    l->setFont(font);
    QPalette p = l->palette();
    p.setColor(QPalette::WindowText, color);
    l->setPalette(p);
    return l;
}

ElidedLabel *elidedLabel(const QString &text, const QFont &font, const QColor &color) {
    auto *l = new ElidedLabel(nullptr, Qt::ElideRight);
    l->setFont(font);
    QPalette p = l->palette();
    p.setColor(QPalette::WindowText, color);
    l->setPalette(p);
    l->setFullText(text);
    return l;
}

QLabel *picture(const QPixmap &pixmap) {
    auto *l = new QLabel;
    l->setPixmap(pixmap);
    l->setAlignment(Qt::AlignCenter);
    return l;
}

QWidget *centredPage(const QString &name, int spacing, std::initializer_list<Part> parts) {
    auto *page = new QWidget;
    page->setObjectName(name);
    auto *column = new QVBoxLayout(page);
    column->setSpacing(spacing);
    column->addStretch(1);
    for (const Part &part : parts)
        column->addWidget(part.widget, 0, part.alignment);
    column->addStretch(1);
    return page;
}

QWidget *turningRing(int size, qreal pen, qreal inset) { return new TurningRing(size, pen, inset); }

void paintCard(QWidget *card, const QColor &border) {
    QPainter p(card);
    p.setRenderHint(QPainter::Antialiasing);
    QPainterPath path;
    path.addRoundedRect(QRectF(card->rect()).adjusted(0.5, 0.5, -0.5, -0.5), 8, 8);
    p.fillPath(path, Brand::surface());
    p.setPen(QPen(border, 1));
    p.drawPath(path);
}

QWidget *divider() {
    auto *line = new QWidget;
    line->setFixedHeight(1);
    line->setAutoFillBackground(true);
    QPalette p = line->palette();
    p.setColor(QPalette::Window, Brand::hairline());
    line->setPalette(p);
    return line;
}

QLineEdit *searchField(const QString &symbol) {
    QLineEdit *field =
        styledField(symbol, 13, 16, 34,
                    QStringLiteral("QLineEdit { background: #16130F; border: 1px solid #2B2620; border-radius: 6px;"
                                   " padding: 0 8px; color: #FAF8F5; }"
                                   "QLineEdit:focus { border-color: #FF4A1F; }"));
    field->setObjectName(QStringLiteral("query"));
    return field;
}

QLineEdit *listField(const QString &symbol, int fontSize, int symbolSize, int minimumHeight) {
    return styledField(symbol, fontSize, symbolSize, minimumHeight,
                       QStringLiteral("QLineEdit { background: #221F1A; border: 1px solid #2B2620; border-radius: 8px;"
                                      " padding: 2px 6px; color: #FAF8F5; }"
                                      "QLineEdit:focus { border-color: #5C554C; }"));
}

QHBoxLayout *barRow(const QString &name, int spacing) {
    auto *bar = new QWidget;
    bar->setObjectName(name);
    auto *row = new QHBoxLayout(bar);
    row->setContentsMargins(16, 12, 16, 12);
    row->setSpacing(spacing);
    return row;
}

SearchBar addSearchBar(QVBoxLayout *layout, const QString &symbol, const QList<QWidget *> &between, QObject *context,
                       const std::function<void()> &run) {
    auto *row = new QHBoxLayout;
    row->setSpacing(10);
    QLineEdit *field = searchField(symbol);
    QObject::connect(field, &QLineEdit::returnPressed, context, run);
    row->addWidget(field, 1);
    for (QWidget *widget : between)
        row->addWidget(widget);
    auto *button = new QPushButton(QStringLiteral("Search"));
    button->setObjectName(QStringLiteral("searchButton"));
    EmberButtonStyle::apply(button);
    QObject::connect(button, &QPushButton::clicked, context, run);
    row->addWidget(button);
    layout->addLayout(row);

    auto *busy = new EmberBusyBar;
    busy->setObjectName(QStringLiteral("busy"));
    busy->setVisible(false);
    layout->addWidget(busy);
    return {field, busy};
}

void nameFieldButtons(QLineEdit *field, const QString &symbolName) {
    for (QToolButton *button : field->findChildren<QToolButton *>()) {
        const QAction *action = button->defaultAction();
        const bool clears = action && action->objectName() == QLatin1String("_q_qlineeditclearaction");
        button->setAccessibleName(clears ? QStringLiteral("Clear") : symbolName);
    }
}

QWidget *messagePage(const QString &symbol, const QString &text, const QString &textName) {
    QLabel *message = label(text, Brand::systemFont(13), Brand::stone());
    message->setObjectName(textName);
    message->setAlignment(Qt::AlignCenter);
    message->setWordWrap(true);
    return centredPage(QString(), 10, {picture(Symbols::pixmap(symbol, Brand::stone(), 30)), message});
}

QWidget *welcomePage(const QString &symbol, const QString &headline, const QString &line) {
    auto *page = new QWidget;
    page->setObjectName(QStringLiteral("welcome"));
    auto *column = new QVBoxLayout(page);
    column->setContentsMargins(40, 0, 40, 0);
    column->setSpacing(12);
    column->addStretch(1);
    column->addWidget(picture(headlineSymbol(symbol, 52)));
    QLabel *title = label(headline, Brand::displayFont(22, QFont::Bold), Brand::bone());
    title->setObjectName(QStringLiteral("headline"));
    title->setAlignment(Qt::AlignCenter);
    title->setWordWrap(true);
    column->addWidget(title);
    QLabel *note = label(line, Brand::systemFont(13), Brand::stone());
    note->setObjectName(QStringLiteral("line"));
    note->setAlignment(Qt::AlignCenter);
    note->setWordWrap(true);
    note->setMaximumWidth(520);
    // Centred by stretches, not by alignment: an aligned label loses its wrapped height.
    auto *centred = new QHBoxLayout;
    centred->addStretch(1);
    centred->addWidget(note, 100);
    centred->addStretch(1);
    column->addLayout(centred);
    column->addStretch(2);
    return page;
}

} // namespace ScreenParts
