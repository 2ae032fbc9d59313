#pragma once

#include <QColor>
#include <QWidget>

class QPainter;

// A one-line outlined label: an optional symbol, then a short monospaced text, all in one tint.
class StatusChip : public QWidget {
    Q_OBJECT
public:
    explicit StatusChip(QWidget *parent = nullptr);
    StatusChip(const QString &text, const QString &symbol, const QColor &tint, QWidget *parent = nullptr);

    QString text() const { return m_text; }
    QString symbol() const { return m_symbol; }
    QColor tint() const { return m_tint; }
    void set(const QString &text, const QString &symbol, const QColor &tint);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

    // The same chip drawn straight onto a painter (list delegates paint chips without widgets).
    static QSize sizeFor(const QString &text, const QString &symbol);
    static void paint(QPainter &painter, const QRect &rect, const QString &text, const QString &symbol,
                      const QColor &tint);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QString m_text;
    QString m_symbol;
    QColor m_tint;
};
