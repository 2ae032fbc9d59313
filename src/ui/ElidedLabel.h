#pragma once

#include <QLabel>

// One line of text that shortens itself with "…" to fit, keeping both ends of a path visible.
class ElidedLabel : public QLabel {
    Q_OBJECT
public:
    explicit ElidedLabel(QWidget *parent = nullptr, Qt::TextElideMode mode = Qt::ElideMiddle);

    void setFullText(const QString &text);
    QString fullText() const { return m_fullText; }

    QSize minimumSizeHint() const override;

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void refit();
    QString m_fullText;
    Qt::TextElideMode m_mode;
};
