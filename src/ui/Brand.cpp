#include "ui/Brand.h"

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QFontDatabase>
#include <QIcon>
#include <QPalette>
#include <QStyleFactory>

namespace Brand {
namespace {
QColor rgb(double r, double g, double b) { return QColor::fromRgbF(float(r), float(g), float(b)); }

// Qt point sizes assume 72 points per inch, while layouts here count 96 logical pixels per inch.
QFont makeFont(const QString &family, qreal points, QFont::Weight weight) {
    QFont font(family);
    font.setPointSizeF(points * 72.0 / 96.0);
    font.setWeight(weight);
    return font;
}
} // namespace

const QColor &ember() { static const QColor c = rgb(1.0, 0.29, 0.12); return c; }
const QColor &emberDeep() { static const QColor c = rgb(0.94, 0.23, 0.05); return c; }
const QColor &emberLight() { static const QColor c = rgb(1.0, 0.48, 0.27); return c; }
const QColor &ink() { static const QColor c = rgb(0.086, 0.075, 0.059); return c; }
const QColor &surface() { static const QColor c = rgb(0.114, 0.102, 0.086); return c; }
const QColor &hairline() { static const QColor c = rgb(0.169, 0.149, 0.125); return c; }
const QColor &stone() { static const QColor c = rgb(0.541, 0.506, 0.471); return c; }
const QColor &stoneDark() { static const QColor c = rgb(0.361, 0.333, 0.298); return c; }
const QColor &bone() { static const QColor c = rgb(0.98, 0.973, 0.961); return c; }
const QColor &success() { static const QColor c(0x3F, 0xC2, 0x6B); return c; }
const QColor &danger() { static const QColor c(0xF2, 0x4B, 0x4B); return c; }

QFont displayFont(qreal points, QFont::Weight weight) { return makeFont(displayFamily, points, weight); }
QFont monoFont(qreal points, QFont::Weight weight) {
    QFont font = makeFont(monoFamily, points, weight);
    font.setStyleHint(QFont::Monospace);
    return font;
}
QFont systemFont(qreal points, QFont::Weight weight) {
    QFont font = QApplication::font();
    font.setPointSizeF(points * 72.0 / 96.0);
    font.setWeight(weight);
    return font;
}

QString fontsDir() {
    return QDir::cleanPath(QCoreApplication::applicationDirPath() + QStringLiteral("/../share/vorlix/fonts"));
}

QStringList loadFonts(const QString &dir) {
    const bool systemMono = QFontDatabase::hasFamily(monoFamily);
    QStringList added;
    for (const QFileInfo &file : QDir(dir).entryInfoList({QStringLiteral("*.ttf")}, QDir::Files, QDir::Name)) {
        if (systemMono && file.fileName().startsWith(QLatin1String("JetBrainsMono")))
            continue;
        const int id = QFontDatabase::addApplicationFont(file.filePath());
        for (const QString &family : QFontDatabase::applicationFontFamilies(id))
            if (!added.contains(family))
                added << family;
    }
    return added;
}

QPalette darkPalette() {
    QPalette p;
    const QColor text = bone();
    p.setColor(QPalette::Window, ink());
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, surface());
    p.setColor(QPalette::AlternateBase, hairline());
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::PlaceholderText, stoneDark());
    p.setColor(QPalette::Button, surface());
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::BrightText, bone());
    p.setColor(QPalette::Highlight, ember());
    p.setColor(QPalette::HighlightedText, bone());
    p.setColor(QPalette::Link, emberLight());
    p.setColor(QPalette::LinkVisited, emberDeep());
    p.setColor(QPalette::ToolTipBase, surface());
    p.setColor(QPalette::ToolTipText, text);
    p.setColor(QPalette::Light, hairline().lighter(130));
    p.setColor(QPalette::Midlight, hairline());
    p.setColor(QPalette::Mid, hairline());
    p.setColor(QPalette::Dark, ink().darker(120));
    p.setColor(QPalette::Shadow, QColor(0, 0, 0));
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        p.setColor(QPalette::Disabled, role, stoneDark());
    p.setColor(QPalette::Disabled, QPalette::Highlight, stoneDark());
    p.setColor(QPalette::Disabled, QPalette::Base, ink());
    return p;
}

void applyDarkAppearance(QApplication &app) {
    if (QStyle *fusion = QStyleFactory::create(QStringLiteral("Fusion")))
        QApplication::setStyle(fusion);
    QApplication::setPalette(darkPalette());
    // Outside a full desktop Qt picks no icon theme; Adwaita's symbolic icons are tinted on use.
    if (QIcon::themeName().isEmpty() || QIcon::themeName() == QLatin1String("hicolor"))
        QIcon::setThemeName(QStringLiteral("Adwaita"));
    QFont font = app.font();
    font.setPointSizeF(13.0 * 72.0 / 96.0);
    QApplication::setFont(font);
}
} // namespace Brand
