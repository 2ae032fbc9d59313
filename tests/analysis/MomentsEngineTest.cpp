#include "Await.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "analysis_music.h"

#include "analysis/MomentsEngine.h"
#include "analysis/MomentsExport.h"
#include "core/AppSettings.h"
#include "engine/Tools.h"

#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <memory>

using MomentsEngine::Aspect;
using MomentsEngine::Candidate;
using MomentsEngine::Fingerprint;

namespace {

// Hard cuts between lavfi sources ("name" or "name=options[,filters]"), `seconds` each, 320x180.
bool makeCutsVideo(const QString &path, const QStringList &sources, double seconds) {
    QStringList args;
    QString graph;
    for (qsizetype i = 0; i < sources.size(); ++i) {
        QString source = sources[i]; // the size goes with the source's own options, before any filter
        const qsizetype end = source.contains(u',') ? source.indexOf(u',') : source.size();
        source.insert(end, (source.left(end).contains(u'=') ? u':' : u'=') + QStringLiteral("s=320x180:r=25"));
        args << QStringLiteral("-f") << QStringLiteral("lavfi") << QStringLiteral("-i") << source;
        graph += QStringLiteral("[%1:v]trim=duration=%2,setpts=PTS-STARTPTS,setsar=1,format=yuv420p[v%1];").arg(i).arg(seconds);
    }
    for (qsizetype i = 0; i < sources.size(); ++i)
        graph += QStringLiteral("[v%1]").arg(i);
    return TestEnv::runFfmpeg(args << QStringLiteral("-filter_complex") << graph + QStringLiteral("concat=n=%1:v=1:a=0[out]").arg(sources.size())
                                     << QStringLiteral("-map") << QStringLiteral("[out]") << QStringLiteral("-c:v") << QStringLiteral("libx264")
                                     << QStringLiteral("-preset") << QStringLiteral("ultrafast") << path);
}


QByteArray signatureOf(int r, int g, int b) { return QByteArray().append(char(r)).append(char(g)).append(char(b)).repeated(16); }


QStringList described(const QList<Candidate> &candidates) {
    QStringList out;
    for (const Candidate &c : candidates)
        out << QString::number(c.time) + u'@' + QString::number(c.score);
    return out;
}


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

class MomentsEngineTest : public QObject {
    Q_OBJECT
    QTemporaryDir m_media;
    QString m_cuts;

    QString media(const QString &name) const { return m_media.filePath(name); }
    QString video(const QString &name) const { return AnalysisMusic::copyOfRamp(media(name)); }

private Q_SLOTS:
    void initTestCase() {
        // Six distinct 2.4 s scenes (60 frames); the solid ones carry a box each, so they differ in shape too.
        m_cuts = media(QStringLiteral("cuts.mp4"));
        QVERIFY(makeCutsVideo(m_cuts,
                              {QStringLiteral("testsrc2"), QStringLiteral("smptebars"), QStringLiteral("mandelbrot"),
                               QStringLiteral("color=c=red,drawbox=x=10:y=10:w=120:h=70:c=white:t=fill"), QStringLiteral("rgbtestsrc"),
                               QStringLiteral("color=c=blue,drawbox=x=190:y=100:w=120:h=70:c=white:t=fill")},
                              2.4));
    }

    void labelsAndNames() {
        QCOMPARE(clockLabel(59.9) + u' ' + clockLabel(3600.0), QStringLiteral("0:59 1:00:00"));
        const std::tuple<const char *, int, QString> names[] = {
            {"/x/My Great Song [dQw4w9WgXcQ].mp4", 42, QStringLiteral("My Great Song")},
            {"/x/Song [HD].mp4", 42, QStringLiteral("Song [HD]")},
            {"/x/The quick brown fox jumps over the lazy dog again.mp4", 42, QStringLiteral("The quick brown fox jumps over the lazy")}, // the last late space
            {"/x/🎸🎸🎸🎸🎸 abcdefghij.mp4", 12, QStringLiteral("🎸🎸🎸🎸🎸 abcdef")}}; // the space, eleventh UTF-16 unit, is too early to cut at
        for (const auto &[path, max, expected] : names)
            QCOMPARE(MomentsEngine::shortName(QString::fromUtf8(path), max), expected);
    }

