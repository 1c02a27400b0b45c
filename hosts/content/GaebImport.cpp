#include "content/Bill.h"

#include <QStringList>
#include <algorithm>
#include <cstring>
#include <pugixml.hpp>

namespace kvx::content {

namespace {

/// Element names are compared without their namespace prefix.
const char *localName(const pugi::xml_node &node)
{
    const char *colon = std::strchr(node.name(), ':');
    return colon ? colon + 1 : node.name();
}

bool isNamed(const pugi::xml_node &node, const char *name)
{
    return std::strcmp(localName(node), name) == 0;
}

pugi::xml_node child(const pugi::xml_node &node, const char *name)
{
    for (const pugi::xml_node &candidate : node.children()) {
        if (candidate.type() == pugi::node_element && isNamed(candidate, name))
            return candidate;
    }
    return {};
}

QString value(const pugi::xml_node &node, const char *name)
{
    return QString::fromUtf8(child(node, name).child_value()).trimmed();
}

/// The text below a node: spans are joined, paragraphs and line breaks become line feeds.
void collectText(const pugi::xml_node &node, QString &text, int depth = 0)
{
    if (depth > 100)
        return;
    for (const pugi::xml_node &part : node.children()) {
        if (part.type() == pugi::node_pcdata || part.type() == pugi::node_cdata) {
            text += QString::fromUtf8(part.value()).simplified();
            continue;
        }
        const bool paragraph = isNamed(part, "p") || isNamed(part, "br") || isNamed(part, "div")
            || isNamed(part, "li") || isNamed(part, "Text") || isNamed(part, "TextComplement");
        if (paragraph && !text.isEmpty() && !text.endsWith(QLatin1Char('\n')))
            text = text.trimmed() + QLatin1Char('\n');
        else if (!text.isEmpty() && !text.endsWith(QLatin1Char('\n'))
            && !text.endsWith(QLatin1Char(' ')))
            text += QLatin1Char(' ');
        collectText(part, text, depth + 1);
    }
}

QString textOf(const pugi::xml_node &node)
{
    QString text;
    collectText(node, text);
    return text.trimmed();
}

class GaebReader {
public:
    GaebReader(const QByteArray &content, const QString &name)
        : m_content(content)
        , m_name(name)
    {
    }

    ImportResult read();

private:
    bool readHead(pugi::xml_node &award, const pugi::xml_node &root);
    bool readBody(const pugi::xml_node &body, int chapter, const QString &prefix, int depth);
    bool readItem(const pugi::xml_node &node, int chapter, const QString &prefix);
    bool readDecimal(const pugi::xml_node &item, const char *name, const QString &number,
        std::optional<Thousandths> &out);
    void readTexts(const pugi::xml_node &node, Bill::Item &item) const;
    bool failAt(std::ptrdiff_t offset, const QString &reason);
    bool fail(const pugi::xml_node &node, const QString &reason)
    {
        return failAt(node.offset_debug(), reason);
    }

