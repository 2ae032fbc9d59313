#pragma once

#include "core/DownloadMode.h"

#include <QString>

class QBoxLayout;
class QComboBox;
class QDialog;
class QPushButton;
class QHBoxLayout;
class QLabel;

// Pieces the sheets and the main window share, so they read alike.
namespace SheetParts {
// A sheet's headline with its symbol in front.
QHBoxLayout *titleRow(const QString &title, const QString &symbol);
// Secondary explanatory text that wraps.
QLabel *note(const QString &text);
// A small monospaced capital label ("MODE").
QLabel *capsLabel(const QString &text);
// Cancel (closes `sheet`) and the default "Download" button, right-aligned under `layout`.
QPushButton *addButtons(QDialog *sheet, QBoxLayout *layout);
// The three modes with their labels and symbols; item data is the mode's raw value.
QComboBox *modePicker(DownloadMode selected);
void selectMode(QComboBox *picker, DownloadMode mode);
} // namespace SheetParts
