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

#include <memory>

using namespace Qt::StringLiterals;

namespace {
// Single-quoted for /bin/sh.
QString quoted(const QString &text) { return u'\'' + QString(text).replace(u"'"_s, u"'\\''"_s) + u'\''; }
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

// Keeping the downloader current: self-updates, and the bytecode added to a release.
class SelfHealerTest : public QObject {
    Q_OBJECT
    QString m_bytecodeDir;
    QString m_release; // made once: re-packing the engine is slow
    QString m_dir;
    QString m_tool;
    double m_now = 1'800'000'000;
    std::unique_ptr<AppSettings> m_settings;
    int m_case = 0;

    std::unique_ptr<SelfHealer> makeHealer(const QString &tool) {
        return std::make_unique<SelfHealer>(*m_settings, [tool] { return tool; }, [this] { return m_now; });
    }

    // The recording stand-in downloader; every call passes exactly one argument.
    void writeDownloader(const QString &version, const QString &updateOut = {}, const QString &updateErr = {}, int updateStatus = 0,
                         double firstUpdateSleep = 0, const QString &versionAfter = {}) {
        const QString state = quoted(m_dir + u"/updated"_s);
        m_tool = TestEnv::standIn(u"yt-dlp"_s,
            QStringLiteral("case \"$1\" in\n"
                           "--version) if [ -e %1 ]; then printf '%s' %2; else printf '%s' %3; fi; exit 0;;\n"
                           "-U) [ -e %1 ] || sleep %4; printf '%s' %5; printf '%s' %6 >&2; touch %1; exit %7;;\n"
                           "esac\nexit 2")
                .arg(state, quoted(versionAfter.isNull() ? version : versionAfter), quoted(version))
                .arg(firstUpdateSleep).arg(quoted(updateOut), quoted(updateErr)).arg(updateStatus));
        QVERIFY(!m_tool.isEmpty());
    }
    static int calls(const QString &argument) { return int(TestEnv::standInArgs(u"yt-dlp"_s).count(argument)); }

private Q_SLOTS:
    void initTestCase() {
        m_bytecodeDir = TestEnv::root() + u"/bytecode"_s;
        QDir().mkpath(m_bytecodeDir);
        m_release = m_bytecodeDir + u"/release"_s;
        runPython(releaseFrom, {Tools::packagedDir() + u"/yt-dlp"_s, m_release});
        QFile::setPermissions(m_release, QFile::permissions(m_release) | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther);
    }

    // On real yt-dlp code: a release zip gets its bytecode, keeps its mode and stays updatable.
    void addsBytecodeToARelease() {
        const QString tool = m_bytecodeDir + u"/yt-dlp"_s;
        QVERIFY(QFile::copy(m_release, tool));
        const auto permissions = QFileInfo(tool).permissions();
        QCOMPARE(int(vtest::await(EngineBytecode::add(tool)).outcome), int(EngineBytecode::Outcome::added));
        // zip member names are stored as plain text
        QVERIFY(!TestEnv::readFile(m_release).contains(".pyc") && TestEnv::readFile(tool).count(".pyc") > 1000);
        QCOMPARE(runPython(inspect, {tool}), u"True zip None"_s);
        QCOMPARE(QFileInfo(tool).permissions(), permissions);
        QVERIFY(TestEnv::filesContaining(m_bytecodeDir, u".vorlix-"_s).isEmpty());
        QVERIFY(TestEnv::runTool(tool, {u"--version"_s}));
    }

    // A packing failure leaves the zip byte for byte and still running.
    void failureLeavesZip() {
        const QString stub = TestEnv::writeScript(m_bytecodeDir + u"/python3"_s,
            QStringLiteral("#!/bin/sh\nif [ \"$1\" = -I ]; then printf junk > \"$5\"; echo 'OSError: No space left' >&2; exit 1; fi\n"
                           "exec %1 \"$@\"\n").arg(python()));
        const QString tool = m_bytecodeDir + u"/failing"_s;
        QByteArray bytes = TestEnv::readFile(m_release);
        bytes.replace(0, bytes.indexOf('\n'), QByteArray("#!").append(stub.toUtf8()));
        QVERIFY(TestEnv::writeFile(tool, bytes));
        QFile::setPermissions(tool, QFile::permissions(tool) | QFile::ExeOwner);
        const auto result = vtest::await(EngineBytecode::add(tool));
        QCOMPARE(int(result.outcome), int(EngineBytecode::Outcome::failed));
        QCOMPARE(result.error, u"OSError: No space left"_s);
        QCOMPARE(TestEnv::readFile(tool), bytes);
        QVERIFY(TestEnv::filesContaining(m_bytecodeDir, u".vorlix-"_s).isEmpty());
        QVERIFY(TestEnv::runTool(tool, {u"--version"_s}));
    }

