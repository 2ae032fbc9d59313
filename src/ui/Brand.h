#pragma once

#include <QColor>
#include <QFont>
#include <QString>

class QApplication;
class QPalette;

// The Ember look shared by every screen: a fixed warm-dark palette and two type faces.
namespace Brand {
const QColor &ember();
const QColor &emberDeep();
const QColor &emberLight();
const QColor &ink();
const QColor &surface();
const QColor &hairline();
const QColor &stone();
const QColor &stoneDark();
const QColor &bone();

// Status tints that are not part of the accent palette.
const QColor &success();
const QColor &danger();

inline const QString displayFamily = QStringLiteral("Schibsted Grotesk");
inline const QString monoFamily = QStringLiteral("JetBrains Mono");

// Fonts are asked for by family name; the system substitutes when one is not installed.
// Sizes are in the same logical points the layouts use (one point = one device-independent pixel).
QFont displayFont(qreal points, QFont::Weight weight = QFont::Normal);
QFont monoFont(qreal points, QFont::Weight weight = QFont::Normal);
QFont systemFont(qreal points, QFont::Weight weight = QFont::Normal);

// <directory of the executable>/../share/vorlix/fonts, in the build tree as in an install.
QString fontsDir();
// Adds the shipped faces to the application's fonts (JetBrains Mono only when the system lacks
// it); call once the application object exists and before any widget. Returns the families added.
QStringList loadFonts(const QString &dir = fontsDir());

// The forced dark palette built from the colours above.
QPalette darkPalette();
// Fusion with the dark palette, whatever the desktop's own theme is.
void applyDarkAppearance(QApplication &app);
} // namespace Brand
