#include "TestEnv.h"
#include "TestMain.h"
#include "analysis_music.h"

#include "analysis/MomentsExport.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <memory>

using MomentsEngine::Aspect;

namespace {

MomentsExport::Choices choicesFor(const QString &video, const QList<double> &times, double length, Aspect aspect, bool deleteAfter,
                                  std::optional<PracticeMode::BeatGrid> grid = std::nullopt) {
    MomentsExport::Choices c{video, {}, length, aspect, deleteAfter, grid};
    for (double t : times)
        c.moments.append(Moment{QUuid(), t, 0, {}});
    return c;
}

// The finished message, and every status text on the way ("" when it never finished).
QStringList runExport(MomentsExport::Choices choices, bool clips, bool stills, bool gifs) {
    MomentsExport run(std::move(choices));
    QSignalSpy finished(&run, &MomentsExport::finished);
    QSignalSpy statuses(&run, &MomentsExport::statusTextChanged);
    run.start(clips, stills, gifs);
    run.start(clips, stills, gifs); // a second press while running is ignored
    QStringList out{finished.wait(240000) && !run.isExporting() && finished.size() == 1 ? finished.first().at(0).toString() : QString()};
    for (const auto &args : statuses)
        out << args.at(0).toString();
    return out;
}

// Child processes of this test still running (ffmpeg runs a cancelled export left behind).
int childProcesses() {
    int count = 0;
    for (const QString &task : QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot))
        count += int(QString::fromLatin1(TestEnv::readFile(QStringLiteral("/proc/self/task/%1/children").arg(task))).split(u' ', Qt::SkipEmptyParts).size());
    return count;
}

} // namespace

class MomentsExportTest : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

    QString video(const QString &name) { return AnalysisMusic::copyOfRamp(m_dir.filePath(name)); }

private Q_SLOTS:
    void verticalClipsGifsAndStills() {
        QCOMPARE(MomentsExport::savedMessage(1, QStringLiteral("/a/Song — Moments")), QStringLiteral("Saved 1 file to Song — Moments"));
        const QString source = video(QStringLiteral("Band Live [abcdefgh].mp4"));
        QCOMPARE(runExport(choicesFor(source, {1.0, 3.5}, 2.0, Aspect::vertical, true), true, true, true),
                 (QStringList{QStringLiteral("Saved 6 files to Band Live — Moments"), QStringLiteral("Saving 1 of 2…"), QStringLiteral("Saving 2 of 2…"), QString()}));
        const QString folder = m_dir.filePath(QStringLiteral("Band Live — Moments"));
        QStringList expected;
        for (const char *n : {"01", "02"})
            for (const char *ext : {"gif", "mp4", "png"})
                expected << QStringLiteral("Band Live — Moment %1 (Reels 9x16).%2").arg(QLatin1String(n), QLatin1String(ext));
        QCOMPARE(QDir(folder).entryList(QDir::Files, QDir::Name), expected);
        const QString stem = folder + QStringLiteral("/Band Live — Moment 02 (Reels 9x16).");
        QVERIFY(std::abs(AnalysisMusic::duration(stem + QStringLiteral("mp4")) - 2.0) < 0.1);
        QCOMPARE(AnalysisMusic::frameSize(stem + QStringLiteral("mp4")), QStringLiteral("202x360"));
        QCOMPARE(AnalysisMusic::frameSize(stem + QStringLiteral("png")), QStringLiteral("640x360")); // stills keep the frame
        QCOMPARE(AnalysisMusic::probe(stem + QStringLiteral("gif"), QStringLiteral("stream=r_frame_rate,nb_read_frames,width"), QStringLiteral("v:0")),
                 QStringLiteral("480\n12/1\n24"));
        QVERIFY(!QFileInfo::exists(source)); // clips were made, so the full video goes
        QVERIFY(TestEnv::filesContaining(TestEnv::root(), QStringLiteral("vorlix-")).isEmpty());
    }

    // The video stays unless asked, and never for stills alone.
    void keepingTheVideo() {
        const QString square = video(QStringLiteral("Square.mp4"));
        QCOMPARE(runExport(choicesFor(square, {1.0}, 1.5, Aspect::square, false), true, false, false).value(0), QStringLiteral("Saved 1 file to Square — Moments"));
        QCOMPARE(AnalysisMusic::frameSize(m_dir.filePath(QStringLiteral("Square — Moments/Square — Moment 01 (Square 1x1).mp4"))), QStringLiteral("360x360"));
        const QString stills = video(QStringLiteral("Stills.mp4"));
        QCOMPARE(runExport(choicesFor(stills, {0.5, 2.5}, 2.0, Aspect::original, true), false, true, false).value(0), QStringLiteral("Saved 2 files to Stills — Moments"));
        QVERIFY(QFileInfo::exists(square) && QFileInfo::exists(stills));
        const QString broken = m_dir.filePath(QStringLiteral("Broken.mp4"));
        QVERIFY(TestEnv::writeFile(broken, "not a video\n"));
        QCOMPARE(runExport(choicesFor(broken, {1.0, 2.0}, 2.0, Aspect::original, true), true, true, true).value(0), QStringLiteral("Saved 0 files to Broken — Moments"));
        QVERIFY(QFileInfo::exists(broken) && QDir(m_dir.filePath(QStringLiteral("Broken — Moments"))).isEmpty());
    }

    void cutOnTheBeat() {
        const QString source = video(QStringLiteral("Beat.mp4"));
        // 40 BPM from 0.5 s: a moment at 2.6 s starts on the beat at 2.0 s and 2.0 s of clip
        // become one beat (1.5 s); the still stays at 2.6 s.
        const auto choices = choicesFor(source, {2.6}, 2.0, Aspect::original, false, PracticeMode::BeatGrid{40.0, 0.5});
        QCOMPARE(runExport(choices, true, true, false).value(0), QStringLiteral("Saved 2 files to Beat — Moments"));
        const QString stem = m_dir.filePath(QStringLiteral("Beat — Moments/Beat — Moment 01."));
        QVERIFY(std::abs(AnalysisMusic::duration(stem + QStringLiteral("mp4")) - 1.5) < 0.08);
        const double clipStart = AnalysisMusic::brightness(stem + QStringLiteral("mp4"));
        const double still = AnalysisMusic::brightness(stem + QStringLiteral("png"));
        QVERIFY2(std::abs(clipStart - AnalysisMusic::brightness(source, 2.0)) < 3.0 && std::abs(still - AnalysisMusic::brightness(source, 2.6)) < 3.0 &&
                     still - clipStart > 10.0,
                 qPrintable(QStringLiteral("%1 %2").arg(clipStart).arg(still)));
    }

    // The run outlives its owner: its ffmpeg is stopped, the half-written clip goes, the video stays.
    void deletedWhileRunning() {
        const int before = childProcesses();
        const QString source = video(QStringLiteral("Gone.mp4"));
        auto run = std::make_unique<MomentsExport>(choicesFor(source, {1.0, 2.0}, 1.0, Aspect::original, true));
        run->start(true, false, false);
        QVERIFY(childProcesses() > before); // the first clip's ffmpeg
        run.reset();
        QTRY_COMPARE(childProcesses(), before);
        QTRY_VERIFY(QDir(m_dir.filePath(QStringLiteral("Gone — Moments"))).entryList(QDir::Files).isEmpty());
        QVERIFY(QFileInfo::exists(source));
    }
};

VORLIX_TEST_SUITE(MomentsExportTest)
#include "MomentsExportTest.moc"
