#pragma once

#include <QColor>
#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>

// A small dot whose glow breathes, as a sign that something keeps watching. It draws about 12
// frames a second (plenty for a 1.6 s pulse) and none at all while it is hidden, its window is
// minimised, or the window system reports the window as not exposed.
class BreathingDot : public QWidget {
    Q_OBJECT
public:
    static constexpr int frameMs = 80;
    static constexpr int periodMs = 1600;

    explicit BreathingDot(const QColor &colour, QWidget *parent = nullptr);

    // Whether it is animating now; for tests and measurements.
    bool isBreathing() const { return m_timer.isActive(); }

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void resume();
    bool onScreen() const;

    QColor m_colour;
    QTimer m_timer;
    QElapsedTimer m_clock;
    QObject *m_watchedWindow = nullptr;
};
