#include "content/Bill.h"

#include <QHash>
#include <QStringList>
#include <QTextCodec>

namespace kvx::content {

namespace {

/// Splits CSV text into records; a quoted field may hold separators, quotes and line ends.
class CsvReader {
public:
    CsvReader(const QString &text, QChar separator)
        : m_text(text)
        , m_separator(separator)
    {
    }

    /// False at the end of the text or on an error.
    bool next(QStringList &fields);
    int line() const { return m_recordLine; } ///< on which the last record begins, from 1
    const QString &error() const { return m_error; }

private:
    bool readField(QString &field);
    bool atLineEnd() const { return m_at >= m_text.size() || m_text.at(m_at) == QLatin1Char('\n'); }

    const QString &m_text;
    QChar m_separator;
    int m_at = 0;
    int m_line = 1;
    int m_recordLine = 1;
    QString m_error;
};

bool CsvReader::next(QStringList &fields)
{
    fields.clear();
    if (m_at >= m_text.size())
        return false;
    m_recordLine = m_line;
    for (;;) {
        QString field;
        if (!readField(field))
            return false;
        fields.append(field);
        if (m_at < m_text.size() && m_text.at(m_at) == m_separator) {
            ++m_at;
            continue;
        }
        ++m_at; // the line feed
        ++m_line;
        return true;
    }
}

bool CsvReader::readField(QString &field)
{
    if (m_at >= m_text.size() || m_text.at(m_at) != QLatin1Char('"')) {
        const int begin = m_at;
        while (!atLineEnd() && m_text.at(m_at) != m_separator)
            ++m_at;
        field = m_text.mid(begin, m_at - begin).trimmed();
        return true;
    }
    for (++m_at; m_at < m_text.size(); ++m_at) {
        const QChar c = m_text.at(m_at);
        if (c == QLatin1Char('"')) {
            if (m_at + 1 < m_text.size() && m_text.at(m_at + 1) == QLatin1Char('"')) {
                field += c;
                ++m_at;
                continue;
            }
            ++m_at;
            if (!atLineEnd() && m_text.at(m_at) != m_separator) {
                m_error = QStringLiteral("text follows the closing quotation mark");
                return false;
            }
            return true;
        }
        if (c == QLatin1Char('\n'))
            ++m_line;
        field += c;
    }
    m_error = QStringLiteral("the quotation mark is never closed");
    return false;
}

QChar separatorOf(const QString &text)
{
    const QString header = text.left(text.indexOf(QLatin1Char('\n')));
    for (const char candidate : { ';', '\t', ',' }) {
        if (header.contains(QLatin1Char(candidate)))
            return QLatin1Char(candidate);
    }
    return QLatin1Char(';');
}

int lineOfInvalidText(const QByteArray &content)
{
    int line = 1;
    for (const QByteArray &text : content.split('\n')) {
        QTextCodec::ConverterState state;
        QTextCodec::codecForName("UTF-8")->toUnicode(text.constData(), text.size(), &state);
        if (state.invalidChars > 0 || state.remainingChars > 0)
            return line;
        ++line;
    }
    return 0;
}

/// Index of the chapter with the longest number that is a proper prefix of the given one.
int chapterOf(const QHash<QString, int> &chapters, const QString &number)
{
    for (int end = number.lastIndexOf(QLatin1Char('.')); end > 0;
         end = number.lastIndexOf(QLatin1Char('.'), end - 1)) {
        const auto found = chapters.constFind(number.left(end));
        if (found != chapters.constEnd())
            return found.value();
    }
    return -1;
}

} // namespace

ImportResult importCsv(const QByteArray &content, const QString &name)
{
    const auto failed = [&name](int line, const QString &reason) {
        return ImportResult { std::nullopt,
            QStringLiteral("%1, line %2: %3").arg(name, QString::number(line), reason) };
    };
    if (const int line = lineOfInvalidText(content))
        return failed(line, QStringLiteral("the text is not UTF-8"));
    QString text = QString::fromUtf8(content);
    if (text.startsWith(QChar(0xFEFF)))
        text.remove(0, 1);
    text.replace(QLatin1String("\r\n"), QLatin1String("\n"));

    const QChar separator = separatorOf(text);
    const bool decimalComma = separator != QLatin1Char(',');
    CsvReader reader(text, separator);
    QStringList fields;
    if (!reader.next(fields))
        return failed(
            1, reader.error().isEmpty() ? QStringLiteral("the file is empty") : reader.error());
    QHash<QString, int> columns;
    for (int i = 0; i < fields.size(); ++i)
        columns.insert(fields.at(i).toLower(), i);
    for (const char *needed : { "number", "text", "unit", "quantity", "rate" }) {
        if (!columns.contains(QLatin1String(needed)))
            return failed(
                1, QStringLiteral("there is no column \"%1\"").arg(QLatin1String(needed)));
    }

    Bill bill;
    bill.title = name.left(name.lastIndexOf(QLatin1Char('.')));
    QHash<QString, int> chapters;
    QHash<QString, int> items;
    const int width = fields.size();
    while (reader.next(fields)) {
        const int line = reader.line();
        if (fields.size() == 1 && fields.first().isEmpty())
            continue;
        if (fields.size() != width)
            return failed(line,
                QStringLiteral("%1 fields instead of %2")
                    .arg(QString::number(fields.size()), QString::number(width)));
        const auto field = [&](const char *column) {
            const int at = columns.value(QLatin1String(column), -1);
            return at < 0 ? QString() : fields.at(at);
        };
        const QString number = field("number");
        if (number.isEmpty())
            return failed(line, QStringLiteral("the number is missing"));
        if (chapters.contains(number) || items.contains(number))
            return failed(line, QStringLiteral("the number %1 stands here twice").arg(number));

        const QString kind = field("kind").toLower();
        const bool figures
            = !field("unit").isEmpty() || !field("quantity").isEmpty() || !field("rate").isEmpty();
        if (!figures && kind != QLatin1String("note")) {
            chapters.insert(number, static_cast<int>(bill.chapters.size()));
            bill.chapters.push_back({ chapterOf(chapters, number), number, field("text") });
            continue;
        }
        Bill::Item item;
        item.chapter = chapterOf(chapters, number);
        item.number = number;
        item.shortText = field("text");
        item.longText = field("longtext");
        item.unit = field("unit");
        item.kind = kind;
        if (!field("quantity").isEmpty()) {
            const auto quantity = parseDecimal(field("quantity"), decimalComma);
            if (!quantity)
                return failed(
                    line, QStringLiteral("\"%1\" is not a quantity").arg(field("quantity")));
            item.quantity = *quantity;
        }
        if (!field("rate").isEmpty()) {
            item.rate = parseDecimal(field("rate"), decimalComma);
            if (!item.rate)
                return failed(line, QStringLiteral("\"%1\" is not a rate").arg(field("rate")));
        }
        items.insert(number, line);
        bill.items.push_back(item);
    }
    if (!reader.error().isEmpty())
        return failed(reader.line(), reader.error());
    if (bill.items.empty())
        return failed(1, QStringLiteral("there is no item in the file"));
    return { bill, QString() };
}

} // namespace kvx::content
