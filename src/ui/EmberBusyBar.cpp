#include "ui/EmberBusyBar.h"

#include "ui/EmberProgressBar.h"

#include <QVariantAnimation>

EmberBusyBar::EmberBusyBar(QWidget *parent) : QWidget(parent), m_sweep(new QVariantAnimation(this)) {
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setAccessibleName(QStringLiteral("Searching"));
    m_sweep->setStartValue(0.0);
    m_sweep->setEndValue(1.0);
    m_sweep->setDuration(sweepMs);
    m_sweep->setLoopCount(-1);
    m_sweep->setEasingCurve(QEasingCurve::InOutSine);
    connect(m_sweep, &QVariantAnimation::valueChanged, this, [this] { update(); });
}

bool EmberBusyBar::isAnimating() const { return m_sweep->state() == QAbstractAnimation::Running; }

QSize EmberBusyBar::sizeHint() const { return QSize(200, barHeight); }
QSize EmberBusyBar::minimumSizeHint() const { return QSize(20, barHeight); }

void EmberBusyBar::showEvent(QShowEvent *) { m_sweep->start(); }
void EmberBusyBar::hideEvent(QHideEvent *) { m_sweep->stop(); }

void EmberBusyBar::paintEvent(QPaintEvent *) {
    // A third of the track travels from beyond the left edge to beyond the right one.
    const qreal segment = width() / 3.0;
    EmberProgressBar::paint(this, -segment + (width() + segment) * m_sweep->currentValue().toReal(), segment);
}
