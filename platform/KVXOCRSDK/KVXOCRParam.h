#pragma once

#include <QDir>
#include <QFileInfo>
#include <QList>
#include <QString>
#include <QStringList>

/// One recognition job of the OCR client.
struct KVXOCRParam {
    enum OCRExportType {
        Text = 0, ///< plain text
        HOcr = 1, ///< words with their places, XHTML
        SearchablePdf = 2, ///< the document with its text behind the picture
        Table = 3 ///< rows and columns, tabs between the columns
    };

    KVXOCRParam(
        QStringList &languages, OCRExportType exportType, QList<int> &pageIndexes, QString filePath)
        : languages(languages)
        , exportType(exportType)
        , pageIndexes(pageIndexes)
        , filePath(filePath)
    {
    }

    /// Where the searchable PDF of a document is put: "scan.pdf" → "scan.ocr.pdf" beside it. A
    /// file of that name is replaced.
    static QString searchablePdfPath(const QString &filePath)
    {
        const QFileInfo file(filePath);
        return file.dir().filePath(file.completeBaseName() + QStringLiteral(".ocr.pdf"));
    }

    QStringList languages; ///< Tesseract's names ("eng", "deu"); empty: English
    OCRExportType exportType;
    QList<int> pageIndexes; ///< from 0; empty: all pages
    QString filePath;
};
