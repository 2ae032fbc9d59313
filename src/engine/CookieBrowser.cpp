#include "engine/CookieBrowser.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace CookieBrowser {
namespace {
struct Known {
    Browser browser;
    QStringList configFolders; // under the config home
    QStringList homeFolders;   // under the home folder (distribution, snap and flatpak copies)
};

const QList<Known> &known() {
    static const QList<Known> list{
        {{QStringLiteral("firefox"), QStringLiteral("Firefox")},
         {},
         {QStringLiteral(".mozilla/firefox"), QStringLiteral("snap/firefox/common/.mozilla/firefox"),
          QStringLiteral(".var/app/org.mozilla.firefox/.mozilla/firefox")}},
        {{QStringLiteral("chromium"), QStringLiteral("Chromium")},
         {QStringLiteral("chromium")},
         {QStringLiteral("snap/chromium/common/chromium"), QStringLiteral(".var/app/org.chromium.Chromium/config/chromium")}},
        {{QStringLiteral("chrome"), QStringLiteral("Chrome")},
         {QStringLiteral("google-chrome")},
         {QStringLiteral(".var/app/com.google.Chrome/config/google-chrome")}},
        {{QStringLiteral("brave"), QStringLiteral("Brave")},
         {QStringLiteral("BraveSoftware/Brave-Browser")},
         {QStringLiteral(".var/app/com.brave.Browser/config/BraveSoftware/Brave-Browser")}},
        {{QStringLiteral("vivaldi"), QStringLiteral("Vivaldi")}, {QStringLiteral("vivaldi")}, {}},
        {{QStringLiteral("opera"), QStringLiteral("Opera")}, {QStringLiteral("opera")}, {}},
        {{QStringLiteral("edge"), QStringLiteral("Edge")}, {QStringLiteral("microsoft-edge")}, {}},
    };
    return list;
}
} // namespace

QList<Browser> supported() {
    QList<Browser> out;
    for (const Known &k : known())
        out << k.browser;
    return out;
}

QString supportedLabels() {
    QStringList labels;
    for (const Known &k : known())
        labels << k.browser.label;
    const QString last = labels.takeLast();
    return labels.join(QStringLiteral(", ")) + QStringLiteral(" or ") + last;
}

QString labelFor(const QString &id) {
    for (const Known &k : known())
        if (k.browser.id.compare(id, Qt::CaseInsensitive) == 0)
            return k.browser.label;
    return id;
}

std::optional<Browser> detect(const QString &home, const QString &configHome) {
    const QDir homeDir(home.isEmpty() ? QDir::homePath() : home);
    const QDir configDir(configHome.isEmpty() ? QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
                                              : configHome);
    for (const Known &k : known()) {
        for (const QString &folder : k.configFolders)
            if (QFileInfo(configDir.filePath(folder)).isDir())
                return k.browser;
        for (const QString &folder : k.homeFolders)
            if (QFileInfo(homeDir.filePath(folder)).isDir())
                return k.browser;
    }
    return std::nullopt;
}

} // namespace CookieBrowser