    const QByteArray &m_content;
    QString m_name;
    Bill m_bill;
    QString m_error;
};

bool GaebReader::failAt(std::ptrdiff_t offset, const QString &reason)
{
    const auto end = m_content.begin()
        + static_cast<int>(std::clamp<std::ptrdiff_t>(offset, 0, m_content.size()));
    const auto line = 1 + std::count(m_content.begin(), end, '\n');
    m_error = QStringLiteral("%1, line %2: %3").arg(m_name, QString::number(line), reason);
    return false;
}

ImportResult GaebReader::read()
{
    pugi::xml_document document;
    const pugi::xml_parse_result parsed
        = document.load_buffer(m_content.constData(), static_cast<std::size_t>(m_content.size()),
            pugi::parse_default | pugi::parse_ws_pcdata_single);
    if (!parsed) {
        failAt(parsed.offset, QString::fromLatin1(parsed.description()));
        return { std::nullopt, m_error };
    }
    pugi::xml_node award;
    if (!readHead(award, document.document_element()))
        return { std::nullopt, m_error };
    const pugi::xml_node boq = child(award, "BoQ");
    const pugi::xml_node info = child(boq, "BoQInfo");
    m_bill.title = value(info, "LblBoQ");
    if (m_bill.title.isEmpty())
        m_bill.title = value(info, "Name");
    if (!readBody(child(boq, "BoQBody"), -1, QString(), 0))
        return { std::nullopt, m_error };
    if (m_bill.items.empty()) {
        fail(boq, QStringLiteral("the bill of quantities holds no item"));
        return { std::nullopt, m_error };
    }
    return { m_bill, QString() };
}

bool GaebReader::readHead(pugi::xml_node &award, const pugi::xml_node &root)
{
    if (!isNamed(root, "GAEB"))
        return fail(root,
            QStringLiteral("this is not a GAEB DA XML file; it begins with <%1>")
                .arg(QString::fromUtf8(root.name())));
    const QString version = value(child(root, "GAEBInfo"), "Version");
    if (!version.startsWith(QLatin1String("3.")))
        return fail(root, QStringLiteral("GAEB version \"%1\"; only 3.x can be read").arg(version));
    award = child(root, "Award");
    if (!award)
        return fail(root, QStringLiteral("the element <Award> is missing"));
    const QString phase = value(award, "DP");
    if (phase != QLatin1String("83") && phase != QLatin1String("84"))
        return fail(
            award, QStringLiteral("exchange phase \"%1\"; only 83 and 84 can be read").arg(phase));
    if (!child(child(award, "BoQ"), "BoQBody"))
        return fail(award, QStringLiteral("there is no bill of quantities (<BoQ> with <BoQBody>)"));
    return true;
}

bool GaebReader::readBody(const pugi::xml_node &body, int chapter, const QString &prefix, int depth)
{
    if (depth > 20)
        return fail(body, QStringLiteral("chapters are nested deeper than 20"));
    for (const pugi::xml_node &node : body.children()) {
        if (isNamed(node, "BoQCtgy")) {
            const QString part = QString::fromUtf8(node.attribute("RNoPart").value()).trimmed();
            if (part.isEmpty())
                return fail(node, QStringLiteral("a chapter has no number (RNoPart)"));
            const QString number = prefix.isEmpty() ? part : prefix + QLatin1Char('.') + part;
            const int index = static_cast<int>(m_bill.chapters.size());
            m_bill.chapters.push_back({ chapter, number, textOf(child(node, "LblTx")) });
            if (!readBody(child(node, "BoQBody"), index, number, depth + 1))
                return false;
        } else if (isNamed(node, "Itemlist")) {
            for (const pugi::xml_node &item : node.children()) {
                if ((isNamed(item, "Item") || isNamed(item, "Remark"))
                    && !readItem(item, chapter, prefix))
                    return false;
            }
        }
    }
    return true;
}

bool GaebReader::readDecimal(const pugi::xml_node &item, const char *name, const QString &number,
    std::optional<Thousandths> &out)
{
    const QString text = value(item, name);
    if (text.isEmpty())
        return true;
    out = parseDecimal(text);
    return out
        || fail(child(item, name),
            QStringLiteral("item %1: \"%2\" is not a number (%3)")
                .arg(number, text, QLatin1String(name)));
}

void GaebReader::readTexts(const pugi::xml_node &node, Bill::Item &item) const
{
    const pugi::xml_node text = child(child(node, "Description"), "CompleteText");
    item.shortText
        = textOf(child(text, "OutlineText")).replace(QLatin1Char('\n'), QLatin1Char(' '));
    QStringList parts { textOf(child(text, "DetailTxt")) };
    for (const pugi::xml_node &sub : node.children()) {
        if (!isNamed(sub, "SubDescr"))
            continue;
        const pugi::xml_node subText = child(child(sub, "Description"), "CompleteText");
        QString detail = textOf(child(subText, "DetailTxt"));
        if (detail.isEmpty())
            detail = textOf(child(subText, "OutlineText"));
        parts.append(
            QStringList { value(sub, "SubDNo"), detail, value(sub, "Qty"), value(sub, "QU") }
                .join(QLatin1Char(' '))
                .simplified());
    }
    parts.removeAll(QString());
    item.longText = parts.join(QLatin1Char('\n'));
    if (item.shortText.isEmpty())
        item.shortText = item.longText.section(QLatin1Char('\n'), 0, 0).left(70);
}

bool GaebReader::readItem(const pugi::xml_node &node, int chapter, const QString &prefix)
{
    Bill::Item item;
    item.chapter = chapter;
    readTexts(node, item);
    if (isNamed(node, "Remark")) {
        item.kind = QStringLiteral("note");
        item.number = prefix;
        m_bill.items.push_back(item);
        return true;
    }
    QString part = QString::fromUtf8(node.attribute("RNoPart").value()).trimmed();
    if (part.isEmpty())
        return fail(node, QStringLiteral("an item has no number (RNoPart)"));
    const QString index = QString::fromUtf8(node.attribute("RNoIndex").value()).trimmed();
    if (!index.isEmpty())
        part += QLatin1Char('.') + index;
    item.number = prefix.isEmpty() ? part : prefix + QLatin1Char('.') + part;
    item.unit = value(node, "QU");

    if (value(node, "LumpSumItem") == QLatin1String("Yes"))
        item.kind = QStringLiteral("lumpsum");
    else if (value(node, "HourIt") == QLatin1String("Yes"))
        item.kind = QStringLiteral("hourly");
    else if (!value(node, "Provis").isEmpty())
        item.kind = QStringLiteral("optional");
    else if (value(node, "ALNSerNo").toInt() > 1)
        item.kind = QStringLiteral("alternative");

    std::optional<Thousandths> quantity;
    if (!readDecimal(node, "Qty", item.number, quantity)
        || !readDecimal(node, "UP", item.number, item.rate))
        return false;
    // A lump sum, and an offer's item that leaves the quantity to the request, count once.
    item.quantity = quantity.value_or(1000);
    m_bill.items.push_back(item);
    return true;
}

} // namespace

ImportResult importGaeb(const QByteArray &content, const QString &name)
{
    return GaebReader(content, name).read();
}

} // namespace kvx::content
