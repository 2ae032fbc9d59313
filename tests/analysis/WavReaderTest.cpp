#include "TestEnv.h"
#include "TestMain.h"

#include "analysis/PracticeMode.h"

#include <QTest>
#include <QtEndian>

namespace {

QByteArray le32(quint32 v) {
    QByteArray b(4, '\0');
    qToLittleEndian(v, b.data());
    return b;
}

// A chunk claiming `claimed` bytes (its real size by default), padded to even length unless told not to.
QByteArray chunk(const char *id, const QByteArray &payload, qint64 claimed = -1, bool pad = true) {
    QByteArray c = QByteArray(id, 4) + le32(quint32(claimed < 0 ? payload.size() : claimed)) + payload;
    return pad && payload.size() % 2 ? c + '\0' : c;
}

QByteArray riff(const QByteArray &chunks) {
    const QByteArray fmt = QByteArray::fromHex("01000100") + le32(22050) + le32(44100) + QByteArray::fromHex("02001000");
    return "RIFF" + le32(quint32(4 + chunks.size())) + "WAVE" + chunk("fmt ", fmt) + chunks;
}

QByteArray pcm(const QList<qint16> &values) {
    QByteArray b;
    for (qint16 v : values)
        b.append(char(quint16(v) & 0xff)).append(char(quint16(v) >> 8));
    return b;
}

} // namespace

class WavReaderTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void chunkLayouts_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QList<qint16>>("samples"); // {} with present false: no result
        QTest::addColumn<bool>("present");
        const QList<qint16> extremes{0, 1, -1, 16384, 32767, -32768};
        QTest::newRow("fmt then data") << riff(chunk("data", pcm(extremes))) << extremes << true;
        QTest::newRow("odd LIST chunk padded") << riff(chunk("LIST", "INFOx") + chunk("data", pcm({100, -200}))) << QList<qint16>{100, -200} << true;
        QTest::newRow("data size past the end is clipped") << riff(chunk("data", pcm({5, 6, 7}), 100000)) << QList<qint16>{5, 6, 7} << true;
        QTest::newRow("trailing odd byte ignored") << riff(chunk("data", pcm({5, 6}) + 'x', -1, false)) << QList<qint16>{5, 6} << true;
        QTest::newRow("44 bytes: empty data") << riff(chunk("data", {})) << QList<qint16>{} << false;
        QTest::newRow("45 bytes: one odd data byte") << riff(chunk("data", "x", -1, false)) << QList<qint16>{} << true;
        QTest::newRow("chunk size far past the end") << riff(chunk("LIST", "abcd", 0xFFFFFFF0u) + chunk("data", pcm({1, 2}))) << QList<qint16>{} << false;
        QTest::newRow("largest chunk size does not wrap") << riff(chunk("LIST", "ab", 0xFFFFFFFFu) + chunk("data", pcm({1, 2}))) << QList<qint16>{} << false;
        QTest::newRow("zero-length file") << QByteArray() << QList<qint16>{} << false;
        QTest::newRow("text, not a WAV") << QByteArray("just some words, nothing like a RIFF header at all, really") << QList<qint16>{} << false;
    }

    void chunkLayouts() {
        QFETCH(QByteArray, bytes);
        QFETCH(QList<qint16>, samples);
        QFETCH(bool, present);
        const QString path = TestEnv::root() + QStringLiteral("/wav/case.wav");
        QVERIFY(TestEnv::writeFile(path, bytes));
        const auto read = PracticeMode::readMonoWav16(path);
        QCOMPARE(read.has_value(), present);
        QList<float> expected;
        for (qint16 v : samples)
            expected << float(v) / 32768.0f;
        QCOMPARE(read ? QList<float>(read->begin(), read->end()) : QList<float>(), expected);
        QVERIFY(!PracticeMode::readMonoWav16(TestEnv::root())); // a folder
    }
};

VORLIX_TEST_SUITE(WavReaderTest)
#include "WavReaderTest.moc"
