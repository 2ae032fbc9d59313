#include "ui/BreathingDot.h"

#include <QEvent>
#include <QPainter>
#include <QWindow>

#include <cmath>
#include <numbers>

BreathingDot::BreathingDot(const QColor &colour, QWidget *parent) : QWidget(parent), m_colour(colour) {
    setFixedSize(12, 12);
    // It paints its own background, so a frame repaints these 144 pixels and nothing behind them.
    setAttribute(Qt::WA_OpaquePaintEvent);
    m_timer.setInterval(frameMs);
    connect(&m_timer, &QTimer::timeout, this, [this] {
        // A window that stopped being exposed gets no more frames until it is exposed again.
        if (!onScreen())
            m_timer.stop();
        else
            update();
    });
    m_clock.start();
}

bool BreathingDot::onScreen() const {
    const QWidget *top = window();
    const QWindow *handle = top->windowHandle();
    return isVisible() && handle && handle->isExposed() && !(top->windowState() & Qt::WindowMinimized);
}

void BreathingDot::resume() {
    if (onScreen()) {
        if (!m_timer.isActive())
            m_timer.start();
    } else {
        m_timer.stop();
    }
}

void BreathingDot::showEvent(QShowEvent *) {
    // Expose and minimise changes arrive at the window, not at this widget.
    QWidget *top = window();
    QObject *handle = top->windowHandle();
    if (handle && handle != m_watchedWindow) {
        if (m_watchedWindow)
            m_watchedWindow->removeEventFilter(this);
        handle->installEventFilter(this);
        top->installEventFilter(this);
        m_watchedWindow = handle;
        connect(handle, &QObject::destroyed, this, [this] { m_watchedWindow = nullptr; });
    }
    resume();
}

void BreathingDot::hideEvent(QHideEvent *) { m_timer.stop(); }

bool BreathingDot::eventFilter(QObject *watched, QEvent *event) {
    if (event->type() == QEvent::Expose || event->type() == QEvent::WindowStateChange)
        // After the window has handled it, so isExposed() and the state are current.
        QMetaObject::invokeMethod(this, &BreathingDot::resume, Qt::QueuedConnection);
    return QWidget::eventFilter(watched, event);
}

void BreathingDot::paintEvent(QPaintEvent *) {
    // 1 → 0.25 → 1 over one period, eased like a sine.
    const double phase = double(m_clock.elapsed() % periodMs) / periodMs;
    const double strength = 0.625 + 0.375 * std::cos(2 * std::numbers::pi * phase);
    QPainter p(this);
    p.fillRect(rect(), palette().window());
    p.setRenderHint(QPainter::Antialiasing);
    QColor glow = m_colour;
    glow.setAlphaF(float(0.35 * strength));
    p.setPen(Qt::NoPen);
    p.setBrush(glow);
    p.drawEllipse(rect());
    p.setBrush(m_colour);
    p.drawEllipse(QRectF(rect()).adjusted(3, 3, -3, -3));
}
