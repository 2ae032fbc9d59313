#include "app/AppDelegate.h"

#include "core/AppSettings.h"
#include "analysis/Transcriber.h"
#include "engine/SelfHealer.h"
#include "engine/Tools.h"
#include "queue/ClipboardWatcher.h"
#include "queue/InboxWatcher.h"
#include "ui/Brand.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace {

void writeAtomically(const QString &path, const QByteArray &bytes) {
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return;
    if (file.write(bytes) != bytes.size()) {
        file.cancelWriting();
        return;
    }
    file.commit();
}

} // namespace

AppDelegate::Steps AppDelegate::Steps::real(QApplication &app) {
    Steps s;
    s.applyDarkAppearance = [&app] { Brand::applyDarkAppearance(app); };
    s.installBundledTools = [] {
        Tools::installBundledTools();
        Transcriber::shared(); // made now, so it sweeps what killed model downloads left behind
    };
    s.startSelfHealer = [] { SelfHealer::shared().start(); };
    // Started whatever the Smart Mode setting says: each tick reads the setting itself.
    s.startClipboardWatcher = [] { ClipboardWatcher::shared().start(); };
    s.startInboxWatcher = [] { InboxWatcher::shared().start(); };
    // The desktop notification service shows alerts without asking; there is nothing to request.
    s.requestNotificationPermission = [] {};
    return s;
}

AppDelegate::AppDelegate(QApplication &app, QObject *parent)
    : AppDelegate(AppSettings::appSupportDir(), QCoreApplication::applicationFilePath(), Steps::real(app), {},
                  parent) {}

AppDelegate::AppDelegate(QString supportDir, QString executablePath, Steps steps, Clock clock, QObject *parent)
    : QObject(parent), m_supportDir(std::move(supportDir)), m_executablePath(std::move(executablePath)),
      m_steps(std::move(steps)),
      m_clock(clock ? std::move(clock) : Clock([] { return QDateTime::currentDateTimeUtc(); })) {}

bool AppDelegate::isTranslocated() const { return m_executablePath.contains(QLatin1String("/AppTranslocation/")); }

void AppDelegate::applicationDidFinishLaunching() {
    const bool translocated = isTranslocated();
    breadcrumb(QStringLiteral("didFinishLaunching start (translocated=") +
               (translocated ? QStringLiteral("true") : QStringLiteral("false")) + u')');
    m_steps.applyDarkAppearance();
    m_steps.installBundledTools();
    breadcrumb(QStringLiteral("tools installed"));
    m_steps.startSelfHealer();
    m_steps.startClipboardWatcher();
    m_steps.startInboxWatcher();
    writeShortcutInstructions();
    breadcrumb(QStringLiteral("watchers started"));
    if (!translocated)
        m_steps.requestNotificationPermission();
    breadcrumb(QStringLiteral("didFinishLaunching end"));
}

QString AppDelegate::dateDescription(const QDateTime &when) {
    return when.toUTC().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) + QStringLiteral(" +0000");
}

void AppDelegate::breadcrumb(const QString &message) const {
    const QByteArray line = (dateDescription(m_clock()) + u' ' + message + u'\n').toUtf8();
    const QString path = m_supportDir + u'/' + logFileName;
    QFile log(path);
    if (log.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::ExistingOnly)) {
        log.write(line);
        return;
    }
    writeAtomically(path, line);
}

void AppDelegate::writeShortcutInstructions() const {
    writeAtomically(m_supportDir + u'/' + helpFileName, shortcutInstructions(InboxWatcher::defaultInboxPath()));
}

QByteArray AppDelegate::shortcutInstructions(const QString &inboxPath) {
    const QString inbox = QDir::toNativeSeparators(inboxPath);
    const QString synced = QDir::toNativeSeparators(QFileInfo(QFileInfo(inboxPath).path()).path());
    const QString service = InboxWatcher::syncServiceName(inboxPath);
    return (QStringLiteral("Vorlix \u2014 Phone Hand-off Setup (one time, ~2 minutes)\n"
                           "\n"
                           "Vorlix watches this file, synced with your phone by ") +
            service + QStringLiteral(":\n   ") + inbox +
            QStringLiteral("\n"
                           "\n"
                           "1. Install ") +
            service + QStringLiteral(" on your phone and sync this computer's folder\n   ") + synced +
            QStringLiteral(" with it.\n"
                           "2. Install an app that can append shared text to a file \u2014 any\n"
                           "   share-to-file or automation app (e.g. Tasker or Automate on\n"
                           "   Android, the Shortcuts app on an iPhone).\n"
                           "3. Make an action named \"Send to Vorlix\" that takes the shared link and\n"
                           "   appends it as a new line to Vorlix \u25B8 inbox.txt in that synced folder.\n"
                           "4. Offer the action in your phone's share menu for links (URLs).\n"
                           "\n"
                           "Now share any link on your phone \u2192 \"Send to Vorlix\" \u2192 your computer\n"
                           "downloads it automatically (Vorlix must be running; it lives in the\n"
                           "system tray even when the window is closed)."))
        .toUtf8();
}
