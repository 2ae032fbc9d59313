#include "ui/SheetParts.h"

#include "ui/Brand.h"
#include "ui/EmberButtonStyle.h"
#include "ui/Symbols.h"

#include <QComboBox>
#include <QDialog>
#include <QPushButton>
#include <QHBoxLayout>
#include <QLabel>

namespace SheetParts {

QHBoxLayout *titleRow(const QString &title, const QString &symbol) {
    auto *row = new QHBoxLayout;
    row->setSpacing(8);
    if (!symbol.isEmpty()) {
        auto *icon = new QLabel;
        icon->setPixmap(Symbols::pixmap(symbol, Brand::ember(), 20));
        row->addWidget(icon);
    }
    auto *label = new QLabel(title);
    label->setObjectName(QStringLiteral("sheetTitle"));
    label->setFont(Brand::displayFont(18, QFont::Bold));
    row->addWidget(label);
    row->addStretch(1);
    return row;
}

QLabel *note(const QString &text) {
    auto *label = new QLabel(text);
    label->setWordWrap(true);
    label->setFont(Brand::systemFont(12));
    QPalette p = label->palette();
    p.setColor(QPalette::WindowText, Brand::stone());
    label->setPalette(p);
    return label;
}

QLabel *capsLabel(const QString &text) {
    auto *label = new QLabel(text.toUpper());
    label->setFont(Brand::monoFont(10, QFont::Medium));
    QPalette p = label->palette();
    p.setColor(QPalette::WindowText, Brand::stone());
    label->setPalette(p);
    return label;
}

QPushButton *addButtons(QDialog *sheet, QBoxLayout *layout) {
    auto *buttons = new QHBoxLayout;
    buttons->addStretch(1);
    auto *cancel = new QPushButton(QStringLiteral("Cancel"));
    cancel->setAutoDefault(false);
    QObject::connect(cancel, &QPushButton::clicked, sheet, &QDialog::reject);
    buttons->addWidget(cancel);
    auto *download = new QPushButton(QStringLiteral("Download"));
    download->setObjectName(QStringLiteral("download"));
    download->setDefault(true);
    EmberButtonStyle::apply(download);
    buttons->addWidget(download);
    layout->addLayout(buttons);
    return download;
}

QComboBox *modePicker(DownloadMode selected) {
    auto *picker = new QComboBox;
    picker->setObjectName(QStringLiteral("modePicker"));
    for (DownloadMode mode : DownloadModes::all)
        picker->addItem(Symbols::icon(DownloadModes::symbol(mode), Brand::bone()), DownloadModes::label(mode),
                        DownloadModes::rawValue(mode));
    selectMode(picker, selected);
    return picker;
}

void selectMode(QComboBox *picker, DownloadMode mode) {
    picker->setCurrentIndex(picker->findData(DownloadModes::rawValue(mode)));
}

} // namespace SheetParts
