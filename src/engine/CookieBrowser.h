#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// The browser whose login the downloader borrows for private content: the first supported
// browser that has a profile on this machine. yt-dlp fails with a traceback when told to read a
// browser that is not there, so it is only ever given one that is.
namespace CookieBrowser {

struct Browser {
    QString id;    // yt-dlp's name: "firefox", "chromium", "chrome", …
    QString label; // "Firefox", "Chromium", "Chrome", …
};

// Every supported browser, in the order they are looked for.
QList<Browser> supported();
// "Firefox, Chromium, Chrome, Brave, Vivaldi, Opera or Edge".
QString supportedLabels();
// The label for yt-dlp's name of a browser; the name itself when unknown.
QString labelFor(const QString &id);

// The first supported browser with a profile folder under `home` / `configHome`
// (defaults: the user's home and ~/.config).
std::optional<Browser> detect(const QString &home = {}, const QString &configHome = {});

} // namespace CookieBrowser
