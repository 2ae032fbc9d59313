#include "TestEnv.h"
#include "TestMain.h"

#include "analysis/PracticeMode.h"

#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QTest>
#include <QtEndian>

namespace {

QByteArray le32(quint32 v) {
    QByteArray b(4, '\0');
    qToLittleEndian(v, b.data());
    return b;
}

QByteArray chunk(const char *id, const QByteArray &payload, std::optional<quint32> claimedSize = std::nullopt,
                 bool pad = true) {
    QByteArray c = QByteArray(id, 4) + le32(claimedSize.value_or(quint32(payload.size()))) + payload;
    if (pad && payload.size() % 2)
        c += '\0';
    return c;
}

QByteArray fmtChunk() {
    QByteArray f;
    f += QByteArray::fromHex("0100"); // PCM
    f += QByteArray::fromHex("0100"); // mono
    f += le32(22050) + le32(44100);
    f += QByteArray::fromHex("0200") + QByteArray::fromHex("1000"); // block align 2, 16 bits
    return chunk("fmt ", f);
}

QByteArray pcm(const QList<qint16> &values) {
    QByteArray b;
    for (qint16 v : values) {
        b += char(quint16(v) & 0xff);
        b += char(quint16(v) >> 8);
    }
    return b;
}

QByteArray riff(const QByteArray &chunks) { return "RIFF" + le32(quint32(4 + chunks.size())) + "WAVE" + chunks; }

QString writeFile(const QString &name, const QByteArray &bytes) {
    const QString path = TestEnv::root() + QStringLiteral("/wav/") + name;
    return TestEnv::writeFile(path, bytes) ? path : QString();
}

QList<float> floats(const QList<qint16> &values) {
    QList<float> out;
    for (qint16 v : values)
        out << float(v) / 32768.0f;
    return out;
}

} // namespace

class WavReaderTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void chunkLayouts_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("present");
        QTest::addColumn<QList<float>>("samples");

        const QList<qint16> extremes{0, 1, -1, 16384, 32767, -32768};
        QTest::newRow("fmt then data") << riff(fmtChunk() + chunk("data", pcm(extremes))) << true << floats(extremes);
        QTest::newRow("odd LIST chunk padded before data")
            << riff(fmtChunk() + chunk("LIST", "INFOx") + chunk("data", pcm({100, -200}))) << true << floats({100, -200});
        QTest::newRow("data size past the end is clipped")
            << riff(fmtChunk() + chunk("data", pcm({5, 6, 7}), 100000)) << true << floats({5, 6, 7});
        QTest::newRow("trailing odd byte ignored")
            << riff(fmtChunk() + chunk("data", pcm({5, 6}) + 'x', std::nullopt, false)) << true << floats({5, 6});
        QTest::newRow("44 bytes: header with empty data") << riff(fmtChunk() + chunk("data", {})) << false << QList<float>();
        QTest::newRow("45 bytes: one odd data byte")
            << riff(fmtChunk() + chunk("data", "x", std::nullopt, false)) << true << QList<float>();
        QTest::newRow("chunk size points far past the end")
            << riff(fmtChunk() + chunk("LIST", "abcd", 0xFFFFFFF0u) + chunk("data", pcm({1, 2, 3}))) << false
            << QList<float>();
        QTest::newRow("largest chunk size does not wrap around")
            << riff(fmtChunk() + chunk("LIST", "ab", 0xFFFFFFFFu) + chunk("data", pcm({1, 2, 3}))) << false
            << QList<float>();
        QTest::newRow("zero-length file") << QByteArray() << false << QList<float>();
        QTest::newRow("text, not a WAV") << QByteArray("just some words, nothing like a RIFF header at all, really") << false
                                         << QList<float>();
    }

    void chunkLayouts() {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, present);
        QFETCH(QList<float>, samples);
        const auto read = PracticeMode::readMonoWav16(writeFile(QStringLiteral("case.wav"), bytes));
        QCOMPARE(read.has_value(), present);
        if (present)
            QCOMPARE(QList<float>(read->begin(), read->end()), samples);
    }

    void unreadablePathsAreAbsent() {
        QVERIFY(!PracticeMode::readMonoWav16(TestEnv::root() + QStringLiteral("/no-such.wav")));
        QVERIFY(!PracticeMode::readMonoWav16(TestEnv::root())); // a folder
    }

    // Every truncation and random corruption of a valid file stays inside the bytes it has.
    void damagedFilesNeverReadPastTheirEnd() {
        QList<qint16> values;
        for (int i = 0; i < 200; ++i)
            values << qint16(i * 97 - 9000);
        const QByteArray good = riff(fmtChunk() + chunk("LIST", "INFOabc") + chunk("data", pcm(values)));
        for (qsizetype length = 0; length <= good.size(); ++length) {
            const auto read = PracticeMode::readMonoWav16(writeFile(QStringLiteral("cut.wav"), good.left(length)));
            if (read)
                QVERIFY(qsizetype(read->size()) * 2 <= length - 44);
        }
        QRandomGenerator rng(20261122);
        for (int round = 0; round < 300; ++round) {
            QByteArray bad = good;
            for (int flips = 0; flips < 4; ++flips)
                bad[rng.bounded(int(bad.size()))] = char(rng.bounded(256));
            const auto read = PracticeMode::readMonoWav16(writeFile(QStringLiteral("bad.wav"), bad));
            if (read)
                QVERIFY(qsizetype(read->size()) * 2 <= bad.size());
        }
    }
};

VORLIX_TEST_SUITE(WavReaderTest)
#include "WavReaderTest.moc"
