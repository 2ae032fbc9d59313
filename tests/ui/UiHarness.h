#pragma once

// Set-up shared by the screen tests: a real queue over a private settings file and history,
// whose probes are held until the harness ends, so items stay where a test put them.

#include "AccessibleNames.h"
#include "FixtureSite.h"
#include "TestEnv.h"
#include "TestMain.h"

#include "core/AppSettings.h"
#include "queue/DownloadQueue.h"
#include "queue/HistoryStore.h"
#include "queue/Notifier.h"
#include "ui/Brand.h"
#include "ui/ElidedLabel.h"
#include "ui/ThumbnailLoader.h"

#include <QAccessible>
#include <QApplication>
#include <QBuffer>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QCoroFuture>
#include <QCoroSignal>
#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPromise>
#include <QPushButton>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QToolButton>
#include <QUuid>

#include <memory>

namespace ui_test {

using namespace Qt::StringLiterals;

struct SilentNotifier : Notifier {
    void post(const QString &, const QString &) override {}
};

// A fresh folder under the suite's temporary home.
inline QString freshDir() { return TestEnv::root() + u'/' + QUuid::createUuid().toString(QUuid::WithoutBraces); }

struct QueueHarness {
    QString dir = freshDir();
    AppSettings settings{dir + u"/settings.ini"_s};
    std::unique_ptr<HistoryStore> store;
    SilentNotifier notifier;
    QPromise<void> gate; // held probes resume when it finishes
    std::unique_ptr<DownloadQueue> queue;

    // `historyFile` empty: a fresh history in the harness's folder.
    explicit QueueHarness(const QString &historyFile = {},
                          DownloadQueue::Services services = DownloadQueue::Services()) {
        gate.start();
        store = std::make_unique<HistoryStore>(historyFile.isEmpty() ? dir + u"/history.json"_s
                                                                     : historyFile);
        if (!services.probe)
            services.probe = [this](QString url, Tools::CancellationPtr) { return heldProbe(gate.future(), std::move(url)); };
        if (!services.isSpotifyTrackURL)
            services.isSpotifyTrackURL = [](const QString &) { return false; };
        queue = std::make_unique<DownloadQueue>(settings, *store, notifier, std::move(services));
    }
    QueueHarness(const QueueHarness &) = delete;
    QueueHarness &operator=(const QueueHarness &) = delete;

    // Call after the screen is gone: cancels everything, lets the held probes go and waits for
    // their pipelines to end before the queue does.
    void windDown() {
        for (const DownloadItemPtr &item : queue->items())
            queue->cancel(item);
        gate.finish();
        QTRY_COMPARE(queue->running(), 0);
        queue.reset();
    }

    QStringList urls() const {
        QStringList out;
        for (const DownloadItemPtr &item : queue->items())
            out << item->url();
        return out;
    }
    QString message() const { return queue->lastMessage().value_or(QString()); }

private:
    // A promise rather than a timer: awaiting QTimer's private timeout signal trips UBSan.
    static QCoro::Task<ProbeResult> heldProbe(QFuture<void> gate, QString url) {
        co_await gate;
        throw YtDlpError::probeFailed(u"let go: "_s + url);
    }
};

inline QString accessible(QObject *object, QAccessible::Text text = QAccessible::Name) {
    QAccessibleInterface *iface = QAccessible::queryAccessibleInterface(object);
    return iface ? iface->text(text) : QString();
}

// The one accessibility walk of a screen: every control it shows has a name, the search
// field's symbol-only buttons included.
inline void verifyNamedControls(QWidget *root) { QCOMPARE(AccessibleNames::unnamedControls(root), QStringList()); }

// A menu's entries as shown ("-" for a separator, "&&" read as "&").
inline QStringList menuTexts(const QMenu *menu) {
    QStringList out;
    for (QAction *a : menu->actions())
        out << (a->isSeparator() ? u"-"_s : QString(a->text()).replace(u"&&"_s, u"&"_s));
    return out;
}

inline QAction *menuAction(const QMenu *menu, const QString &text) {
    for (QAction *a : menu->actions())
        if (a->text() == text)
            return a;
    return nullptr;
}

// The search screens (videos, images): types `text` and presses Return.
inline void submit(QLineEdit *field, const QString &text) {
    field->setText(text);
    QTest::keyClick(field, Qt::Key_Return);
}

// What a search screen's stack shows: the name of a page in `pages`, else its message's text.
inline QString shownPage(QWidget *view, const QStringList &pages) {
    QWidget *shown = view->findChild<QStackedWidget *>()->currentWidget();
    if (pages.contains(shown->objectName()))
        return shown->objectName();
    for (const QString &name : {u"errorText"_s, u"noResults"_s})
        if (auto *l = shown->findChild<QLabel *>(name))
            return l->text();
    return {};
}

// The result (row or cell) called `name` whose title reads `title`.
inline QWidget *titled(QWidget *view, const QString &name, const QString &title) {
    for (QWidget *w : view->findChildren<QWidget *>(name))
        if (w->findChild<ElidedLabel *>(u"title"_s)->fullText() == title)
            return w;
    return nullptr;
}

// A plain green picture, PNG-encoded, for thumbnail routes of the fixture site.
inline QByteArray greenPng(int width, int height) {
    QImage picture(width, height, QImage::Format_RGB32);
    picture.fill(QColor(0, 200, 0));
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    picture.save(&buffer, "PNG");
    return png;
}

} // namespace ui_test
