#include "ui/ElidedLabel.h"

ElidedLabel::ElidedLabel(QWidget *parent, Qt::TextElideMode mode) : QLabel(parent), m_mode(mode) {
    setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    setTextFormat(Qt::PlainText);
    setWordWrap(false);
}

void ElidedLabel::setFullText(const QString &text) {
    m_fullText = text;
    setToolTip(text);
    refit();
}

QSize ElidedLabel::minimumSizeHint() const { return QSize(40, QLabel::minimumSizeHint().height()); }

void ElidedLabel::resizeEvent(QResizeEvent *event) {
    QLabel::resizeEvent(event);
    refit();
}

void ElidedLabel::refit() {
    const int room = contentsRect().width();
    setText(room > 0 ? fontMetrics().elidedText(m_fullText, m_mode, room) : m_fullText);
}
