#include "app/AppUpdater.h"

#include "discovery/Http.h"

#include <QDesktopServices>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QRegularExpression>
#include <QXmlStreamReader>

#include <algorithm>

namespace {

const QString sparkleNamespace = QStringLiteral("http://www.andymatuschak.org/xml-namespaces/sparkle");

// Feeds that forget to declare the namespace still use the "sparkle:" prefix.
bool isSparkle(QStringView name, QStringView namespaceUri, QStringView qualifiedName, const QString &wanted) {
    return name == wanted &&
           (namespaceUri == sparkleNamespace || qualifiedName == QString(QStringLiteral("sparkle:") + wanted));
}

bool isSparkle(const QXmlStreamReader &xml, const QString &wanted) {
    return isSparkle(xml.name(), xml.namespaceUri(), xml.qualifiedName(), wanted);
}

QString sparkleAttribute(const QXmlStreamAttributes &attributes, const QString &wanted) {
    for (const QXmlStreamAttribute &a : attributes)
        if (isSparkle(a.name(), a.namespaceUri(), a.qualifiedName(), wanted))
            return a.value().toString().trimmed();
    return {};
}

// Only web pages are opened from a feed.
QUrl webLink(const QString &text) {
    const QUrl url(text.trimmed(), QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    return url.isValid() && (scheme == QLatin1String("https") || scheme == QLatin1String("http")) && !url.host().isEmpty()
               ? url
               : QUrl();
}

// A dotted part in runs of digits and of other characters: "0b12" is 0, "b", 12.
QStringList tokens(const QString &part) {
    static const QRegularExpression run(QStringLiteral("\\d+|\\D+"));
    QStringList out;
    for (const QRegularExpressionMatch &m : run.globalMatch(part))
        out << m.captured();
    return out;
}

bool isNumber(const QString &token) { return !token.isEmpty() && token.front().isDigit(); }

QStringView withoutLeadingZeros(QStringView digits) {
    qsizetype i = 0;
    while (i + 1 < digits.size() && digits[i] == u'0')
        ++i;
    return digits.sliced(i);
}

// Runs of digits of any length: the longer run is the larger number once leading zeros are gone.
int compareNumbers(const QString &a, const QString &b) {
    const QStringView x = withoutLeadingZeros(a), y = withoutLeadingZeros(b);
    if (x.size() != y.size())
        return x.size() < y.size() ? -1 : 1;
    return x.compare(y);
}

int compareParts(const QString &a, const QString &b) {
    const QStringList left = tokens(a), right = tokens(b);
    for (qsizetype i = 0; i < std::max(left.size(), right.size()); ++i) {
        // A part that goes on with text after the other ended is a pre-release of it ("2b1" < "2").
        if (i >= left.size())
            return isNumber(right[i]) ? -1 : 1;
        if (i >= right.size())
            return isNumber(left[i]) ? 1 : -1;
        const bool leftNumber = isNumber(left[i]), rightNumber = isNumber(right[i]);
        int order = 0;
        if (leftNumber && rightNumber)
            order = compareNumbers(left[i], right[i]);
        else if (leftNumber != rightNumber)
            order = leftNumber ? 1 : -1;
        else
            order = left[i].compare(right[i], Qt::CaseInsensitive);
        if (order != 0)
            return order < 0 ? -1 : 1;
    }
    return 0;
}

} // namespace

AppUpdater::AppUpdater(QUrl feed, QString currentVersion, QObject *parent)
    : QObject(parent), m_feed(std::move(feed)), m_currentVersion(std::move(currentVersion)) {}

void AppUpdater::setChecking(bool on) {
    if (m_checking == on)
        return;
    m_checking = on;
    Q_EMIT canCheckForUpdatesChanged();
}

void AppUpdater::checkForUpdates() {
    if (m_checking)
        return;
    runCheck();
}

QCoro::Task<> AppUpdater::runCheck() {
    QPointer<AppUpdater> self(this);
    Outcome outcome;
    try {
        outcome = co_await check();
    } catch (...) {
        // Nobody awaits this task: whatever went wrong is a failed check.
        if (self)
            setChecking(false);
    }
    if (!self)
        co_return;
    if (m_present)
        m_present(outcome);
    else
        presentWithMessageBox(outcome, m_currentVersion);
}

QCoro::Task<AppUpdater::Outcome> AppUpdater::check() {
    QPointer<AppUpdater> self(this);
    setChecking(true);
    QNetworkRequest request(m_feed);
    request.setHeader(QNetworkRequest::UserAgentHeader, QString(QStringLiteral("Vorlix/") + m_currentVersion));
    const Http::Response response = co_await Http::get(request, std::chrono::milliseconds(timeoutMs), maxFeedBytes);
    Outcome outcome;
    if (!self)
        co_return outcome;
    if (response.isHTTP() && response.status == 200) {
        const std::optional<Release> newest = newestRelease(response.body);
        if (newest) {
            outcome.release = newest;
            outcome.kind = compareVersions(newest->version, m_currentVersion) > 0 ? Outcome::Kind::updateAvailable
                                                                                  : Outcome::Kind::upToDate;
        }
    }
    setChecking(false);
    co_return outcome;
}

std::optional<AppUpdater::Release> AppUpdater::newestRelease(const QByteArray &feed) {
    QXmlStreamReader xml(feed);
    std::optional<Release> newest;
    Release current;
    QString itemLink;
    bool inItem = false;
    while (!xml.atEnd()) {
        const QXmlStreamReader::TokenType token = xml.readNext();
        if (token == QXmlStreamReader::StartElement) {
            if (xml.name() == QLatin1String("item") && xml.namespaceUri().isEmpty()) {
                inItem = true;
                current = {};
                itemLink.clear();
            } else if (!inItem) {
                continue;
            } else if (xml.name() == QLatin1String("enclosure") && xml.namespaceUri().isEmpty()) {
                const QXmlStreamAttributes attributes = xml.attributes();
                if (current.version.isEmpty())
                    current.version = sparkleAttribute(attributes, QStringLiteral("version"));
                if (current.displayVersion.isEmpty())
                    current.displayVersion = sparkleAttribute(attributes, QStringLiteral("shortVersionString"));
                if (current.link.isEmpty())
                    current.link = webLink(attributes.value(QLatin1String("url")).toString());
            } else if (isSparkle(xml, QStringLiteral("version"))) {
                current.version = xml.readElementText().trimmed();
            } else if (isSparkle(xml, QStringLiteral("shortVersionString"))) {
                current.displayVersion = xml.readElementText().trimmed();
            } else if (xml.name() == QLatin1String("link") && xml.namespaceUri().isEmpty()) {
                itemLink = xml.readElementText();
            }
        } else if (token == QXmlStreamReader::EndElement && inItem && xml.name() == QLatin1String("item")) {
            inItem = false;
            // The release page is preferred over the bare download.
            if (const QUrl page = webLink(itemLink); !page.isEmpty())
                current.link = page;
            if (current.displayVersion.isEmpty())
                current.displayVersion = current.version;
            if (!current.version.isEmpty() && (!newest || compareVersions(current.version, newest->version) > 0))
                newest = current;
        }
    }
    if (xml.hasError())
        return std::nullopt;
    return newest;
}

int AppUpdater::compareVersions(const QString &a, const QString &b) {
    const QStringList left = a.trimmed().split(u'.');
    const QStringList right = b.trimmed().split(u'.');
    for (qsizetype i = 0; i < std::max(left.size(), right.size()); ++i) {
        const QString zero = QStringLiteral("0");
        if (const int order = compareParts(i < left.size() ? left[i] : zero, i < right.size() ? right[i] : zero))
            return order;
    }
    return 0;
}

void AppUpdater::presentWithMessageBox(const Outcome &outcome, const QString &currentVersion) {
    auto *box = new QMessageBox();
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowTitle(QStringLiteral("Vorlix"));
    switch (outcome.kind) {
    case Outcome::Kind::upToDate:
        box->setIcon(QMessageBox::Information);
        box->setText(QStringLiteral("You're up to date."));
        box->setInformativeText(QStringLiteral("Vorlix ") + currentVersion +
                                QStringLiteral(" is currently the newest version available."));
        box->setStandardButtons(QMessageBox::Ok);
        break;
    case Outcome::Kind::updateAvailable: {
        const Release release = *outcome.release;
        box->setIcon(QMessageBox::Information);
        box->setText(QStringLiteral("A new version of Vorlix is available!"));
        box->setInformativeText(QStringLiteral("Vorlix ") + release.displayVersion +
                                QStringLiteral(" is now available \u2014 you have ") + currentVersion + u'.');
        if (!release.link.isEmpty()) {
            QPushButton *open = box->addButton(QStringLiteral("Open Download Page"), QMessageBox::AcceptRole);
            QObject::connect(open, &QPushButton::clicked, box, [link = release.link] { QDesktopServices::openUrl(link); });
        }
        box->addButton(QStringLiteral("Later"), QMessageBox::RejectRole);
        break;
    }
    case Outcome::Kind::failed:
        box->setIcon(QMessageBox::Warning);
        box->setText(QStringLiteral("Update Error!"));
        box->setInformativeText(
            QStringLiteral("An error occurred in retrieving update information. Please try again later."));
        box->setStandardButtons(QMessageBox::Ok);
        break;
    }
    box->show();
    box->raise();
    box->activateWindow();
}
