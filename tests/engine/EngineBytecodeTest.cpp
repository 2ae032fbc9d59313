#include "Await.h"
#include "TestEnv.h"
#include "TestMain.h"

#include "core/AppSettings.h"
#include "engine/EngineBytecode.h"
#include "engine/SelfHealer.h"
#include "engine/Tools.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

#include <sys/stat.h>

namespace {

// Copies a yt-dlp zip without its bytecode, as a release zip comes; with a third argument, that
// text replaces its __main__.py.
const char *const releaseFrom = R"PY(
import io, sys, zipfile
zin = zipfile.ZipFile(sys.argv[1])
buf = io.BytesIO()
with zipfile.ZipFile(buf, "w", zipfile.ZIP_DEFLATED) as z:
    for i in zin.infolist():
        if not i.filename.endswith(".pyc"):
            data = zin.read(i)
            if i.filename == "__main__.py" and len(sys.argv) > 3:
                data = open(sys.argv[3], "rb").read()
            z.writestr(i, data)
open(sys.argv[2], "wb").write(b"#!/usr/bin/env python3\n" + buf.getvalue())
)PY";

// Sources without bytecode, bytecode files; then how yt-dlp's updater sees the zip, with the
// modules loaded from the bytecode.
const char *const inspect = R"PY(
import sys, zipfile
names = set(zipfile.ZipFile(sys.argv[1]).namelist())
print(sum(1 for n in names if n.endswith(".py") and n + "c" not in names),
      sum(1 for n in names if n.endswith(".pyc")))
sys.path.insert(0, sys.argv[1])
from yt_dlp import update
print(update.__file__.endswith(".pyc"), update.detect_variant(), update.is_non_updateable())
)PY";

// The engine's own -U, with GitHub answered from here: release 2099.01.01 is the file argv[1].
const char *const offlineUpdateMain = R"PY(
import hashlib, sys
import yt_dlp
from yt_dlp import update
release = open(%1, "rb").read()
def download(self, name, tag):
    if name == "SHA2-256SUMS":
        return f"{hashlib.sha256(release).hexdigest()}  yt-dlp\n".encode()
    return b"" if name == "_update_spec" else release
update.Updater._get_version_info = lambda self, tag: {"tag_name": "2099.01.01"}
update.Updater._download = download
yt_dlp.main()
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
    QString m_release; // one plain release, made once: re-packing the engine is slow
    int m_case = 0;

    // A release-shaped copy of the packaged engine.
    QString makeRelease(const QString &name, const QString &mainFile = QString()) {
        const QString path = m_dir + u'/' + name;
        QStringList args{Tools::packagedDir() + QStringLiteral("/yt-dlp"), path};
        if (!mainFile.isEmpty())
            args << mainFile;
        runPython(releaseFrom, args);
        QFile::setPermissions(path, QFile::permissions(path) | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther);
        return path;
    }

