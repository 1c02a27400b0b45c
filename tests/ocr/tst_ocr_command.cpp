#include "support/DrawnPage.h"
#include "team/Team.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace kvx::test;

namespace {

struct OcrCommand : testing::Test {
    Team team { 1 };
    QTemporaryDir folder;

    void SetUp() override { team.member(0).stop(); }

    QString put(const QString &name, const std::string &bytes) const
    {
        return written(folder.filePath(name), QByteArray::fromStdString(bytes));
    }
    Ended ocr(const QStringList &arguments, bool json = false) const
    {
        QStringList command = as(team.account(0), QStringList(QStringLiteral("ocr")) + arguments);
        if (json)
            command.prepend(QStringLiteral("--json"));
        return runKvx(command);
    }
    static QByteArray read(const QString &path)
    {
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
        return file.readAll();
    }
};

} // namespace

TEST_F(OcrCommand, ShowsTheTextAndThePagesAsTheyCome)
{
    const QString scan
        = put(QStringLiteral("a.pdf"), pdfOf({ smallPage("First"), smallPage("Second") }));
    const Ended ended = ocr({ scan });
    EXPECT_EQ(ended.exit, 0) << ended.err.toStdString();
    EXPECT_EQ(ended.out.simplified().toStdString(), "First Second");
    EXPECT_TRUE(ended.err.contains(scan + QLatin1String(": page 2 is recognised")));
}

TEST_F(OcrCommand, WritesATableForASheet)
{
    const QString scan = put(QStringLiteral("bill.png"), pictureOf(billPage(), "png"));
    const QString target = folder.filePath(QStringLiteral("bill.tsv"));
    const Ended ended = ocr({ scan, QStringLiteral("--export"), QStringLiteral("table"),
        QStringLiteral("-o"), target });
    EXPECT_EQ(ended.exit, 0) << ended.err.toStdString();
    EXPECT_TRUE(read(target).contains("02.02.0030\tReinforcement B500B\tkg\t28,400\t1.82\t"));
}

TEST_F(OcrCommand, MakesSearchablePdfsInAFolder)
{
    const QString first = put(QStringLiteral("a.png"), pictureOf(smallPage("First"), "png"));
    const QString second = put(QStringLiteral("b.png"), pictureOf(smallPage("Second"), "png"));
    const QString mine = put(QStringLiteral("a.ocr.pdf"), "kept");
    const QString target = folder.filePath(QStringLiteral("out"));
    QDir().mkpath(target);
    const Ended ended = ocr({ first, second, QStringLiteral("--export"), QStringLiteral("pdf"),
        QStringLiteral("-o"), target });
    EXPECT_EQ(ended.exit, 0) << ended.err.toStdString();
    EXPECT_NE(pdfText(read(target + QLatin1String("/b.ocr.pdf")).toStdString(), 0).find("Second"),
        std::string::npos);
    EXPECT_EQ(read(mine), "kept");
}

TEST_F(OcrCommand, HocrOfSeveralPagesIsOneDocument)
{
    const QString scan
        = put(QStringLiteral("a.pdf"), pdfOf({ smallPage("First"), smallPage("Second") }));
    const QString target = folder.filePath(QStringLiteral("a.hocr"));
    EXPECT_EQ(ocr({ scan, QStringLiteral("--export"), QStringLiteral("hocr"), QStringLiteral("-o"),
                      target })
                  .exit,
        0);
    const QByteArray text = read(target);
    EXPECT_EQ(text.count("<html"), 1);
    EXPECT_EQ(text.count("</html>"), 1);
    EXPECT_EQ(text.count("class='ocr_page'"), 2);
}

TEST_F(OcrCommand, TellsProgramsEachPageAndTheEnd)
{
    const QString scan = put(QStringLiteral("a.pdf"),
        pdfOf({ smallPage("First"), smallPage("Second"), smallPage("Third") }));
    const Ended ended = ocr({ scan, QStringLiteral("--pages"), QStringLiteral("2-3") }, true);
    EXPECT_EQ(ended.exit, 0) << ended.err.toStdString();
    QList<QJsonObject> objects;
    for (const QString &line : ended.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        objects.append(QJsonDocument::fromJson(line.toUtf8()).object());
    QStringList pages;
    for (const QJsonObject &object : objects) {
        if (object.value(QLatin1String("event")).toString() == QLatin1String("ocrPage"))
            pages.append(QStringLiteral("%1 %2")
                             .arg(object.value(QLatin1String("page")).toInt())
                             .arg(object.value(QLatin1String("text")).toString().trimmed()));
    }
    pages.sort();
    EXPECT_EQ(pages, QStringList({ QStringLiteral("2 Second"), QStringLiteral("3 Third") }));
    const QJsonObject file = objects.last().value(QLatin1String("files")).toArray()[0].toObject();
    EXPECT_EQ(objects.last().value(QLatin1String("exit")).toInt(-1), 0);
    EXPECT_EQ(file.value(QLatin1String("pages")).toInt(), 2);
}

TEST_F(OcrCommand, WhatFailsIsNamedAndTheRestIsKept)
{
    const QString good = put(QStringLiteral("a.png"), pictureOf(smallPage("Fine"), "png"));
    const QString bad = put(QStringLiteral("b.txt"), "just text");
    const Ended ended = ocr({ bad, good });
    EXPECT_EQ(ended.exit, 1);
    EXPECT_EQ(ended.out.trimmed().toStdString(), "Fine");
    EXPECT_TRUE(ended.err.contains(bad + QLatin1String(": The document cannot be read")));
}

TEST_F(OcrCommand, ArgumentsThatMakeNoSenseAreUsageErrors)
{
    const QString scan = put(QStringLiteral("a.png"), pictureOf(smallPage(), "png"));
    for (const QStringList &arguments :
        { QStringList({ scan, QStringLiteral("--export"), QStringLiteral("doc") }),
            QStringList({ scan, QStringLiteral("--pages"), QStringLiteral("3-1") }),
            QStringList({ scan, QStringLiteral("--pages"), QStringLiteral("0") }),
            QStringList({ scan, QStringLiteral("--pages"), QStringLiteral("x") }),
            QStringList({ scan, scan, QStringLiteral("-o"), scan }), QStringList() }) {
        EXPECT_EQ(ocr(arguments).exit, 2) << arguments.join(QLatin1Char(' ')).toStdString();
    }
}
