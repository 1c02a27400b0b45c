#pragma once

#include <QList>
#include <QString>
#include <QStringList>

/// One recognition job of the OCR client.
struct KVXOCRParam {
    enum OCRExportType { Text = 0, HOcr = 1, SearchablePdf = 2, Table = 3 };

    KVXOCRParam(
        QStringList &languages, OCRExportType exportType, QList<int> &pageIndexes, QString filePath)
        : languages(languages)
        , exportType(exportType)
        , pageIndexes(pageIndexes)
        , filePath(filePath)
    {
    }

    QStringList languages;
    OCRExportType exportType;
    QList<int> pageIndexes; ///< from 0; empty: all pages
    QString filePath;
};
