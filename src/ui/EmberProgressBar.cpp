#include "ui/EmberProgressBar.h"

#include "ui/Brand.h"

#include <QPainter>
#include <QPainterPath>
#include <QVariantAnimation>

#include <algorithm>
#include <cmath>

namespace {
double clamped(double value) { return std::isnan(value) ? 0.0 : std::clamp(value, 0.0, 1.0); }
} // namespace

EmberProgressBar::EmberProgressBar(QWidget *parent) : QWidget(parent), m_animation(new QVariantAnimation(this)) {
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    m_animation->setDuration(animationMs);
    m_animation->setEasingCurve(QEasingCurve::Linear);
    connect(m_animation, &QVariantAnimation::valueChanged, this, [this](const QVariant &v) {
        m_shown = v.toDouble();
        update();
    });
}

void EmberProgressBar::setValue(double value) {
    const double target = clamped(value);
    if (target == m_value)
        return;
    m_value = target;
    // A step of a few pixels reads as smooth anyway; gliding it would cost a repaint a frame.
    if (std::abs(target - m_shown) * width() < glideMinPixels) {
        m_animation->stop();
        m_shown = target;
        update();
        return;
    }
    m_animation->stop();
    m_animation->setStartValue(m_shown);
    m_animation->setEndValue(target);
    m_animation->start();
}

void EmberProgressBar::resetValue(double value) {
    m_animation->stop();
    m_value = m_shown = clamped(value);
    update();
}

qreal EmberProgressBar::fillWidth(double value, qreal available) {
    return std::max(minimumBarWidth, available * clamped(value));
}

QSize EmberProgressBar::sizeHint() const { return QSize(200, barHeight); }
QSize EmberProgressBar::minimumSizeHint() const { return QSize(int(minimumBarWidth), barHeight); }

void EmberProgressBar::paint(QWidget *bar, qreal left, qreal length) {
    QPainter p(bar);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF track(0, (bar->height() - barHeight) / 2.0, bar->width(), barHeight);
    QPainterPath clip;
    clip.addRoundedRect(track, barHeight / 2.0, barHeight / 2.0);
    p.setClipPath(clip);
    p.fillRect(track, Brand::hairline());
    p.fillRect(QRectF(left, track.top(), length, barHeight), Brand::ember());
}

void EmberProgressBar::paintEvent(QPaintEvent *) {
    paint(this, 0, std::min(qreal(width()), fillWidth(m_shown, width())));
}
