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


using namespace Qt::StringLiterals;

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

QString python() { return QStandardPaths::findExecutable(u"python3"_s); }

QString runPython(const char *code, const QStringList &args) {
    QProcess p;
    p.start(python(), QStringList{u"-I"_s, u"-c"_s, QString::fromUtf8(code)} + args);
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
        m_dir = TestEnv::root() + u"/bytecode"_s;
        QDir().mkpath(m_dir);
        m_release = m_dir + u"/release"_s;
        runPython(releaseFrom, {Tools::packagedDir() + u"/yt-dlp"_s, m_release});
        QFile::setPermissions(m_release, QFile::permissions(m_release) | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther);
    }

    // On real yt-dlp code: a release zip gets its bytecode, keeps its mode and stays updatable.
    void addsBytecodeToARelease() {
        const QString tool = m_dir + u"/yt-dlp"_s;
        QVERIFY(QFile::copy(m_release, tool));
        const auto permissions = QFileInfo(tool).permissions();
        QCOMPARE(int(vtest::await(EngineBytecode::add(tool)).outcome), int(EngineBytecode::Outcome::added));
        // zip member names are stored as plain text
        QVERIFY(!TestEnv::readFile(m_release).contains(".pyc") && TestEnv::readFile(tool).count(".pyc") > 1000);
        QCOMPARE(runPython(inspect, {tool}), u"True zip None"_s);
        QCOMPARE(QFileInfo(tool).permissions(), permissions);
        QVERIFY(TestEnv::filesContaining(m_dir, u".vorlix-"_s).isEmpty());
        QVERIFY(TestEnv::runTool(tool, {u"--version"_s}));
    }

    // A packing failure leaves the zip byte for byte and still running.
    void failureLeavesZip() {
        const QString stub = TestEnv::writeScript(m_dir + u"/python3"_s,
            QStringLiteral("#!/bin/sh\nif [ \"$1\" = -I ]; then printf junk > \"$5\"; echo 'OSError: No space left' >&2; exit 1; fi\n"
                           "exec %1 \"$@\"\n").arg(python()));
        const QString tool = m_dir + u"/failing"_s;
        QByteArray bytes = TestEnv::readFile(m_release);
        bytes.replace(0, bytes.indexOf('\n'), QByteArray("#!").append(stub.toUtf8()));
        QVERIFY(TestEnv::writeFile(tool, bytes));
        QFile::setPermissions(tool, QFile::permissions(tool) | QFile::ExeOwner);
        const auto result = vtest::await(EngineBytecode::add(tool));
        QCOMPARE(int(result.outcome), int(EngineBytecode::Outcome::failed));
        QCOMPARE(result.error, u"OSError: No space left"_s);
        QCOMPARE(TestEnv::readFile(tool), bytes);
        QVERIFY(TestEnv::filesContaining(m_dir, u".vorlix-"_s).isEmpty());
        QVERIFY(TestEnv::runTool(tool, {u"--version"_s}));
    }
};

VORLIX_TEST_SUITE(EngineBytecodeTest)
#include "EngineBytecodeTest.moc"
