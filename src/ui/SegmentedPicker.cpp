#include "ui/SegmentedPicker.h"

#include "ui/Brand.h"

#include <QButtonGroup>
#include <QHBoxLayout>
#include <QPushButton>

namespace {
QString segmentStyle(bool first, bool last) {
    const QString left = first ? QStringLiteral("6px") : QStringLiteral("0px");
    const QString right = last ? QStringLiteral("6px") : QStringLiteral("0px");
    return QStringLiteral("QPushButton { background: #1D1A16; color: #8A8178; border: 1px solid #2B2620;"
                          " padding: 4px 11px; border-top-left-radius: %1; border-bottom-left-radius: %1;"
                          " border-top-right-radius: %2; border-bottom-right-radius: %2; }"
                          "QPushButton:hover { color: #FAF8F5; }"
                          "QPushButton:checked { background: #FF4A1F; color: #FAF8F5; border-color: #FF4A1F; }")
        .arg(left, right);
}
} // namespace

SegmentedPicker::SegmentedPicker(const QStringList &labels, const QString &name, QWidget *parent)
    : QWidget(parent), m_labels(labels), m_group(new QButtonGroup(this)) {
    setAccessibleName(name);
    auto *row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(0);
    for (int i = 0; i < labels.size(); ++i) {
        auto *button = new QPushButton(labels[i]);
        button->setCheckable(true);
        button->setCursor(Qt::PointingHandCursor);
        button->setFont(Brand::systemFont(12, QFont::Medium));
        button->setStyleSheet(segmentStyle(i == 0, i == labels.size() - 1));
        button->setAccessibleName(labels[i]);
        m_group->addButton(button, i);
        row->addWidget(button);
    }
    if (!labels.isEmpty())
        m_group->button(0)->setChecked(true);
    connect(m_group, &QButtonGroup::idClicked, this, [this](int id) { Q_EMIT chosen(id); });
}

int SegmentedPicker::current() const { return m_group->checkedId(); }

void SegmentedPicker::setCurrent(int index) {
    if (QAbstractButton *b = m_group->button(index))
        b->setChecked(true);
}

QAbstractButton *SegmentedPicker::button(int index) const { return m_group->button(index); }
