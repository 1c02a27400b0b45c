#include "cli/Commands.h"
#include "client/Client.h"

#include <CLI/CLI.hpp>
#include <KVXCollaboration/KVXCWOCR.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXOCRSDK/KVXOCRParam.h>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QMap>
#include <QSaveFile>
#include <QTemporaryDir>
#include <cstdio>
#include <memory>
#include <vector>

namespace kvx::cli {

namespace {

constexpr int pageFailed = 683; ///< an error of one page; the job goes on

struct Arguments {
    std::vector<std::string> files;
    std::vector<std::string> languages;
    std::string exportName = "text";
    std::string pages;
    std::string output;
};

/// One document on its way.
struct Scan {
    QString source;
    QString sent; ///< what the manager is given: the source, or a copy
    QMap<int, QString> pages;
    QJsonArray failures;
    QString target; ///< where the result was put; empty: shown
    bool ended = false;
};

using Scans = std::vector<Scan>;

const QMap<QString, int> &exportNames()
{
    static const QMap<QString, int> names { { QStringLiteral("text"), KVXOCRParam::Text },
        { QStringLiteral("hocr"), KVXOCRParam::HOcr },
        { QStringLiteral("pdf"), KVXOCRParam::SearchablePdf },
        { QStringLiteral("table"), KVXOCRParam::Table } };
    return names;
}

QString suffixOf(int exportType)
{
    switch (exportType) {
    case KVXOCRParam::HOcr:
        return QStringLiteral(".hocr");
    case KVXOCRParam::SearchablePdf:
        return QStringLiteral(".ocr.pdf");
    case KVXOCRParam::Table:
        return QStringLiteral(".tsv");
    default:
        return QStringLiteral(".txt");
    }
}

/// "1-3,5" as pages counted from 0. False when it is no such list.
bool readPages(const QString &text, QList<int> &pages)
{
    for (const QString &part : text.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const QStringList ends = part.split(QLatin1Char('-'));
        bool firstIsNumber = false;
        bool lastIsNumber = false;
        const int first = ends.first().trimmed().toInt(&firstIsNumber);
        const int last = ends.last().trimmed().toInt(&lastIsNumber);
        if (ends.size() > 2 || !firstIsNumber || !lastIsNumber || first < 1 || last < first
            || last > 10'000)
            return false;
        for (int page = first; page <= last; ++page)
            pages.append(page - 1);
    }
    return true;
}

/// hOCR is a document a page: one head, the bodies of all, one end.
QString joinedHocr(const QMap<int, QString> &pages)
{
    const QString open = QStringLiteral("<body>\n");
    const QString close = QStringLiteral("</body>");
    QString text;
    for (const QString &page : pages) {
        const int begin = page.indexOf(open) + open.size();
        const int end = page.lastIndexOf(close);
        text += text.isEmpty() ? page.left(end) : page.mid(begin, end - begin);
    }
    return text.isEmpty() ? text : text + QStringLiteral("</body>\n</html>\n");
}

QString textOf(const Scan &scan, int exportType)
{
    return exportType == KVXOCRParam::HOcr ? joinedHocr(scan.pages)
                                           : QStringList(scan.pages.values()).join(QString());
}

QString targetOf(const Scan &scan, const QString &output, int exportType)
{
    if (!output.isEmpty() && !QFileInfo(output).isDir())
        return output;
    const QFileInfo source(scan.source);
    const QString name = source.completeBaseName() + suffixOf(exportType);
    if (!output.isEmpty())
        return output + QLatin1Char('/') + name;
    return exportType == KVXOCRParam::SearchablePdf ? source.dir().filePath(name) : QString();
}

bool write(const QString &target, const QByteArray &bytes, QString &error)
{
    QSaveFile file(target);
    if (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.commit())
        return true;
    error = QStringLiteral("%1 cannot be written: %2.").arg(target, file.errorString());
    return false;
}

bool keepResult(
    Scan &scan, const Arguments &arguments, int exportType, Context &context, QString &error)
{
    const QString target = targetOf(scan, QString::fromStdString(arguments.output), exportType);
    if (exportType == KVXOCRParam::SearchablePdf) {
        QFile document(KVXOCRParam::searchablePdfPath(scan.sent));
        if (!document.open(QIODevice::ReadOnly)) {
            error = QStringLiteral("%1: there is no document.").arg(scan.source);
            return false;
        }
        scan.target = target;
        return write(target, document.readAll(), error);
    }
    const QString text = textOf(scan, exportType);
    if (target.isEmpty()) {
        context.output.line(text.endsWith(QLatin1Char('\n')) ? text.chopped(1) : text);
        return true;
    }
    scan.target = target;
    return write(target, text.toUtf8(), error);
}

void tell(const Context &context, const QString &text)
{
    if (!context.output.json())
        std::fprintf(stderr, "%s\n", qUtf8Printable(text));
}

void noteFailure(Context &context, Scan &scan, int code, const QString &message)
{
    scan.failures.append(
        QJsonObject { { QStringLiteral("code"), code }, { QStringLiteral("message"), message } });
    tell(context, QStringLiteral("%1: %2").arg(scan.source, message));
    context.output.event(QStringLiteral("ocrError"),
        { { QStringLiteral("file"), scan.source }, { QStringLiteral("code"), code },
            { QStringLiteral("message"), message } });
}

/// Runs the host's loop until every document is through. False: interrupted, or refused.
bool recognise(
    Context &context, Scans &scans, const QStringList &languages, int type, const QList<int> &pages)
{
    KVXCWOCR *ocr = KVXCollaborator::getInstance()->ocr();
    QEventLoop loop;
    std::size_t left = scans.size();
    const auto find = [&scans](const QString &file) -> Scan * {
        for (Scan &scan : scans) {
            if (scan.sent == file)
                return &scan;
        }
        return nullptr;
    };
    const auto end = [&](Scan *scan) {
        if (scan->ended)
            return;
        scan->ended = true;
        if (--left == 0)
            loop.quit();
    };
    QObject::connect(
        ocr, &KVXCWOCR::pageOcred, &loop, [&](const QString &file, int page, const QString &text) {
            Scan *scan = find(file);
            if (!scan)
                return;
            scan->pages.insert(page, text);
            tell(context,
                QStringLiteral("%1: page %2 is recognised")
                    .arg(scan->source, QString::number(page + 1)));
            context.output.event(QStringLiteral("ocrPage"),
                { { QStringLiteral("file"), scan->source }, { QStringLiteral("page"), page + 1 },
                    { QStringLiteral("text"), text } });
        });
    QObject::connect(ocr, &KVXCWOCR::finished, &loop, [&](const QString &file) {
        if (Scan *scan = find(file))
            end(scan);
    });
    QObject::connect(
        ocr, &KVXCWOCR::error, &loop, [&](const QString &file, int code, const QString &message) {
            Scan *scan = find(file);
            if (!scan)
                return;
            noteFailure(context, *scan, code, message);
            if (code != pageFailed)
                end(scan);
        });
    QObject::connect(ocr, &KVXCWOCR::remainTime, &loop, [&](int seconds) {
        if (seconds > 0)
            tell(context, QStringLiteral("waiting, about %1 s").arg(seconds));
        context.output.event(
            QStringLiteral("ocrWaiting"), { { QStringLiteral("seconds"), seconds } });
    });
    QList<KVXCWOCRParams *> jobs;
    for (const Scan &scan : scans)
        jobs.append(new KVXCWOCRParams { scan.sent, languages, type, pages });
    if (!ocr->recognize(jobs))
        return false;
    loop.exec();
    if (left == 0)
        return true;
    ocr->stop();
    return false;
}

int ocr(Context &context, const Arguments &arguments)
{
    const auto type = exportNames().constFind(QString::fromStdString(arguments.exportName));
    if (type == exportNames().constEnd())
        return context.output.failed(Usage,
            QStringLiteral("--export is one of %1.")
                .arg(QStringList(exportNames().keys()).join(QStringLiteral(", "))));
    QList<int> pages;
    if (!readPages(QString::fromStdString(arguments.pages), pages))
        return context.output.failed(Usage,
            QStringLiteral("\"%1\" is no list of pages like 1-3,5.")
                .arg(QString::fromStdString(arguments.pages)));
    const QString output = QString::fromStdString(arguments.output);
    if (arguments.files.size() > 1 && !output.isEmpty() && !QFileInfo(output).isDir())
        return context.output.failed(
            Usage, QStringLiteral("%1 is no folder, and there are several documents.").arg(output));
    if (!KVXCollaborator::getInstance()->ocr())
        return context.output.failed(Refused, QStringLiteral("There is no recognition here."));

    Scans scans;
    // The client puts a PDF beside its source; a copy keeps what lies there already.
    const QTemporaryDir copies;
    for (const std::string &file : arguments.files) {
        Scan scan;
        scan.source = scan.sent = QString::fromStdString(file);
        if (*type == KVXOCRParam::SearchablePdf && QFileInfo(scan.source).isFile()) {
            const QString folder = copies.filePath(QString::number(scans.size()));
            QDir().mkpath(folder);
            scan.sent = folder + QLatin1Char('/') + QFileInfo(scan.source).fileName();
            if (!QFile::copy(scan.source, scan.sent))
                return context.output.failed(
                    Refused, QStringLiteral("%1 cannot be read.").arg(scan.source));
        }
        scans.push_back(scan);
    }
    QStringList languages;
    for (const std::string &language : arguments.languages)
        languages.append(QString::fromStdString(language));
    if (!recognise(context, scans, languages, *type, pages))
        return context.output.failed(Refused, QStringLiteral("The recognition was broken off."));

    QJsonArray results;
    bool whole = true;
    for (Scan &scan : scans) {
        QString error;
        if (!scan.pages.isEmpty() && !keepResult(scan, arguments, *type, context, error))
            noteFailure(context, scan, 0, error);
        whole = whole && scan.failures.isEmpty();
        results.append(QJsonObject { { QStringLiteral("file"), scan.source },
            { QStringLiteral("pages"), scan.pages.size() },
            { QStringLiteral("output"), scan.target },
            { QStringLiteral("failures"), scan.failures } });
        if (!scan.target.isEmpty())
            tell(context, QStringLiteral("%1: stored as %2").arg(scan.source, scan.target));
    }
    const QJsonObject data { { QStringLiteral("files"), results } };
    return whole ? context.output.done(QString(), data)
                 : context.output.failed(
                     Refused, QStringLiteral("Not everything could be recognised."), data);
}

} // namespace

void addOcrCommands(CLI::App &app, Action &action)
{
    const auto arguments = std::make_shared<Arguments>();
    CLI::App *command = app.add_subcommand("ocr", "Recognise the text of scanned documents");
    command->add_option("files", arguments->files, "PNG, JPEG, TIFF, BMP or PDF files")->required();
    command
        ->add_option(
            "--language", arguments->languages, "Language of the text (eng, deu); may be repeated")
        ->expected(1);
    command->add_option("--export", arguments->exportName,
        "text (default), table with tabs between the columns, hocr, or a searchable pdf");
    command->add_option("--pages", arguments->pages, "Pages like 1-3,5; all unless said");
    command->add_option("-o,--output", arguments->output,
        "File, or folder for several; else the text is shown and a PDF put beside its source");
    command->callback([&action, arguments] {
        action = [arguments](Context &context) { return ocr(context, *arguments); };
    });
}

} // namespace kvx::cli
