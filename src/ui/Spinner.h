#pragma once

#include <QColor>
#include <QWidget>

// A small busy indicator: an arc that turns once a second. Every spinner on screen is driven by
// one shared timer, which stops as soon as none is visible, so idle screens cost nothing.
class Spinner : public QWidget {
    Q_OBJECT
public:
    static constexpr int defaultDiameter = 14;
    static constexpr int frameMs = 33;

    explicit Spinner(QWidget *parent = nullptr);
    Spinner(int diameter, const QColor &colour, QWidget *parent = nullptr);
    ~Spinner() override;

    QColor colour() const { return m_colour; }
    void setColour(const QColor &colour);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

    // Whether the shared timer runs (some spinner is on screen); for tests and measurements.
    static bool isTicking();

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    int m_diameter;
    QColor m_colour;
};
