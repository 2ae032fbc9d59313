#include "ui/EmberButtonStyle.h"

#include "ui/Brand.h"

#include <QAbstractButton>
#include <QEasingCurve>
#include <QPainter>
#include <QPainterPath>
#include <QStyleFactory>
#include <QStyleOptionButton>
#include <QVariantAnimation>

namespace {
const char *const kFillProperty = "emberFill";

QVariantAnimation *fillAnimation(QAbstractButton *button) {
    return button->findChild<QVariantAnimation *>(QStringLiteral("emberFillAnimation"), Qt::FindDirectChildrenOnly);
}

void animateFill(QAbstractButton *button, const QColor &target) {
    QVariantAnimation *animation = fillAnimation(button);
    if (!animation)
        return;
    animation->stop();
    animation->setStartValue(EmberButtonStyle::currentFill(button));
    animation->setEndValue(target);
    animation->start();
}
} // namespace

EmberButtonStyle::EmberButtonStyle(bool compact)
    : QProxyStyle(QStyleFactory::create(QStringLiteral("Fusion"))), m_compact(compact) {}

QMargins EmberButtonStyle::padding() const { return m_compact ? QMargins(12, 5, 12, 5) : QMargins(20, 9, 20, 9); }

EmberButtonStyle *EmberButtonStyle::instance(bool compact) {
    // Shared by every button for the life of the process; buttons never own their style.
    static EmberButtonStyle *regular = nullptr;
    static EmberButtonStyle *small = nullptr;
    EmberButtonStyle *&slot = compact ? small : regular;
    if (!slot)
        slot = new EmberButtonStyle(compact);
    return slot;
}

void EmberButtonStyle::apply(QAbstractButton *button, bool compact) {
    button->setStyle(instance(compact));
    button->setFont(Brand::displayFont(compact ? 12.5 : 14, QFont::Bold));
    button->setCursor(Qt::PointingHandCursor);
    button->setAttribute(Qt::WA_Hover);
    button->setProperty(kFillProperty, Brand::ember());
    if (fillAnimation(button))
        return;
    auto *animation = new QVariantAnimation(button);
    animation->setObjectName(QStringLiteral("emberFillAnimation"));
    animation->setDuration(fillAnimationMs);
    animation->setEasingCurve(QEasingCurve::OutCubic);
    QObject::connect(animation, &QVariantAnimation::valueChanged, button, [button](const QVariant &value) {
        button->setProperty(kFillProperty, value);
        button->update();
    });
    QObject::connect(button, &QAbstractButton::pressed, button, [button] { animateFill(button, Brand::emberDeep()); });
    QObject::connect(button, &QAbstractButton::released, button, [button] { animateFill(button, Brand::ember()); });
}

QColor EmberButtonStyle::currentFill(const QAbstractButton *button) {
    const QColor fill = button->property(kFillProperty).value<QColor>();
    return fill.isValid() ? fill : Brand::ember();
}

QSize EmberButtonStyle::sizeFromContents(ContentsType type, const QStyleOption *option, const QSize &contents,
                                         const QWidget *widget) const {
    if (type != CT_PushButton)
        return QProxyStyle::sizeFromContents(type, option, contents, widget);
    const QMargins pad = padding();
    return QSize(contents.width() + pad.left() + pad.right(), contents.height() + pad.top() + pad.bottom());
}

int EmberButtonStyle::pixelMetric(PixelMetric metric, const QStyleOption *option, const QWidget *widget) const {
    if (metric == PM_ButtonShiftHorizontal || metric == PM_ButtonShiftVertical)
        return 0;
    if (metric == PM_ButtonIconSize)
        return m_compact ? 13 : 15;
    return QProxyStyle::pixelMetric(metric, option, widget);
}

void EmberButtonStyle::drawControl(ControlElement element, const QStyleOption *option, QPainter *painter,
                                   const QWidget *widget) const {
    const auto *buttonOption = qstyleoption_cast<const QStyleOptionButton *>(option);
    if (element != CE_PushButton || !buttonOption) {
        QProxyStyle::drawControl(element, option, painter, widget);
        return;
    }
    const auto *button = qobject_cast<const QAbstractButton *>(widget);
    const bool enabled = option->state & State_Enabled;
    QColor fill = button ? currentFill(button) : Brand::ember();
    QColor text = Brand::bone();
    if (!enabled) {
        // Dimmed, still warm: the accent over the dark window at low strength.
        fill = Brand::ember();
        fill.setAlphaF(0.35f);
        text.setAlphaF(0.55f);
    }

    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    QPainterPath shape;
    shape.addRoundedRect(QRectF(option->rect), cornerRadius, cornerRadius);
    painter->fillPath(shape, fill);
    if ((option->state & State_HasFocus) && (option->state & State_KeyboardFocusChange)) {
        painter->setPen(QPen(Brand::emberLight(), 1.5));
        painter->drawPath(shape);
    }

    const QRect content = option->rect.marginsRemoved(padding());
    const QFontMetrics metrics(option->fontMetrics);
    const QSize iconSize = buttonOption->icon.isNull() ? QSize() : buttonOption->iconSize;
    const int spacing = iconSize.isValid() && !buttonOption->text.isEmpty() ? 6 : 0;
    const int textWidth = metrics.horizontalAdvance(buttonOption->text);
    const int total = (iconSize.isValid() ? iconSize.width() : 0) + spacing + textWidth;
    int x = content.left() + std::max(0, (content.width() - total) / 2);
    if (iconSize.isValid()) {
        const QPixmap pm = buttonOption->icon.pixmap(iconSize, painter->device()->devicePixelRatioF(),
                                                     enabled ? QIcon::Normal : QIcon::Disabled);
        painter->drawPixmap(QPoint(x, content.center().y() - iconSize.height() / 2 + 1), pm);
        x += iconSize.width() + spacing;
    }
    painter->setPen(text);
    painter->setFont(widget ? widget->font() : painter->font());
    const QString label = metrics.elidedText(buttonOption->text, Qt::ElideRight, content.right() - x + 1);
    painter->drawText(QRect(x, option->rect.top(), content.right() - x + 1, option->rect.height()),
                      Qt::AlignVCenter | Qt::AlignLeft | Qt::TextShowMnemonic, label);
    painter->restore();
}