    void sceneScoreParsing() {
        // Unreadable scores keep the time pending, unreadable times clear it, the later time wins,
        // and a score with nothing pending is dropped.
        const QString output = QStringLiteral("[Parsed_metadata_2 @ 0x1] frame:0    pts:64000   pts_time:5\n[m] lavfi.scene_score=0.747871\n"
                                              "frame=    1 fps=0.0 time=00:00:05.04\r[m] frame:1 pts_time:10.5\n[m] lavfi.scene_score=oops\n"
                                              "[m] lavfi.scene_score=0.5\n[m] lavfi.scene_score=0.9\n[m] frame:2 pts_time:-1\n[m] lavfi.scene_score=0.8\n"
                                              "[m] frame:3 pts_time:20\n[m] frame:4 pts_time:21.25\n[m] lavfi.scene_score=1.000000\n");
        QCOMPARE(described(MomentsEngine::parseSceneScores(output)), (QStringList{QStringLiteral("5@0.747871"), QStringLiteral("10.5@0.5"), QStringLiteral("21.25@1")}));
    }

    // A soft cut (grey 0x40 to 0x60, scored 0.27) is a scene; a fainter one (to 0x56, 0.08) is not.
    void sceneScanThreshold() {
        const QString soft = media(QStringLiteral("soft.mp4"));
        QVERIFY(makeCutsVideo(soft, {QStringLiteral("color=c=0x404040"), QStringLiteral("color=c=0x606060"), QStringLiteral("color=c=0x565656")}, 1.0));
        const Tools::RunResult scan = vtest::await(Tools::run(TestEnv::ffmpeg(), MomentsEngine::sceneScanArguments(soft), 60));
        const QList<Candidate> cuts = MomentsEngine::parseSceneScores(scan.stderrText + u'\n' + scan.stdoutText);
        QVERIFY2(cuts.size() == 1 && cuts[0].time == 1.0 && cuts[0].score > 0.2 && cuts[0].score < 0.35, qPrintable(described(cuts).join(u' ')));
    }

    void candidatePool() {
        // No cuts in 60 s: spacing 2.0 s, margins 1.0 s and 57.0 s; the fill grid is 1.25 s, so
        // every other slot is too close to the previous pick.
        const QList<Candidate> even = MomentsEngine::pickCandidates({}, 60.0);
        QCOMPARE(even.size(), 23);
        for (qsizetype i = 0; i < even.size(); ++i)
            QVERIFY(even[i].score == 0.0 && even[i].time == 1.875 + 2.5 * double(i));
        // Margins are strict; strongest cuts first, then the fill.
        const QList<Candidate> pool = MomentsEngine::pickCandidates({{1.0, 0.9}, {1.01, 0.2}, {57.0, 0.8}, {56.99, 0.3}, {30.0, 0.5}}, 60.0);
        QCOMPARE(described(pool.mid(0, 3)), (QStringList{QStringLiteral("30@0.5"), QStringLiteral("56.99@0.3"), QStringLiteral("1.01@0.2")}));
        for (const Candidate &c : pool.mid(3))
            QVERIFY(c.score == 0.0 && c.time > 1.0 && c.time < 57.0);
        // 48 cuts within one second: only the strongest enters, the fill keeps its distance.
        QList<Candidate> cluster;
        for (int i = 0; i < 48; ++i)
            cluster.append({20.0 + i * 0.02, 0.2 + (i == 17 ? 0.7 : 0.01 * (i % 5))});
        const QList<Candidate> one = MomentsEngine::pickCandidates(cluster, 60.0);
        QVERIFY(one[0].time == 20.0 + 17 * 0.02 && qFuzzyCompare(one[0].score, 0.9));
        for (qsizetype i = 1; i < one.size(); ++i)
            QVERIFY(one[i].score == 0.0 && std::abs(one[i].time - one[0].time) >= 2.0);
    }

    void nearDuplicateRule() {
        const QByteArray close = signatureOf(100, 100, 113); // mean difference 13/3
        const QByteArray far = signatureOf(180, 20, 255);
        const std::tuple<int, QByteArray, bool> rows[] = {{11, far, true},   {12, close, true},  {12, far, false}, {17, close, true},
                                                          {18, signatureOf(100, 100, 100), false}, {12, QByteArray(), false},
                                                          {12, signatureOf(114, 114, 114), false}}; // mean exactly 14
        const quint64 a = 0x0123456789abcdefULL;
        for (const auto &[bits, signature, duplicate] : rows)
            QVERIFY2(MomentsEngine::isNearDuplicate(a, signatureOf(100, 100, 100), a ^ (((quint64(1) << bits) - 1) << 3), signature) == duplicate,
                     qPrintable(QStringLiteral("%1 bits").arg(bits)));
    }

