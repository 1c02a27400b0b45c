#include "content/Bill.h"

#include <QRegularExpression>
#include <QSet>
#include <QStringList>
#include <array>

namespace kvx::content {

namespace {

enum Column { Number, Text, Unit, Quantity, Rate, Amount, columnCount };

struct Heading {
    const char *name;
    Column column;
    bool decimalComma; ///< the language of the page writes figures so
};

constexpr std::array<Heading, 26> headings { {
    { "item", Number, false },
    { "no", Number, false },
    { "number", Number, false },
    { "text", Text, false },
    { "description", Text, false },
    { "unit", Unit, false },
    { "qty", Quantity, false },
    { "quantity", Quantity, false },
    { "rate", Rate, false },
    { "unit price", Rate, false },
    { "amount", Amount, false },
    { "total", Amount, false },
    { "oz", Number, true },
    { "pos", Number, true },
    { "position", Number, true },
    { "bezeichnung", Text, true },
    { "beschreibung", Text, true },
    { "kurztext", Text, true },
    { "einheit", Unit, true },
    { "me", Unit, true },
    { "menge", Quantity, true },
    { "ep", Rate, true },
    { "einheitspreis", Rate, true },
    { "gp", Amount, true },
    { "gesamtpreis", Amount, true },
    { "betrag", Amount, true },
} };

const Heading *headingOf(QString cell)
{
    cell.remove(QLatin1Char('.'));
    for (const Heading &heading : headings) {
        if (cell.compare(QLatin1String(heading.name), Qt::CaseInsensitive) == 0)
            return &heading;
    }
    return nullptr;
}

/// Where the columns of a page stand; -1: the page has no such column.
struct Columns {
    std::array<int, columnCount> at;
    int count = 0;
    bool decimalComma = false;
};

/// A line of column names has at least a number, a text, a unit and a quantity.
std::optional<Columns> columnsOf(const QStringList &cells)
{
    Columns columns;
    columns.at.fill(-1);
    columns.count = static_cast<int>(cells.size());
    for (int i = 0; i < cells.size(); ++i) {
        if (const Heading *heading = headingOf(cells.at(i))) {
            columns.at[heading->column] = i;
            columns.decimalComma = columns.decimalComma || heading->decimalComma;
        }
    }
    for (const Column needed : { Number, Text, Unit, Quantity }) {
        if (columns.at[needed] < 0)
            return std::nullopt;
    }
    return columns;
}

/// Thousands are set apart only where a decimal sign follows: "1,240" may be either.
std::optional<Thousandths> figure(QString text, bool decimalComma)
{
    static const QRegularExpression grouped(
        QStringLiteral("^[+-]?[0-9]{1,3}(,[0-9]{3})+\\.[0-9]+$"));
    static const QRegularExpression groupedComma(
        QStringLiteral("^[+-]?[0-9]{1,3}(\\.[0-9]{3})+,[0-9]+$"));
    if (decimalComma && text.contains(QLatin1Char('.')) && !groupedComma.match(text).hasMatch())
        return std::nullopt;
    if (!decimalComma && grouped.match(text).hasMatch())
        text.remove(QLatin1Char(','));
    return parseDecimal(text, decimalComma);
}

class PageReader {
public:
    /// The reason where the line cannot be read.
    QString take(const QStringList &cells);
    bool foundColumns() const { return m_columns.has_value(); }
    Bill &bill() { return m_bill; }

private:
    QString takeItem(const QStringList &cells);

    std::optional<Columns> m_columns;
    QSet<QString> m_numbers;
    Bill m_bill;
};

QString PageReader::take(const QStringList &cells)
{
    if (auto columns = columnsOf(cells)) {
        for (const QString &cell : cells) {
            if (!cell.isEmpty() && !headingOf(cell))
                return QStringLiteral("the column \"%1\" is not known").arg(cell);
        }
        m_columns = columns;
        return {};
    }
    return m_columns ? takeItem(cells) : QString(); // the page's heading
}

QString PageReader::takeItem(const QStringList &cells)
{
    static const QRegularExpression itemNumber(QStringLiteral("^[0-9]+(\\.[0-9A-Za-z]+)*$"));
    if (cells.size() > m_columns->count)
        return QStringLiteral("%1 columns instead of %2")
            .arg(QString::number(cells.size()), QString::number(m_columns->count));
    std::array<QString, columnCount> cell;
    int filled = 0;
    for (std::size_t column = 0; column < columnCount; ++column) {
        cell[column] = cells.value(m_columns->at[column]);
        filled += cell[column].isEmpty() ? 0 : 1;
    }
    if (filled == 1 && !cell[Text].isEmpty() && !m_bill.items.empty()) {
        QString &longText = m_bill.items.back().longText;
        longText += (longText.isEmpty() ? QString() : QStringLiteral("\n")) + cell[Text];
        return {};
    }
    if (!itemNumber.match(cell[Number]).hasMatch())
        return QStringLiteral("\"%1\" is not an item number").arg(cell[Number]);
    if (m_numbers.contains(cell[Number]))
        return QStringLiteral("the number %1 stands here twice").arg(cell[Number]);
    if (cell[Text].isEmpty())
        return QStringLiteral("the text is missing");
    if (cell[Unit].isEmpty())
        return QStringLiteral("the unit is missing");
    const auto quantity = figure(cell[Quantity], m_columns->decimalComma);
    if (!quantity)
        return QStringLiteral("\"%1\" is not a quantity").arg(cell[Quantity]);
    std::optional<Thousandths> rate;
    if (!cell[Rate].isEmpty() && !(rate = figure(cell[Rate], m_columns->decimalComma)))
        return QStringLiteral("\"%1\" is not a rate").arg(cell[Rate]);
    if (rate && !cell[Amount].isEmpty()) {
        // What was recognised wrongly shows here.
        const auto amount = figure(cell[Amount], m_columns->decimalComma);
        const auto cents = amountInCents(*quantity, *rate);
        if (!amount || !cents || *amount != *cents * 10)
            return QStringLiteral("%1 times %2 is not %3")
                .arg(cell[Quantity], cell[Rate], cell[Amount]);
    }
    m_numbers.insert(cell[Number]);
    m_bill.items.push_back(
        { -1, cell[Number], cell[Text], QString(), cell[Unit], QString(), *quantity, rate });
    return {};
}

} // namespace

ImportResult importTable(const QByteArray &content, const QString &name)
{
    PageReader page;
    int line = 0;
    for (const QByteArray &bytes : content.split('\n')) {
        ++line;
        const QString text = QString::fromUtf8(bytes);
        QStringList cells = text.split(QLatin1Char('\t'));
        for (QString &cell : cells)
            cell = cell.simplified();
        while (!cells.isEmpty() && cells.last().isEmpty())
            cells.removeLast();
        if (cells.isEmpty())
            continue;
        const QString reason = text.contains(QChar::ReplacementCharacter)
            ? QStringLiteral("the text is not UTF-8")
            : page.take(cells);
        if (!reason.isEmpty())
            return { std::nullopt,
                QStringLiteral("%1, line %2: %3").arg(name, QString::number(line), reason) };
    }
    if (!page.foundColumns())
        return { std::nullopt,
            QStringLiteral("%1: no line names the columns (item, description, quantity, unit)")
                .arg(name) };
    if (page.bill().items.empty())
        return { std::nullopt, QStringLiteral("%1: there is no item in the file").arg(name) };
    page.bill().title = name.left(name.lastIndexOf(QLatin1Char('.')));
    return { page.bill(), QString() };
}

} // namespace kvx::content
