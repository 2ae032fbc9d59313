#include "Await.h"
#include "TestEnv.h"
#include "TestMain.h"

#include "engine/EngineBytecode.h"
#include "engine/Tools.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>


namespace {
// Copies a yt-dlp zip without its bytecode, as a release zip comes.
const char *const releaseFrom = R"PY(
import io, sys, zipfile
zin = zipfile.ZipFile(sys.argv[1])
buf = io.BytesIO()
with zipfile.ZipFile(buf, "w", zipfile.ZIP_DEFLATED) as z:
    for i in zin.infolist():
        if not i.filename.endswith(".pyc"):
            z.writestr(i, zin.read(i))
open(sys.argv[2], "wb").write(b"#!/usr/bin/env python3\n" + buf.getvalue())
)PY";

// Whether yt-dlp's updater loads from the bytecode and still sees an updatable zip.
const char *const inspect = R"PY(
import sys
sys.path.insert(0, sys.argv[1])
from yt_dlp import update
print(update.__file__.endswith(".pyc"), update.detect_variant(), update.is_non_updateable())
)PY";

QString python() { return QStandardPaths::findExecutable(QStringLiteral("python3")); }

QString runPython(const char *code, const QStringList &args) {
    QProcess p;
    p.start(python(), QStringList{QStringLiteral("-I"), QStringLiteral("-c"), QString::fromUtf8(code)} + args);
    p.waitForFinished(120000);
    return QString::fromUtf8(p.readAllStandardOutput()).trimmed();
}
} // namespace

class EngineBytecodeTest : public QObject {
    Q_OBJECT
    QString m_dir;
    QString m_release; // made once: re-packing the engine is slow

private Q_SLOTS:
    void initTestCase() {
        m_dir = TestEnv::root() + QStringLiteral("/bytecode");
        QDir().mkpath(m_dir);
        m_release = m_dir + QStringLiteral("/release");
        runPython(releaseFrom, {Tools::packagedDir() + QStringLiteral("/yt-dlp"), m_release});
        QFile::setPermissions(m_release, QFile::permissions(m_release) | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther);
    }

    // On real yt-dlp code: a release zip gets its bytecode, keeps its mode and stays updatable.
    void addsBytecodeToARelease() {
        const QString tool = m_dir + QStringLiteral("/yt-dlp");
        QVERIFY(QFile::copy(m_release, tool));
        const auto permissions = QFileInfo(tool).permissions();
        QCOMPARE(int(vtest::await(EngineBytecode::add(tool)).outcome), int(EngineBytecode::Outcome::added));
        // zip member names are stored as plain text
        QVERIFY(!TestEnv::readFile(m_release).contains(".pyc") && TestEnv::readFile(tool).count(".pyc") > 1000);
        QCOMPARE(runPython(inspect, {tool}), QStringLiteral("True zip None"));
        QCOMPARE(QFileInfo(tool).permissions(), permissions);
        QVERIFY(TestEnv::filesContaining(m_dir, QStringLiteral(".vorlix-")).isEmpty());
        QVERIFY(TestEnv::runTool(tool, {QStringLiteral("--version")}));
    }

    // A packing failure leaves the zip byte for byte and still running.
    void failureLeavesZip() {
        const QString stub = TestEnv::writeScript(m_dir + QStringLiteral("/python3"),
            QStringLiteral("#!/bin/sh\nif [ \"$1\" = -I ]; then printf junk > \"$5\"; echo 'OSError: No space left' >&2; exit 1; fi\n"
                           "exec %1 \"$@\"\n").arg(python()));
        const QString tool = m_dir + QStringLiteral("/failing");
        QByteArray bytes = TestEnv::readFile(m_release);
        bytes.replace(0, bytes.indexOf('\n'), QByteArray("#!").append(stub.toUtf8()));
        QVERIFY(TestEnv::writeFile(tool, bytes));
        QFile::setPermissions(tool, QFile::permissions(tool) | QFile::ExeOwner);
        const auto result = vtest::await(EngineBytecode::add(tool));
        QCOMPARE(int(result.outcome), int(EngineBytecode::Outcome::failed));
        QCOMPARE(result.error, QStringLiteral("OSError: No space left"));
        QCOMPARE(TestEnv::readFile(tool), bytes);
        QVERIFY(TestEnv::filesContaining(m_dir, QStringLiteral(".vorlix-")).isEmpty());
        QVERIFY(TestEnv::runTool(tool, {QStringLiteral("--version")}));
    }
};

VORLIX_TEST_SUITE(EngineBytecodeTest)
#include "EngineBytecodeTest.moc"
