#pragma once

#include <QColor>
#include <QIcon>
#include <QPixmap>
#include <QString>

// The screens name their glyphs with short symbol names ("arrow.down.circle", "folder", …).
// They are looked up in the freedesktop icon theme and tinted; a symbol the theme lacks is drawn.
namespace Symbols {
// The icon-theme name for a symbol; empty when no theme icon stands for it.
QString themeName(const QString &symbol);
// The symbol at `size` device-independent pixels, every opaque pixel painted in `tint`.
QPixmap pixmap(const QString &symbol, const QColor &tint, int size);
QIcon icon(const QString &symbol, const QColor &tint, int size = 16);
// The built-in drawing, used when the theme has no icon.
QPixmap drawn(const QString &symbol, const QColor &tint, int size);
} // namespace Symbols
