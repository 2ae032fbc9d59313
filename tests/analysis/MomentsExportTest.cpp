#include "MomentsMedia.h"
#include "TestEnv.h"
#include "TestMain.h"

#include "analysis/MomentsExport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <memory>

using MomentsEngine::Aspect;

namespace {

QList<Moment> momentsAt(const QList<double> &times) {
    QList<Moment> out;
    for (double t : times) {
        out.append(Moment());
        out.last().time = t;
    }
    return out;
}

MomentsExport::Choices choicesFor(const QString &video, const QList<double> &times, double length, Aspect aspect,
                                  bool deleteAfter, std::optional<PracticeMode::BeatGrid> grid = std::nullopt) {
    MomentsExport::Choices c;
    c.video = video;
    c.moments = momentsAt(times);
    c.clipLength = length;
    c.aspect = aspect;
    c.deleteVideoAfter = deleteAfter;
    c.beatGrid = grid;
    return c;
}

struct Outcome {
    QString message;
    QString folder;
    QStringList statuses;
};

Outcome runExport(MomentsExport::Choices choices, bool clips, bool stills, bool gifs) {
    MomentsExport run(std::move(choices));
    QSignalSpy finished(&run, &MomentsExport::finished);
    QSignalSpy statuses(&run, &MomentsExport::statusTextChanged);
    run.start(clips, stills, gifs);
    [&] { QVERIFY(run.isExporting()); }();
    run.start(clips, stills, gifs); // a second press while running is ignored
    Outcome out;
    [&] { QVERIFY(finished.wait(240000)); }();
    if (finished.isEmpty())
        return out;
    [&] { QCOMPARE(finished.size(), 1); }();
    out.message = finished.first().at(0).toString();
    out.folder = finished.first().at(1).toString();
    for (const auto &args : statuses)
        out.statuses << args.at(0).toString();
    [&] { QVERIFY(!run.isExporting()); }();
    return out;
}

} // namespace

class MomentsExportTest : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

