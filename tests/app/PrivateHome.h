#pragma once

#include "TestEnv.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QProcessEnvironment>
#include <QTemporaryDir>

// A fresh home for one run of the real program, removed afterwards. The engine counts as just
// updated, so the daily self-update never goes to the internet; no session bus, so no desktop
// notifications escape a test.
struct PrivateHome {
    QTemporaryDir dir{TestEnv::root() + QStringLiteral("/home-XXXXXX")};
    QString home() const { return dir.path() + QStringLiteral("/home"); }
    QString data() const { return dir.path() + QStringLiteral("/data"); }

    QProcessEnvironment environment() const {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        const QString root = dir.path();
        for (const auto &[name, sub] : {std::pair("HOME", "/home"), std::pair("XDG_CONFIG_HOME", "/config"), std::pair("XDG_DATA_HOME", "/data"),
                                        std::pair("XDG_CACHE_HOME", "/cache"), std::pair("XDG_RUNTIME_DIR", "/run"), std::pair("TMPDIR", "/tmp")}) {
            QDir().mkpath(root + QLatin1String(sub));
            env.insert(QLatin1String(name), root + QLatin1String(sub));
        }
        QFile::setPermissions(root + QStringLiteral("/run"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QDir().mkpath(root + QStringLiteral("/config/Vorlix"));
        QFile conf(root + QStringLiteral("/config/Vorlix/Vorlix.conf"));
        if (conf.open(QIODevice::WriteOnly))
            conf.write("[General]\nlastEngineUpdateCheck=" + QByteArray::number(QDateTime::currentSecsSinceEpoch()) + '\n');
        env.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
        env.remove(QStringLiteral("WAYLAND_DISPLAY"));
        return env;
    }
};
