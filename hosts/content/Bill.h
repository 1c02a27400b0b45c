#pragma once

#include "content/Decimal.h"

#include <QByteArray>
#include <QString>
#include <optional>
#include <vector>

namespace kvx::content {

/// A bill of quantities in memory, as an import reads it: chapters before what stands in them.
struct Bill {
    struct Chapter {
        int parent = -1; ///< index of the chapter around it; -1: none
        QString number; ///< in full, "01.02"
        QString title;
    };
    struct Item {
        int chapter = -1; ///< index; -1: directly under the bill
        QString number; ///< in full, "01.02.0010"
        QString shortText;
        QString longText; ///< paragraphs separated by line feeds
        QString unit;
        QString kind; ///< "", "optional", "alternative", "lumpsum", "hourly" or "note"
        Thousandths quantity = 0;
        std::optional<Thousandths> rate; ///< none: not priced yet
    };

    QString title;
    std::vector<Chapter> chapters;
    std::vector<Item> items;
};

/// What an import gives: a bill, or the reason why not ("bill.x83, line 12: …").
struct ImportResult {
    std::optional<Bill> bill;
    QString error;
};

/// Reads a bill of quantities. The format follows the file's name: ".csv", ".tsv" for recognised
/// pages, or ".x83" and ".x84" (also ".xml") for GAEB DA XML 3.x. Files over 256 MiB are refused.
ImportResult importBill(const QString &path);

/// Semicolon, tab or comma separated, UTF-8, first line the column names: "number", "text",
/// "unit", "quantity", "rate", and optionally "longtext" and "kind". A line without unit,
/// quantity and rate is a chapter. A number's parts are separated by points; an item belongs to
/// the longest chapter number that its own begins with.
ImportResult importCsv(const QByteArray &content, const QString &name);

/// Items from recognised pages, columns separated by tabs, UTF-8. What stands above the line of
/// column names (English or German: item, description, unit, quantity, and rate and amount where
/// the page has them) is its heading; a line with nothing but a text belongs to the item above it.
/// The names' language tells the decimal sign. Every other line is an item or an error, so that
/// nothing is lost unseen; an amount must be quantity times rate.
ImportResult importTable(const QByteArray &content, const QString &name);

/// GAEB DA XML 3.x, phase 83 (request) or 84 (offer).
ImportResult importGaeb(const QByteArray &content, const QString &name);

} // namespace kvx::content
