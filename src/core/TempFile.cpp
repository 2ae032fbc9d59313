#include "core/TempFile.h"

#include <QDir>
#include <QFile>
#include <QUuid>

QString upperUuid() { return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper(); }

QString temporaryFilePath(const QString &prefix, const QString &suffix) {
    return QDir::tempPath() + u'/' + prefix + upperUuid() + suffix;
}

RemoveOnExit::~RemoveOnExit() {
    if (!m_path.isEmpty())
        QFile::remove(m_path);
}