private Q_SLOTS:
    void names() {
        QCOMPARE(MomentsExport::productName(QStringLiteral("Song Title"), 3, Aspect::vertical),
                 QStringLiteral("Song Title — Moment 03 (Reels 9x16)"));
        QCOMPARE(MomentsExport::productName(QStringLiteral("Song"), 12, Aspect::square),
                 QStringLiteral("Song — Moment 12 (Square 1x1)"));
        QCOMPARE(MomentsExport::productName(QStringLiteral("Song"), 1, Aspect::original), QStringLiteral("Song — Moment 01"));
        QCOMPARE(MomentsExport::savedMessage(1, QStringLiteral("/a/Song — Moments")), QStringLiteral("Saved 1 file to Song — Moments"));
        QCOMPARE(MomentsExport::savedMessage(0, QStringLiteral("/a/Song — Moments")), QStringLiteral("Saved 0 files to Song — Moments"));
        QCOMPARE(MomentsExport::savedMessage(7, QStringLiteral("/a/B — Moments")), QStringLiteral("Saved 7 files to B — Moments"));
    }

    void verticalClipsGifsAndStills() {
        const QString video = m_dir.filePath(QStringLiteral("Band Live [abcdefgh].mp4"));
        QVERIFY(MomentsMedia::videoWithAudio(video, 8, QStringLiteral("640x360")));
        const auto choices = choicesFor(video, {1.0, 4.5}, 2.0, Aspect::vertical, true);
        const Outcome out = runExport(choices, true, true, true);
        const QString folder = m_dir.filePath(QStringLiteral("Band Live — Moments"));
        QCOMPARE(out.folder, folder);
        QCOMPARE(out.message, QStringLiteral("Saved 6 files to Band Live — Moments"));
        QCOMPARE(out.statuses, (QStringList{QStringLiteral("Saving 1 of 2…"), QStringLiteral("Saving 2 of 2…"), QString()}));
        QStringList files = QDir(folder).entryList(QDir::Files, QDir::Name);
        QCOMPARE(files, (QStringList{QStringLiteral("Band Live — Moment 01 (Reels 9x16).gif"),
                                     QStringLiteral("Band Live — Moment 01 (Reels 9x16).mp4"),
                                     QStringLiteral("Band Live — Moment 01 (Reels 9x16).png"),
                                     QStringLiteral("Band Live — Moment 02 (Reels 9x16).gif"),
                                     QStringLiteral("Band Live — Moment 02 (Reels 9x16).mp4"),
                                     QStringLiteral("Band Live — Moment 02 (Reels 9x16).png")}));
        const QString clip = folder + QStringLiteral("/Band Live — Moment 02 (Reels 9x16).mp4");
        QVERIFY(std::abs(MomentsMedia::duration(clip).value_or(0) - 2.0) < 0.1);
        QCOMPARE(MomentsMedia::frameSize(clip), QStringLiteral("202x360"));
        // Stills keep the full frame.
        QCOMPARE(MomentsMedia::frameSize(folder + QStringLiteral("/Band Live — Moment 01 (Reels 9x16).png")),
                 QStringLiteral("640x360"));
        const QString gif = folder + QStringLiteral("/Band Live — Moment 01 (Reels 9x16).gif");
        QCOMPARE(MomentsMedia::probe(gif, {QStringLiteral("-select_streams"), QStringLiteral("v:0"),
                                           QStringLiteral("-count_frames"), QStringLiteral("-show_entries"),
                                           QStringLiteral("stream=r_frame_rate,nb_read_frames,width")}),
                 QStringLiteral("480\n12/1\n24"));
        // Clips were made, so the full video goes.
        QVERIFY(!QFileInfo::exists(video));
        QVERIFY(TestEnv::filesContaining(TestEnv::root(), QStringLiteral("vorlix-")).isEmpty());
    }

    void squareClipKeepsVideoUnlessAsked() {
        const QString video = m_dir.filePath(QStringLiteral("Square.mp4"));
        QVERIFY(MomentsMedia::videoWithAudio(video, 5, QStringLiteral("640x360")));
        const Outcome out = runExport(choicesFor(video, {1.0}, 1.5, Aspect::square, false), true, false, false);
        QCOMPARE(out.message, QStringLiteral("Saved 1 file to Square — Moments"));
        const QString clip = m_dir.filePath(QStringLiteral("Square — Moments/Square — Moment 01 (Square 1x1).mp4"));
        QCOMPARE(MomentsMedia::frameSize(clip), QStringLiteral("360x360"));
        QVERIFY(std::abs(MomentsMedia::duration(clip).value_or(0) - 1.5) < 0.1);
        QVERIFY(QFileInfo::exists(video));
    }

    void stillsOnlyNeverDeleteTheVideo() {
        const QString video = m_dir.filePath(QStringLiteral("Stills.mp4"));
        QVERIFY(MomentsMedia::videoWithAudio(video, 4, QStringLiteral("320x180")));
        const Outcome out = runExport(choicesFor(video, {0.5, 1.5, 2.5}, 2.0, Aspect::original, true), false, true, false);
        QCOMPARE(out.message, QStringLiteral("Saved 3 files to Stills — Moments"));
        QVERIFY(QFileInfo::exists(m_dir.filePath(QStringLiteral("Stills — Moments/Stills — Moment 03.png"))));
        QVERIFY(QFileInfo::exists(video));
    }

    void cutOnTheBeat() {
        // Brightness grows with time, so a frame tells when it was taken.
        const QString video = m_dir.filePath(QStringLiteral("Beat.mp4"));
        QVERIFY(MomentsMedia::ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                      QStringLiteral("color=c=white:s=160x90:r=25:d=8,fade=t=in:st=0:d=8"),
                                      QStringLiteral("-c:v"), QStringLiteral("libx264"), QStringLiteral("-preset"),
                                      QStringLiteral("ultrafast"), video}));
        // 30 BPM from 0.5 s: a moment at 3.4 s starts at 2.5 s and 3.2 s of clip become two
        // beats (4.0 s); the still stays at 3.4 s.
        const auto choices = choicesFor(video, {3.4}, 3.2, Aspect::original, false, PracticeMode::BeatGrid{30.0, 0.5});
        const Outcome out = runExport(choices, true, true, false);
        QCOMPARE(out.message, QStringLiteral("Saved 2 files to Beat — Moments"));
        const QString clip = m_dir.filePath(QStringLiteral("Beat — Moments/Beat — Moment 01.mp4"));
        QVERIFY(std::abs(MomentsMedia::duration(clip).value_or(0) - 4.0) < 0.08);
        const QString first = m_dir.filePath(QStringLiteral("first.png"));
        const QString atSnap = m_dir.filePath(QStringLiteral("snap.png"));
        QVERIFY(MomentsMedia::ffmpeg({QStringLiteral("-i"), clip, QStringLiteral("-frames:v"), QStringLiteral("1"), first}));
        QVERIFY(MomentsMedia::ffmpeg({QStringLiteral("-ss"), QStringLiteral("2.500"), QStringLiteral("-i"), video,
                                      QStringLiteral("-frames:v"), QStringLiteral("1"), atSnap}));
        const QString still = m_dir.filePath(QStringLiteral("Beat — Moments/Beat — Moment 01.png"));
        const double toSnap = MomentsMedia::meanDifference(first, atSnap);
        const double toStill = MomentsMedia::meanDifference(first, still);
        QVERIFY2(toSnap < 3.0 && toStill > 10.0, qPrintable(QStringLiteral("%1 %2").arg(toSnap).arg(toStill)));
    }

    void everythingFailing() {
        const QString video = m_dir.filePath(QStringLiteral("Broken.mp4"));
        QVERIFY(TestEnv::writeFile(video, "not a video\n"));
        const Outcome out = runExport(choicesFor(video, {1.0, 2.0}, 2.0, Aspect::original, true), true, true, true);
        QCOMPARE(out.message, QStringLiteral("Saved 0 files to Broken — Moments"));
        QVERIFY(QFileInfo::exists(video));
        QVERIFY(QDir(out.folder).entryList(QDir::Files).isEmpty());
    }

    void deletedWhileRunning() {
        const QString video = m_dir.filePath(QStringLiteral("Gone.mp4"));
        QVERIFY(MomentsMedia::videoWithAudio(video, 4, QStringLiteral("320x180")));
        auto run = std::make_unique<MomentsExport>(choicesFor(video, {1.0, 2.0}, 1.0, Aspect::original, true));
        run->start(true, false, false);
        run.reset();
        // The pending ffmpeg run finishes into a run that no longer has an owner.
        QTest::qWait(4000);
        QVERIFY(QFileInfo::exists(video));
    }
};

VORLIX_TEST_SUITE(MomentsExportTest)
#include "MomentsExportTest.moc"
