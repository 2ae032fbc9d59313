#pragma once

#include <QStringList>
#include <QWidget>

class QAbstractButton;
class QButtonGroup;

// A row of joined, mutually exclusive choices; the chosen one is filled with the accent.
class SegmentedPicker : public QWidget {
    Q_OBJECT
public:
    // `name` is what assistive technology announces for the whole picker.
    SegmentedPicker(const QStringList &labels, const QString &name, QWidget *parent = nullptr);

    int current() const;
    // Changes the choice without emitting `chosen`.
    void setCurrent(int index);
    QAbstractButton *button(int index) const;
    int count() const { return int(m_labels.size()); }

Q_SIGNALS:
    // The user picked another segment.
    void chosen(int index);

private:
    QStringList m_labels;
    QButtonGroup *m_group;
};