    void init() {
        m_dir = TestEnv::root() + u"/healer-"_s + QString::number(++m_case);
        QDir().mkpath(m_dir);
        m_settings = std::make_unique<AppSettings>(m_dir + u"/settings.ini"_s);
        m_now = 1'800'000'000;
    }

    // One row per way the answer is read: which phrase, on which stream, which wins, their case.
    void updateOutcomes_data() {
        QTest::addColumn<QString>("out");
        QTest::addColumn<QString>("err");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("result");
        QTest::addColumn<bool>("updated");
        QTest::newRow("up to date") << u"Latest version: 2025.01.01\nyt-dlp is up to date (2025.01.01)\n"_s
                                    << QString() << 0 << u"Engine up to date"_s << false;
        QTest::newRow("updated, told on stderr, bad status")
            << QString() << u"Updated yt-dlp to 2025.02.01"_s << 1 << u"Engine updated"_s << true;
        QTest::newRow("both phrases: the update wins")
            << u"yt-dlp is up to date\nUpdated yt-dlp to 2"_s << QString() << 0 << u"Engine updated"_s << true;
        QTest::newRow("error, failed status") << QString() << u"ERROR: Unable to obtain version info"_s << 1
                                              << u"Update check finished"_s << false;
        QTest::newRow("phrases are case-sensitive") << u"YT-DLP IS UP TO DATE; updated YT-DLP TO 2"_s << QString()
                                                   << 0 << u"Update check finished"_s << false;
    }
    void updateOutcomes() {
        QFETCH(QString, out);
        QFETCH(QString, err);
        QFETCH(int, status);
        QFETCH(QString, result);
        writeDownloader(u"2025.01.01"_s, out, err, status, 0, u"2025.02.01\n"_s);
        auto healer = makeHealer(m_tool);

        QTEST(vtest::await(healer->updateEngine()), "updated");
        QCOMPARE(healer->lastUpdateResult(), std::optional<QString>(result));
        QVERIFY(!healer->isUpdating());
        QCOMPARE(m_settings->lastEngineUpdateCheck(), m_now);
        QCOMPARE(healer->engineVersion(), u"2025.02.01"_s); // the version is asked again after every update
    }

    void overlappingUpdatesRunOnce() {
        writeDownloader(u"1"_s, u"Updated yt-dlp to 2"_s, {}, 0, 0.5);
        auto healer = makeHealer(m_tool);
        auto first = healer->updateEngine();
        QVERIFY(healer->isUpdating());
        QCOMPARE(vtest::await(healer->updateEngine()), false);
        QVERIFY2(healer->isUpdating(), "the second caller must not wait for the running update");

        QCOMPARE(vtest::await(std::move(first)), true);
        QVERIFY(!healer->isUpdating());
        QCOMPARE(calls(u"-U"_s), 1);
        // Once it has finished, the next update runs again.
        QCOMPARE(vtest::await(healer->updateEngine()), true);
        QCOMPARE(calls(u"-U"_s), 2);
    }

    void destroyedWhileUpdating() {
        writeDownloader(u"1"_s, u"yt-dlp is up to date"_s, {}, 0, 0.5);
        auto healer = makeHealer(m_tool);
        auto task = healer->updateEngine();
        healer.reset();
        // The run finishes after its owner is gone; nothing may touch the dead object.
        QCOMPARE(vtest::await(std::move(task)), false);
    }

    void cleanupTestCase() { TestEnv::removeStubTool(u"yt-dlp"_s); }
};

VORLIX_TEST_SUITE(SelfHealerTest)
#include "SelfHealerTest.moc"
