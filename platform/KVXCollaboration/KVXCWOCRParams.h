#pragma once

#include <QList>
#include <QString>
#include <QStringList>

/// One recognition job as the host describes it.
struct KVXCWOCRParams {
    QString filePath;
    QStringList languages;
    int exportType = 0; ///< a KVXOCRParam::OCRExportType
    QList<int> pageIndexes; ///< from 0; empty: all pages
};