    void selection() {
        // Every thumbnail alike: one accepted, four more from the reserve by score.
        QList<Fingerprint> alike;
        const double scores[] = {0.0, 0.3, 0.1, 0.5, 0.0, 0.4, 0.2};
        for (int i = 0; i < 7; ++i)
            alike.append({{QUuid(), 10.0 * i, scores[i], {}}, 0xF0F0F0F0F0F0F0F0ULL, signatureOf(50, 50, 50)});
        QList<double> seen;
        QCOMPARE(MomentsEngine::selectDistinct(alike, [&](const Moment &m) { seen.append(m.time); }).size(), 5);
        QCOMPARE(seen, (QList<double>{0.0, 30.0, 50.0, 10.0, 60.0}));
    }

    void hashAndSignatureOfPictures() {
        // Brightness falls from left to right: every pixel is brighter than its right neighbour.
        const QString ramp = media(QStringLiteral("ramp.jpg")), red = media(QStringLiteral("red.jpg"));
        for (const auto &[source, path] : {std::pair{QStringLiteral("nullsrc=s=480x270,geq=lum='255-X*255/W':cb=128:cr=128"), ramp}, {QStringLiteral("color=c=red:s=480x270"), red}})
            QVERIFY(TestEnv::runFfmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"), source, QStringLiteral("-frames:v"), QStringLiteral("1"), path}));
        QCOMPARE(MomentsEngine::dHash(ramp), std::optional<quint64>(~quint64(0)));
        QCOMPARE(MomentsEngine::dHash(red), std::optional<quint64>(0));
        const QByteArray signature = MomentsEngine::colorSignature(red).value_or(QByteArray());
        QCOMPARE(signature.size(), 48); // 16 red pixels
        QVERIFY(quint8(signature[45]) > 230 && quint8(signature[46]) < 25 && quint8(signature[47]) < 25);
        QVERIFY(TestEnv::writeFile(media(QStringLiteral("garbage.jpg")), QByteArray(5000, '\xff')));
        for (const QString &path : {media(QStringLiteral("garbage.jpg")), media(QStringLiteral("missing.jpg"))})
            QVERIFY2(!MomentsEngine::dHash(path) && !MomentsEngine::colorSignature(path), qPrintable(path));
    }

    void analyzesHardCuts() {
        QList<Moment> announced;
        const QList<Moment> moments = vtest::await(MomentsEngine::analyze(m_cuts, [&](const Moment &m) { announced.append(m); }));
        QCOMPARE(announced.size(), moments.size());
        QStringList cuts;
        for (qsizetype i = 0; i < moments.size(); ++i) {
            const Moment &m = moments[i];
            QVERIFY(i == 0 || moments[i - 1].time <= m.time);
            QVERIFY(m.time > 0.288 && m.time < 11.4 && m.thumbnail && QFileInfo::exists(*m.thumbnail));
            if (m.score > 0.12)
                cuts << QString::number(m.time, 'f', 1);
        }
        // Every cut inside the margins, where the scenes change (12.0 s is past the end margin).
        QCOMPARE(cuts, (QStringList{QStringLiteral("2.4"), QStringLiteral("4.8"), QStringLiteral("7.2"), QStringLiteral("9.6")}));
    }

    // Through a stand-in ffmpeg that reports a duration and fails everything else.
    void shortestAnalysedVideo() {
        for (const auto &[duration, scanned] : {std::pair{"00:00:04.00", false}, {"00:00:04.10", true}}) {
            const QString fake = TestEnv::standIn(QStringLiteral("moments-ffmpeg"),
                                                  QStringLiteral("echo '  Duration: %1, start: 0' >&2\nexit 1").arg(QLatin1String(duration)));
            int calls = 0;
            QVERIFY(vtest::await(MomentsEngine::analyze(m_cuts, [&](const Moment &) { ++calls; }, fake, AppSettings::appSupportDir())).isEmpty());
            QCOMPARE(calls, 0);
            QStringList expected{QStringLiteral("-i"), m_cuts};
            if (scanned) // and one slot inside the margins (0.082 s, 1.1 s), at 0.128 s, whose thumbnail fails
                expected << MomentsEngine::sceneScanArguments(m_cuts) << QStringLiteral("-ss") << QStringLiteral("0.128");
            QCOMPARE(TestEnv::standInArgs(QStringLiteral("moments-ffmpeg")).mid(0, expected.size()), expected);
        }
        QVERIFY(vtest::await(MomentsEngine::analyze(m_cuts, {}, QString(), AppSettings::appSupportDir())).isEmpty()); // no ffmpeg
    }

    void verticalClipsGifsAndStills() {
        const QString source = video(QStringLiteral("Band Live [abcdefgh].mp4"));
        QCOMPARE(runExport(choicesFor(source, {1.0, 3.5}, 2.0, Aspect::vertical, true), true, true, true),
                 (QStringList{QStringLiteral("Saved 6 files to Band Live — Moments"), QStringLiteral("Saving 1 of 2…"), QStringLiteral("Saving 2 of 2…"), QString()}));
        const QString stem = media(QStringLiteral("Band Live — Moments/Band Live — Moment 02 (Reels 9x16)."));
        QVERIFY(std::abs(AnalysisMusic::duration(stem + QStringLiteral("mp4")) - 2.0) < 0.1);
        QCOMPARE(AnalysisMusic::frameSize(stem + QStringLiteral("mp4")), QStringLiteral("202x360"));
        QCOMPARE(AnalysisMusic::frameSize(stem + QStringLiteral("png")), QStringLiteral("640x360")); // stills keep the frame
        QCOMPARE(AnalysisMusic::probe(stem + QStringLiteral("gif"), QStringLiteral("stream=r_frame_rate,nb_read_frames,width"), QStringLiteral("v:0")),
                 QStringLiteral("480\n12/1\n24"));
        QVERIFY(!QFileInfo::exists(source)); // clips were made, so the full video goes
        QVERIFY(TestEnv::filesContaining(TestEnv::root(), QStringLiteral("vorlix-")).isEmpty());
    }

    // The video stays unless asked, and never for stills alone.
    void keepingTheVideoAndCuttingOnTheBeat() {
        // 40 BPM from 0.5 s: a moment at 2.6 s starts on the beat at 2.0 s and 2.0 s of clip
        // become one beat (1.5 s); the still stays at 2.6 s.
        const QString beat = video(QStringLiteral("Beat.mp4"));
        const auto choices = choicesFor(beat, {2.6}, 2.0, Aspect::square, false, PracticeMode::BeatGrid{40.0, 0.5});
        QCOMPARE(runExport(choices, true, true, false).value(0), QStringLiteral("Saved 2 files to Beat — Moments"));
        const QString stem = media(QStringLiteral("Beat — Moments/Beat — Moment 01 (Square 1x1)."));
        QCOMPARE(AnalysisMusic::frameSize(stem + QStringLiteral("mp4")), QStringLiteral("360x360"));
        QVERIFY(std::abs(AnalysisMusic::duration(stem + QStringLiteral("mp4")) - 1.5) < 0.08);
        const double clipStart = AnalysisMusic::brightness(stem + QStringLiteral("mp4"));
        const double still = AnalysisMusic::brightness(stem + QStringLiteral("png"));
        QVERIFY2(std::abs(clipStart - AnalysisMusic::brightness(beat, 2.0)) < 3.0 && std::abs(still - AnalysisMusic::brightness(beat, 2.6)) < 3.0 &&
                     still - clipStart > 10.0,
                 qPrintable(QStringLiteral("%1 %2").arg(clipStart).arg(still)));
        const QString stills = video(QStringLiteral("Stills.mp4"));
        QCOMPARE(runExport(choicesFor(stills, {0.5, 2.5}, 2.0, Aspect::original, true), false, true, false).value(0), QStringLiteral("Saved 2 files to Stills — Moments"));
        QVERIFY(QFileInfo::exists(beat) && QFileInfo::exists(stills));
        const QString broken = media(QStringLiteral("Broken.mp4"));
        QVERIFY(TestEnv::writeFile(broken, "not a video\n"));
        QCOMPARE(runExport(choicesFor(broken, {1.0, 2.0}, 2.0, Aspect::original, true), true, true, true).value(0), QStringLiteral("Saved 0 files to Broken — Moments"));
        QVERIFY(QFileInfo::exists(broken) && QDir(media(QStringLiteral("Broken — Moments"))).isEmpty());
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
        QTRY_VERIFY(QDir(media(QStringLiteral("Gone — Moments"))).entryList(QDir::Files).isEmpty());
        QVERIFY(QFileInfo::exists(source));
    }
};

VORLIX_TEST_SUITE(MomentsEngineTest)
#include "MomentsEngineTest.moc"
