#pragma once

#include "ui/EmberProgressBar.h"

class QVariantAnimation;

// The indeterminate form of the Ember progress bar: a hairline track with an ember segment
// sweeping across it while something of unknown length runs. Animates only while shown.
class EmberBusyBar : public QWidget {
    Q_OBJECT
public:
    static constexpr int barHeight = EmberProgressBar::barHeight;
    static constexpr int sweepMs = 1200;

    explicit EmberBusyBar(QWidget *parent = nullptr);

    bool isAnimating() const;
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    QVariantAnimation *m_sweep;
};
