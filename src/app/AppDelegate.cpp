#include "app/AppDelegate.h"

#include "core/AppSettings.h"
#include "analysis/Transcriber.h"
#include "engine/SelfHealer.h"
#include "engine/Tools.h"
#include "queue/ClipboardWatcher.h"
#include "queue/InboxWatcher.h"
#include "ui/Brand.h"

#include <QApplication>
#include <QFile>
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
    writeAtomically(m_supportDir + u'/' + helpFileName, shortcutInstructions());
}

QByteArray AppDelegate::shortcutInstructions() {
    return QStringLiteral(
               "Vorlix \u2014 iPhone Hand-off Setup (one time, ~2 minutes)\n"
               "\n"
               "On your iPhone, open the Shortcuts app and create a new Shortcut:\n"
               "\n"
               "1. Tap + to create a new Shortcut, name it \"Send to Vorlix\".\n"
               "2. Add action: \"Get File\" (Documents app) \u2014 set it to the file\n"
               "   iCloud Drive \u25B8 Vorlix \u25B8 inbox.txt  (turn OFF \"Show Document Picker\").\n"
               "3. Add action: \"Combine Text\" \u2014 first input: the File from step 2,\n"
               "   second input: the Shortcut Input (the shared URL). Separator: New Line.\n"
               "4. Add action: \"Save File\" \u2014 save the combined text back to\n"
               "   iCloud Drive \u25B8 Vorlix \u25B8 inbox.txt with \"Overwrite\" ON.\n"
               "5. In the Shortcut's settings (\u24D8), enable \"Show in Share Sheet\"\n"
               "   and set accepted types to URLs.\n"
               "\n"
               "Now share any link on your iPhone \u2192 \"Send to Vorlix\" \u2192 your Mac\n"
               "downloads it automatically (Vorlix must be running; it lives in the\n"
               "menu bar even when the window is closed).")
        .toUtf8();
}
