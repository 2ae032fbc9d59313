#include "Await.h"
#include "MomentsMedia.h"
#include "TestEnv.h"
#include "TestMain.h"

#include "analysis/MomentsEngine.h"
#include "core/AppSettings.h"
#include "engine/Tools.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <bit>
#include <cmath>

using MomentsEngine::Aspect;
using MomentsEngine::Candidate;
using MomentsEngine::Fingerprint;

namespace {

// Twelve 5-second scenes, hard cuts between them. The solid colours carry a box each, at
// different places, so their thumbnails differ in shape and not only in colour.
bool makeCutsVideo(const QString &path) {
    const QString size = QStringLiteral("s=320x180:r=25");
    const auto solid = [&](const char *colour, int x, int y) {
        return QStringLiteral("color=c=%1:%2,drawbox=x=%3:y=%4:w=120:h=70:c=white:t=fill")
            .arg(QLatin1String(colour), size)
            .arg(x)
            .arg(y);
    };
    const QStringList sources{QStringLiteral("testsrc2=") + size,   QStringLiteral("smptebars=") + size,
                              QStringLiteral("mandelbrot=") + size, solid("red", 10, 10),
                              QStringLiteral("rgbtestsrc=") + size, solid("blue", 190, 100),
                              QStringLiteral("testsrc=") + size,    solid("yellow", 190, 10),
                              QStringLiteral("smptehdbars=") + size, solid("green", 10, 100),
                              QStringLiteral("pal100bars=") + size, QStringLiteral("yuvtestsrc=") + size};
    QStringList args;
    QString graph;
    for (qsizetype i = 0; i < sources.size(); ++i) {
        args << QStringLiteral("-f") << QStringLiteral("lavfi") << QStringLiteral("-i") << sources[i];
        graph += QStringLiteral("[%1:v]trim=duration=5,setpts=PTS-STARTPTS,setsar=1,format=yuv420p[v%1];").arg(i);
    }
    for (qsizetype i = 0; i < sources.size(); ++i)
        graph += QStringLiteral("[v%1]").arg(i);
    graph += QStringLiteral("concat=n=%1:v=1:a=0[out]").arg(sources.size());
    args << QStringLiteral("-filter_complex") << graph << QStringLiteral("-map") << QStringLiteral("[out]")
         << QStringLiteral("-c:v") << QStringLiteral("libx264") << QStringLiteral("-preset") << QStringLiteral("ultrafast")
         << path;
    return MomentsMedia::ffmpeg(args);
}

bool makeStaticVideo(const QString &path, double seconds) {
    return MomentsMedia::ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                 QStringLiteral("color=c=0x336699:s=160x90:r=25:d=%1").arg(seconds),
                                 QStringLiteral("-c:v"), QStringLiteral("libx264"), QStringLiteral("-preset"),
                                 QStringLiteral("ultrafast"), path});
}

bool makeJpeg(const QString &source, const QString &path, const QString &pixFmt = QStringLiteral("yuvj420p")) {
    return MomentsMedia::ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"), source,
                                 QStringLiteral("-frames:v"), QStringLiteral("1"), QStringLiteral("-pix_fmt"), pixFmt,
                                 QStringLiteral("-q:v"), QStringLiteral("5"), path});
}

QByteArray signatureOf(int r, int g, int b) {
    QByteArray s;
    for (int i = 0; i < 16; ++i)
        s.append(char(r)).append(char(g)).append(char(b));
    return s;
}

Fingerprint fingerprint(double time, double score, quint64 hash, const QByteArray &signature) {
    Fingerprint fp;
    fp.moment.time = time;
    fp.moment.score = score;
    fp.hash = hash;
    fp.signature = signature;
    return fp;
}

quint64 lowBits(int n) { return n >= 64 ? ~quint64(0) : (quint64(1) << n) - 1; }

} // namespace

class MomentsEngineTest : public QObject {
    Q_OBJECT
    QTemporaryDir m_media;
    QString m_cuts;

