#pragma once

#include <QString>
#include <QUrl>

// The desktop's file manager and default applications.
namespace Desktop {
// Opens a folder in the file manager (or a file in its default application).
void open(const QUrl &location);
void openFolder(const QString &path);
// Shows the file selected in the file manager; where no file manager answers the
// FileManager1 interface, its folder is opened instead.
void reveal(const QUrl &file);
} // namespace Desktop
