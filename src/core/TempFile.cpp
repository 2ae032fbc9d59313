#include "core/TempFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <algorithm>
#include <ctime>
#include <unistd.h>

QString upperUuid() { return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper(); }

QString temporaryFilePath(const QString &prefix, const QString &suffix) {
    return QDir::tempPath() + u'/' + prefix + upperUuid() + suffix;
}

RemoveOnExit::~RemoveOnExit() {
    if (!m_path.isEmpty())
        QFile::remove(m_path);
}

QDateTime processStartTime() {
    static const QDateTime start = [] {
        // The start tick of /proc/self/stat counts from boot, like CLOCK_BOOTTIME; the tick is
        // rounded down, so the answer is never later than the real start.
        QFile stat(QStringLiteral("/proc/self/stat"));
        const QDateTime now = QDateTime::currentDateTimeUtc();
        timespec sinceBoot{};
        if (stat.open(QIODevice::ReadOnly) && ::clock_gettime(CLOCK_BOOTTIME, &sinceBoot) == 0) {
            const QByteArray self = stat.readAll();
            // Fields after the command name, which may itself hold spaces and parentheses.
            const QList<QByteArray> fields = self.mid(self.lastIndexOf(')') + 2).split(' ');
            const long ticksPerSecond = ::sysconf(_SC_CLK_TCK);
            bool ok = false;
            const qint64 ticks = fields.size() > 19 ? fields.at(19).toLongLong(&ok) : 0; // field 22
            if (ok && ticksPerSecond > 0) {
                const qint64 runningMs = qint64(sinceBoot.tv_sec) * 1000 + sinceBoot.tv_nsec / 1000000 - ticks * 1000 / ticksPerSecond;
                return now.addMSecs(-std::max<qint64>(runningMs, 0));
            }
        }
        return now;
    }();
    return start;
}

void removeStaleLeftovers(const QString &dir, const QString &prefix) {
    const QDateTime start = processStartTime();
    QDir folder(dir);
    const auto found = folder.entryInfoList({prefix + u'*'}, QDir::Files | QDir::Hidden | QDir::System);
    for (const QFileInfo &info : found)
        if (info.fileName().startsWith(prefix) && info.lastModified() < start)
            QFile::remove(info.absoluteFilePath());
}
