#pragma once

#include <QColor>
#include <QFont>
#include <QList>
#include <QString>

#include <functional>
#include <initializer_list>

class ElidedLabel;
class EmberBusyBar;
class QHBoxLayout;
class QLabel;
class QLineEdit;
class QObject;
class QPixmap;
class QVBoxLayout;
class QWidget;

// Pieces the screens share, so their bars, rows and empty states read alike.
namespace ScreenParts {
QLabel *label(const QString &text, const QFont &font, const QColor &color);
// A single line that shortens itself at the right end.
ElidedLabel *elidedLabel(const QString &text, const QFont &font, const QColor &color);
// A label showing `pixmap`, centred.
QLabel *picture(const QPixmap &pixmap);
// A widget for centredPage, with how the column aligns it.
struct Part {
    Part(QWidget *w, Qt::Alignment a = {}) : widget(w), alignment(a) {}
    QWidget *widget;
    Qt::Alignment alignment;
};
// A page named `name` with `parts` stacked in its vertical middle, `spacing` apart (-1: the style's).
QWidget *centredPage(const QString &name, int spacing, std::initializer_list<Part> parts);
// A hairline ring with an ember arc going round it every 0.9 s, for work without a known end;
// it turns only while shown. A square of `size`, the ring `pen` wide and `inset` inside its edge.
QWidget *turningRing(int size, qreal pen, qreal inset);
// Paints the rounded surface card of a result cell or row onto `card`, edged in `border`.
void paintCard(QWidget *card, const QColor &border);
// The one-pixel hairline between a screen's bar and its content.
QWidget *divider();
// The monospaced search field with its symbol in front.
QLineEdit *searchField(const QString &symbol);
// The quieter field of the bars over a list (Find, History), its symbol in front.
QLineEdit *listField(const QString &symbol, int fontSize, int symbolSize, int minimumHeight);
// The row of a bar over a list, in a widget named `name` (the row's parentWidget()).
QHBoxLayout *barRow(const QString &name, int spacing);
// Names a field's symbol-only buttons for screen readers: the clear button "Clear", the
// leading symbol `symbolName`. Call after its actions are added.
void nameFieldButtons(QLineEdit *field, const QString &symbolName);
struct SearchBar {
    QLineEdit *field;
    EmberBusyBar *busy;
};
// Adds to `layout` a row of the search field, the `between` widgets and a "Search" button, and
// under it the busy bar, hidden. Return in the field and the button call `run`.
SearchBar addSearchBar(QVBoxLayout *layout, const QString &symbol, const QList<QWidget *> &between, QObject *context,
                       const std::function<void()> &run);
// A symbol over one centred line of text (errors, "No results"); the text label is named `textName`.
QWidget *messagePage(const QString &symbol, const QString &text, const QString &textName);
// A large symbol, a headline in the brand face and an explanatory line under it.
QWidget *welcomePage(const QString &symbol, const QString &headline, const QString &line);
} // namespace ScreenParts