    QString media(const QString &name) const { return m_media.filePath(name); }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(m_media.isValid());
        m_cuts = media(QStringLiteral("cuts.mp4"));
        QVERIFY(makeCutsVideo(m_cuts));
    }

    void labelsAndNames() {
        const auto label = [](double seconds) {
            Moment m;
            m.time = seconds;
            return m.timeLabel();
        };
        QCOMPARE(label(59.9), QStringLiteral("0:59"));
        QCOMPARE(label(3600.0), QStringLiteral("1:00:00"));
        QCOMPARE(label(-3.0), QStringLiteral("0:00"));
        QCOMPARE(MomentsEngine::shortName(QStringLiteral("/x/My Great Song [dQw4w9WgXcQ].mp4"), 42), QStringLiteral("My Great Song"));
        QCOMPARE(MomentsEngine::shortName(QStringLiteral("/x/Song [HD].mp4"), 42), QStringLiteral("Song [HD]"));
        QCOMPARE(MomentsEngine::shortName(QStringLiteral("/x/The quick brown fox jumps over the lazy dog again.mp4"), 42),
                 QStringLiteral("The quick brown fox jumps over the lazy")); // cut at the last late space
        QCOMPARE(MomentsEngine::shortName(QStringLiteral("/x/Supercalifragilistic expialidociouswordthatgoesonandon.mp4"), 42),
                 QStringLiteral("Supercalifragilistic expialidociouswordtha"));
        // The space is the sixth character (eleventh UTF-16 unit): too early to cut at.
        QCOMPARE(MomentsEngine::shortName(QStringLiteral("/x/🎸🎸🎸🎸🎸 abcdefghij.mp4"), 12), QStringLiteral("🎸🎸🎸🎸🎸 abcdef"));
        QCOMPARE(MomentsEngine::parseDuration(QStringLiteral("Input #0\n  Duration: 00:01:00.04, start: 0.000000")), std::optional<double>(60.04));
        QCOMPARE(MomentsEngine::parseDuration(QStringLiteral("  Duration: N/A, bitrate: N/A")), std::nullopt);
        QCOMPARE(MomentsEngine::parseDuration(QStringLiteral("Invalid data found when processing input")), std::nullopt);
    }

    void sceneScoreParsing() {
        const QString output = QStringLiteral(
            "[Parsed_metadata_2 @ 0x1] frame:0    pts:64000   pts_time:5\n"
            "[Parsed_metadata_2 @ 0x1] lavfi.scene_score=0.747871\n"
            "frame=    1 fps=0.0 q=-0.0 size=N/A time=00:00:05.04\r[Parsed_metadata_2 @ 0x1] frame:1 pts_time:10.5\n"
            "[Parsed_metadata_2 @ 0x1] lavfi.scene_score=oops\n"        // unreadable: time stays pending
            "[Parsed_metadata_2 @ 0x1] lavfi.scene_score=0.5\n"         // pairs with 10.5
            "[Parsed_metadata_2 @ 0x1] lavfi.scene_score=0.9\n"         // nothing pending
            "[Parsed_metadata_2 @ 0x1] frame:2 pts_time:-1\n"           // unreadable time clears
            "[Parsed_metadata_2 @ 0x1] lavfi.scene_score=0.8\n"
            "[Parsed_metadata_2 @ 0x1] frame:3 pts_time:20\n"
            "[Parsed_metadata_2 @ 0x1] frame:4 pts_time:21.25\n"        // the later time wins
            "[Parsed_metadata_2 @ 0x1] lavfi.scene_score=1.000000\n");
        const QList<Candidate> scenes = MomentsEngine::parseSceneScores(output);
        QStringList got;
        for (const Candidate &c : scenes)
            got << QString::number(c.time) + u'@' + QString::number(c.score);
        QCOMPARE(got, (QStringList{QStringLiteral("5@0.747871"), QStringLiteral("10.5@0.5"), QStringLiteral("21.25@1")}));
    }

    void evenFillWithoutCuts() {
        // 60 s: spacing 2.0 s, margins 1.0 s and 57.0 s; the fill grid is 1.25 s, so every other
        // slot is too close to the previous pick.
        const QList<Candidate> pool = MomentsEngine::pickCandidates({}, 60.0);
        QCOMPARE(pool.size(), 23);
        for (qsizetype i = 0; i < pool.size(); ++i) {
            QCOMPARE(pool[i].score, 0.0);
            QCOMPARE(pool[i].time, 1.875 + 2.5 * double(i));
        }
    }

    void marginsAreStrict() {
        const QList<Candidate> scenes{{1.0, 0.9}, {1.01, 0.2}, {57.0, 0.8}, {56.99, 0.3}, {30.0, 0.5}};
        const QList<Candidate> pool = MomentsEngine::pickCandidates(scenes, 60.0);
        QCOMPARE(pool[0].time, 30.0);
        QCOMPARE(pool[1].time, 56.99);
        QCOMPARE(pool[2].time, 1.01);
        QCOMPARE(pool[3].score, 0.0);
        for (const Candidate &c : pool)
            QVERIFY(c.time > 1.0 && c.time < 57.0);
    }

    void clusterContributesOneCandidate() {
        QList<Candidate> cluster;
        for (int i = 0; i < 48; ++i)
            cluster.append({20.0 + i * 0.02, 0.2 + (i == 17 ? 0.7 : 0.01 * (i % 5))});
        const QList<Candidate> pool = MomentsEngine::pickCandidates(cluster, 60.0);
        QCOMPARE(pool[0].time, 20.0 + 17 * 0.02);
        QCOMPARE(pool[0].score, 0.9);
        for (qsizetype i = 1; i < pool.size(); ++i) {
            QCOMPARE(pool[i].score, 0.0);
            QVERIFY(std::abs(pool[i].time - pool[0].time) >= 2.0);
        }
    }

    void nearDuplicateRule_data() {
        QTest::addColumn<int>("bits");
        QTest::addColumn<QByteArray>("signatureB");
        QTest::addColumn<bool>("duplicate");
        const QByteArray close = signatureOf(100, 100, 113);   // mean difference 13/3
        const QByteArray far = signatureOf(180, 20, 255);
        QTest::newRow("11 bits, far colours") << 11 << far << true;
        QTest::newRow("12 bits, close colours") << 12 << close << true;
        QTest::newRow("12 bits, far colours") << 12 << far << false;
        QTest::newRow("18 bits, same colours") << 18 << signatureOf(100, 100, 100) << false;
        QTest::newRow("12 bits, no signature") << 12 << QByteArray() << false;
        QTest::newRow("12 bits, mean exactly 14") << 12 << signatureOf(114, 114, 114) << false;
    }
    void nearDuplicateRule() {
        QFETCH(int, bits);
        QFETCH(QByteArray, signatureB);
        QFETCH(bool, duplicate);
        const quint64 a = 0x0123456789abcdefULL;
        const quint64 b = a ^ (lowBits(bits) << 3 | lowBits(bits) >> 61);
        QCOMPARE(std::popcount(a ^ b), bits);
        QCOMPARE(MomentsEngine::isNearDuplicate(a, signatureOf(100, 100, 100), b, signatureB), duplicate);
    }

    void staticPoolTopsUpToFive() {
        // Every thumbnail alike: one accepted, four more from the reserve by score.
        QList<Fingerprint> pool;
        const double scores[] = {0.0, 0.3, 0.1, 0.5, 0.0, 0.4, 0.2};
        for (int i = 0; i < 7; ++i)
            pool.append(fingerprint(10.0 * i, scores[i], 0xF0F0F0F0F0F0F0F0ULL, signatureOf(50, 50, 50)));
        QList<double> seen;
        const QList<Moment> moments =
            MomentsEngine::selectDistinct(pool, [&](const Moment &m) { seen.append(m.time); });
        QCOMPARE(seen, (QList<double>{0.0, 30.0, 50.0, 10.0, 60.0}));
        QCOMPARE(moments.size(), 5);
    }

    void atMostTwentyDistinct() {
        QList<Fingerprint> pool;
        QRandomGenerator rng(7);
        QList<quint64> hashes;
        while (hashes.size() < 30) {
            const quint64 h = rng.generate64();
            if (std::all_of(hashes.cbegin(), hashes.cend(), [h](quint64 o) { return std::popcount(h ^ o) >= 18; }))
                hashes.append(h);
        }
        for (int i = 0; i < 30; ++i)
            pool.append(fingerprint(i, 1.0 - i * 0.01, hashes[i], signatureOf(i * 8, 0, 0)));
        int calls = 0;
        const QList<Moment> moments = MomentsEngine::selectDistinct(pool, [&](const Moment &) { ++calls; });
        QCOMPARE(moments.size(), 20);
        QCOMPARE(calls, 20);
        QCOMPARE(moments.last().time, 19.0);
    }

    void hashAndSignatureOfKnownPictures() {
        const QString ramp = media(QStringLiteral("ramp.jpg"));
        // Brightness falls from left to right: every pixel is brighter than its right neighbour.
        QVERIFY(MomentsMedia::ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                      QStringLiteral("nullsrc=s=480x270,geq=lum='255-X*255/W':cb=128:cr=128"),
                                      QStringLiteral("-frames:v"), QStringLiteral("1"), QStringLiteral("-pix_fmt"),
                                      QStringLiteral("yuvj420p"), ramp}));
        QCOMPARE(MomentsEngine::dHash(ramp), std::optional<quint64>(~quint64(0)));

        const QString red = media(QStringLiteral("red.jpg"));
        QVERIFY(makeJpeg(QStringLiteral("color=c=red:s=480x270"), red));
        const auto signature = MomentsEngine::colorSignature(red);
        QVERIFY(signature);
        QCOMPARE(signature->size(), 48);
        for (int i = 0; i < 48; ++i) // 16 red pixels
            QVERIFY(i % 3 == 0 ? quint8((*signature)[i]) > 230 : quint8((*signature)[i]) < 25);
        QCOMPARE(MomentsEngine::dHash(red), std::optional<quint64>(0));
    }

    void unreadableThumbnails() {
        const QString good = media(QStringLiteral("good.png"));
        QVERIFY(makeJpeg(QStringLiteral("testsrc2=s=480x270"), good, QStringLiteral("rgb24"))); // any format the reader knows
        QVERIFY(MomentsEngine::dHash(good));
        const QString garbage = media(QStringLiteral("garbage.jpg"));
        QVERIFY(TestEnv::writeFile(garbage, QByteArray(5000, '\xff')));
        for (const QString &path : {garbage, media(QStringLiteral("missing.jpg"))})
            QVERIFY2(!MomentsEngine::dHash(path) && !MomentsEngine::colorSignature(path), qPrintable(path));
        // Damaged files must never crash the decoder, whatever they do to the result.
        QVERIFY(makeJpeg(QStringLiteral("testsrc2=s=480x270"), media(QStringLiteral("good.jpg"))));
        const QByteArray bytes = TestEnv::readFile(media(QStringLiteral("good.jpg")));
        QRandomGenerator rng(99);
        for (int round = 0; round < 400; ++round) {
            QByteArray damaged = bytes;
            for (int k = 0; k < 1 + round % 8; ++k)
                damaged[rng.bounded(qsizetype(damaged.size()))] = char(rng.bounded(256));
            if (round % 3 == 0)
                damaged.truncate(rng.bounded(qsizetype(damaged.size())));
            QVERIFY(TestEnv::writeFile(media(QStringLiteral("damaged.jpg")), damaged));
            MomentsEngine::dHash(media(QStringLiteral("damaged.jpg")));
            MomentsEngine::colorSignature(media(QStringLiteral("damaged.jpg")));
        }
    }

    void analyzesHardCuts() {
        QList<Moment> announced;
        const QList<Moment> moments =
            vtest::await(MomentsEngine::analyze(m_cuts, [&](const Moment &m) { announced.append(m); }));
        QVERIFY2(moments.size() >= 8 && moments.size() <= 20, qPrintable(QString::number(moments.size())));
        QCOMPARE(announced.size(), moments.size());
        QString cacheDir;
        int cuts = 0;
        for (qsizetype i = 0; i < moments.size(); ++i) {
            const Moment &m = moments[i];
            if (i > 0)
                QVERIFY(moments[i - 1].time <= m.time);
            QVERIFY(m.time > 1.0 && m.time < 57.0);
            QVERIFY(m.thumbnail && QFileInfo::exists(*m.thumbnail));
            QVERIFY(QFileInfo(*m.thumbnail).fileName().startsWith(u'm'));
            if (m.score > 0.12) {
                ++cuts;
                // Scene cuts land on the 5-second boundaries.
                QVERIFY2(std::abs(m.time - 5.0 * std::round(m.time / 5.0)) < 0.05, qPrintable(QString::number(m.time)));
            }
            cacheDir = QFileInfo(*m.thumbnail).absolutePath();
        }
        QVERIFY(cuts >= 5);
        QCOMPARE(QFileInfo(cacheDir).absolutePath(), AppSettings::appSupportDir() + QStringLiteral("/moments-cache"));
        const QString uuid = QFileInfo(cacheDir).fileName();
        QCOMPARE(uuid, uuid.toUpper());
        QVERIFY(!QUuid::fromString(uuid).isNull());
        // Twelve distinct scenes: nearly all of them show up.
        QSet<int> scenes;
        for (const Moment &m : moments)
            scenes.insert(int(m.time / 5.0 + 0.01));
        QVERIFY2(scenes.size() >= 9, qPrintable(QString::number(scenes.size())));
        QVERIFY(TestEnv::filesContaining(TestEnv::root(), QStringLiteral("vorlix-")).isEmpty());
    }

    void thumbnailsLandInTheirSlots() {
        QTemporaryDir cache;
        // The middle time lies past the end: ffmpeg succeeds but writes nothing.
        const QList<Candidate> candidates{{2.0, 0.5}, {1000.0, 0.4}, {30.0, 0.3}, {57.5, 0.2}};
        const auto thumbs =
            vtest::await(MomentsEngine::extractThumbnails(candidates, m_cuts, cache.path(), Tools::ffmpegURL()));
        QCOMPARE(thumbs.size(), 4);
        QCOMPARE(thumbs[0], std::optional<QString>(cache.filePath(QStringLiteral("m0.jpg"))));
        QVERIFY(!thumbs[1]);
        QCOMPARE(thumbs[2], std::optional<QString>(cache.filePath(QStringLiteral("m2.jpg"))));
        QCOMPARE(thumbs[3], std::optional<QString>(cache.filePath(QStringLiteral("m3.jpg"))));
        // 480 wide, height kept even and proportional.
        QCOMPARE(MomentsMedia::frameSize(*thumbs[2]), QStringLiteral("480x270"));
        // Different scenes, different fingerprints.
        QVERIFY(MomentsEngine::dHash(*thumbs[0]) != MomentsEngine::dHash(*thumbs[2]));
    }

    void clipFromSilentVideo() {
        const QString silent = media(QStringLiteral("silent.mp4"));
        QVERIFY(makeStaticVideo(silent, 6));
        const QString out = media(QStringLiteral("silent-clip.mp4"));
        QVERIFY(vtest::await(MomentsEngine::exportClip(silent, 1.0, 2.0, Aspect::original, out)));
        QVERIFY(std::abs(MomentsMedia::duration(out).value_or(0) - 2.0) < 0.1);
        QVERIFY(vtest::await(MomentsEngine::exportStill(silent, 1.0, media(QStringLiteral("silent.png")))));
        // A still past the end has nothing to save.
        QVERIFY(!vtest::await(MomentsEngine::exportStill(silent, 60.0, media(QStringLiteral("late.png")))));
    }

    void staticVideoGivesFiveMoments() {
        const QString still = media(QStringLiteral("static.mp4"));
        QVERIFY(makeStaticVideo(still, 30));
        const QList<Moment> moments = vtest::await(MomentsEngine::analyze(still));
        QCOMPARE(moments.size(), 5);
        for (qsizetype i = 0; i < moments.size(); ++i) {
            QCOMPARE(moments[i].score, 0.0);
            if (i > 0)
                QVERIFY(moments[i - 1].time < moments[i].time);
        }
    }

    void shortestAnalysedVideo_data() {
        QTest::addColumn<double>("seconds");
        QTest::addColumn<bool>("analysed");
        QTest::newRow("4.0 s") << 4.0 << false;
        QTest::newRow("4.1 s") << 4.1 << true;
    }
    void shortestAnalysedVideo() {
        QFETCH(double, seconds);
        QFETCH(bool, analysed);
        const QString file = media(QStringLiteral("short-%1.mp4").arg(seconds));
        QVERIFY(makeStaticVideo(file, seconds));
        const auto duration = vtest::await(MomentsEngine::mediaDuration(file));
        QVERIFY(duration);
        QVERIFY(std::abs(*duration - seconds) < 0.05);
        // 4.1 s leaves one fill slot inside the margins (0.082 s, 1.1 s).
        QCOMPARE(!vtest::await(MomentsEngine::analyze(file)).isEmpty(), analysed);
    }

    void badInputsGiveNothing_data() {
        QTest::addColumn<QString>("kind");
        QTest::newRow("text file") << QStringLiteral("text");
        QTest::newRow("missing file") << QStringLiteral("missing");
        QTest::newRow("no ffmpeg") << QStringLiteral("noffmpeg");
    }
    void badInputsGiveNothing() {
        QFETCH(QString, kind);
        QString file = media(QStringLiteral("bad-%1.mp4").arg(kind));
        QString ffmpeg = Tools::ffmpegURL();
        if (kind == QLatin1String("text")) {
            QVERIFY(TestEnv::writeFile(file, "this is not a video\n"));
        } else if (kind == QLatin1String("noffmpeg")) {
            file = m_cuts;
            ffmpeg.clear();
        }
        int calls = 0;
        const QList<Moment> moments = vtest::await(MomentsEngine::analyze(
            file, [&](const Moment &) { ++calls; }, ffmpeg, AppSettings::appSupportDir()));
        QVERIFY(moments.isEmpty());
        QCOMPARE(calls, 0);
    }

    void failedThumbnailsDropEveryCandidate() {
        // An "ffmpeg" that reports a duration but cannot make thumbnails: every candidate drops.
        const QString fake = TestEnv::writeScript(media(QStringLiteral("fake-ffmpeg")),
                                                  QStringLiteral("#!/bin/sh\necho '  Duration: 00:01:00.00, start' >&2\n"
                                                                 "exit 1\n"));
        const QList<Moment> moments =
            vtest::await(MomentsEngine::analyze(m_cuts, {}, fake, AppSettings::appSupportDir()));
        QVERIFY(moments.isEmpty());
    }
};

VORLIX_TEST_SUITE(MomentsEngineTest)
#include "MomentsEngineTest.moc"