private Q_SLOTS:
    void initTestCase() {
        m_dir = TestEnv::root() + QStringLiteral("/bytecode-release");
        QDir().mkpath(m_dir);
        m_release = makeRelease(QStringLiteral("release"));
    }
    void init() {
        m_dir = TestEnv::root() + QStringLiteral("/bytecode-") + QString::number(++m_case);
        QDir().mkpath(m_dir);
    }

    void interpreter_data() {
        QTest::addColumn<QByteArray>("head");
        QTest::addColumn<QString>("expected");
        QTest::newRow("env") << QByteArray("#!/usr/bin/env python3\nPK") << python();
        QTest::newRow("env with options") << QByteArray("#!/usr/bin/env -S python3 -X utf8\n") << python();
        QTest::newRow("absolute") << QByteArray("#! /usr/bin/python3.11\n") << QStringLiteral("/usr/bin/python3.11");
        QTest::newRow("a shell stub") << QByteArray("#!/bin/sh\necho Updated yt-dlp to 1\n") << QString();
    }

    void interpreter() {
        QFETCH(QByteArray, head);
        QFETCH(QString, expected);
        const QString path = m_dir + QStringLiteral("/yt-dlp");
        QVERIFY(TestEnv::writeFile(path, head));
        QCOMPARE(EngineBytecode::interpreterFor(path), expected);
    }

    // The whole loop on real yt-dlp code: a release zip without bytecode updates itself with -U,
    // and the release it wrote gets its bytecode.
    void selfUpdateKeepsBytecode() {
        const QString &release = m_release;
        const QString mainFile = m_dir + QStringLiteral("/main.py");
        QVERIFY(TestEnv::writeFile(mainFile, QString::fromUtf8(offlineUpdateMain).arg(u'"' + release + u'"').toUtf8()));
        const QString tool = makeRelease(QStringLiteral("yt-dlp"), mainFile);
        const auto permissions = QFileInfo(tool).permissions();
        AppSettings settings(m_dir + QStringLiteral("/settings.ini"));
        SelfHealer healer(settings, [tool] { return tool; }, [] { return 1.8e9; });
        QVERIFY(vtest::await(healer.updateEngine()));
        QCOMPARE(healer.lastUpdateResultText(), QStringLiteral("Engine updated"));
        QCOMPARE(healer.engineVersion(), QStringLiteral("2023.03.04"));
        const QStringList seen = runPython(inspect, {tool}).split(u'\n');
        QCOMPARE(seen.value(0).section(u' ', 0, 0), QStringLiteral("0"));
        QVERIFY(seen.value(0).section(u' ', 1).toInt() > 500);
        QCOMPARE(seen.value(1), QStringLiteral("True zip None"));
        QCOMPARE(QFileInfo(tool).permissions(), permissions);
        QVERIFY(!TestEnv::readFile(tool).contains("2099.01.01")); // the plain release, re-packed
        QVERIFY(TestEnv::filesContaining(m_dir, QStringLiteral(".vorlix-")).isEmpty());
    }

    // A packing failure leaves the updated zip byte for byte and still running.
    void failureLeavesZip_data() {
        QTest::addColumn<QString>("pythonStub");
        QTest::addColumn<QString>("error");
        QTest::newRow("fails half-way") << QStringLiteral("printf junk > \"$5\"; echo 'OSError: No space left' >&2; exit 1")
                                        << QStringLiteral("OSError: No space left");
        QTest::newRow("no output") << QStringLiteral("exit 0") << QStringLiteral("packing ended with status 0");
    }

    void failureLeavesZip() {
        QFETCH(QString, pythonStub);
        QFETCH(QString, error);
        // An interpreter that runs the zip but fails to pack it.
        const QString stub = TestEnv::writeScript(
            m_dir + QStringLiteral("/python3"),
            QStringLiteral("#!/bin/sh\nif [ \"$1\" = -I ]; then %1; fi\nexec %2 \"$@\"\n").arg(pythonStub, python()));
        const QString tool = m_dir + QStringLiteral("/yt-dlp");
        QVERIFY(QFile::copy(m_release, tool));
        QByteArray bytes = TestEnv::readFile(tool);
        const QByteArray shebang = "#!" + stub.toUtf8();
        bytes.replace(0, bytes.indexOf('\n'), shebang);
        QVERIFY(TestEnv::writeFile(tool, bytes));
        struct stat before {};
        ::stat(QFile::encodeName(tool).constData(), &before);

        const auto result = vtest::await(EngineBytecode::add(tool));
        QCOMPARE(int(result.outcome), int(EngineBytecode::Outcome::failed));
        QCOMPARE(result.error, error);
        struct stat after {};
        ::stat(QFile::encodeName(tool).constData(), &after);
        QCOMPARE(after.st_ino, before.st_ino);
        QCOMPARE(TestEnv::readFile(tool), bytes);
        QVERIFY(TestEnv::filesContaining(m_dir, QStringLiteral(".vorlix-")).isEmpty());
        QString err;
        QVERIFY(TestEnv::runTool(tool, {QStringLiteral("--version")}, &err));
    }

    void notAZip() {
        const QString tool = TestEnv::writeScript(m_dir + QStringLiteral("/yt-dlp"), QStringLiteral("#!/usr/bin/env python3\nprint(1)\n"));
        const QByteArray bytes = TestEnv::readFile(tool);
        QCOMPARE(int(vtest::await(EngineBytecode::add(tool)).outcome), int(EngineBytecode::Outcome::notApplicable));
        QCOMPARE(TestEnv::readFile(tool), bytes);
        QVERIFY(TestEnv::filesContaining(m_dir, QStringLiteral(".vorlix-")).isEmpty());
    }
};

VORLIX_TEST_SUITE(EngineBytecodeTest)
#include "EngineBytecodeTest.moc"
