#include "content/Bill.h"

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

using namespace kvx::content;

namespace {

QByteArray document(const QByteArray &body, const QByteArray &phase = "83")
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<GAEB xmlns=\"http://www.gaeb.de/GAEB_DA_XML/DA"
        + phase
        + "/3.3\">\n"
          "<GAEBInfo><Version>3.3</Version></GAEBInfo>\n"
          "<Award><DP>"
        + phase + "</DP>\n<BoQ><BoQInfo><Name>LV</Name></BoQInfo><BoQBody>\n" + body
        + "\n</BoQBody></BoQ></Award></GAEB>\n";
}

std::string errorOf(const QByteArray &content)
{
    const ImportResult result = importGaeb(content, QStringLiteral("bill.x83"));
    EXPECT_FALSE(result.bill);
    return result.error.toStdString();
}

QString dataFile(const char *name)
{
    return QStringLiteral(KVX_TEST_DATA "/") + QLatin1String(name);
}

} // namespace

TEST(GaebImport, ReadsARequestWithChaptersTextsAndKinds)
{
    const ImportResult result = importBill(dataFile("request.x83"));
    ASSERT_TRUE(result.bill) << result.error.toStdString();
    const Bill &bill = *result.bill;
    EXPECT_EQ(bill.title, QStringLiteral("Gerätehaus Süd"));
    ASSERT_EQ(bill.chapters.size(), 3u);
    EXPECT_EQ(bill.chapters.at(1).number, QStringLiteral("01.02"));
    EXPECT_EQ(bill.chapters.at(1).parent, 0);
    EXPECT_EQ(bill.chapters.at(1).title, QStringLiteral("Gründung"));
    ASSERT_EQ(bill.items.size(), 6u);
    const Bill::Item &first = bill.items.at(0);
    EXPECT_EQ(first.number, QStringLiteral("01.02.0010"));
    EXPECT_EQ(first.shortText, QStringLiteral("Fundamentgraben ausheben"));
    EXPECT_EQ(first.longText.toStdString(),
        "Boden lösen und laden.\nTiefe bis 1,25 m.\nBodenklasse: 4\n(laut Gutachten)\n"
        "1 Fels, gesondert 6.500 m3");
    EXPECT_EQ(first.unit, QStringLiteral("m3"));
    EXPECT_EQ(first.quantity, 84250);
    EXPECT_FALSE(first.rate);
    EXPECT_EQ(bill.items.at(1).kind, QStringLiteral("lumpsum"));
    EXPECT_EQ(bill.items.at(1).quantity, 1000);
    EXPECT_EQ(bill.items.at(2).kind, QStringLiteral("note"));
    EXPECT_EQ(bill.items.at(3).kind, QStringLiteral("optional"));
    EXPECT_EQ(bill.items.at(4).kind, QStringLiteral("alternative"));
    EXPECT_EQ(bill.items.at(4).number, QStringLiteral("02.0020.1"));
    EXPECT_EQ(bill.items.at(5).kind, QStringLiteral("hourly"));
}

TEST(GaebImport, ReadsTheRatesOfAnOffer)
{
    const ImportResult result = importBill(dataFile("offer.x84"));
    ASSERT_TRUE(result.bill) << result.error.toStdString();
    ASSERT_EQ(result.bill->items.size(), 2u);
    EXPECT_EQ(result.bill->items.at(0).rate, 12500);
    EXPECT_EQ(result.bill->items.at(0).quantity, 100000);
    EXPECT_EQ(result.bill->items.at(1).rate, 1480000);
}

TEST(GaebImport, TakesNamespacePrefixes)
{
    QByteArray content = document("<BoQCtgy RNoPart=\"01\"><LblTx><p>A</p></LblTx><BoQBody>"
                                  "<Itemlist><Item RNoPart=\"1\"><Qty>2</Qty><QU>m</QU></Item>"
                                  "</Itemlist></BoQBody></BoQCtgy>");
    content.replace("xmlns=", "xmlns:g=").replace("</", "</g:").replace("<?", "\x01");
    for (const char *name : { "GAEB", "GAEBInfo", "Version", "Award", "DP", "BoQInfo", "BoQBody",
             "BoQCtgy", "BoQ", "Name", "LblTx", "Itemlist", "Item", "Qty", "QU", "p" }) {
        content.replace(QByteArray("<") + name + ">", QByteArray("<g:") + name + ">");
        content.replace(QByteArray("<") + name + " ", QByteArray("<g:") + name + " ");
    }
    content.replace("\x01", "<?");
    const ImportResult result = importGaeb(content, QStringLiteral("bill.x83"));
    ASSERT_TRUE(result.bill) << result.error.toStdString();
    EXPECT_EQ(result.bill->items.at(0).number, QStringLiteral("01.1"));
}

TEST(GaebImport, NamesTheLineAndTheReason)
{
    EXPECT_EQ(errorOf("<GAEB>\n<Award>\n</GAEB>"), "bill.x83, line 3: Start-end tags mismatch");
    EXPECT_EQ(errorOf("<html></html>"),
        "bill.x83, line 1: this is not a GAEB DA XML file; it begins with <html>");
    EXPECT_EQ(errorOf("<GAEB><GAEBInfo><Version>2.0</Version></GAEBInfo></GAEB>"),
        "bill.x83, line 1: GAEB version \"2.0\"; only 3.x can be read");
    EXPECT_EQ(errorOf("<GAEB><GAEBInfo><Version>3.2</Version></GAEBInfo></GAEB>"),
        "bill.x83, line 1: the element <Award> is missing");
    EXPECT_EQ(errorOf(document("", "86")),
        "bill.x83, line 4: exchange phase \"86\"; only 83 and 84 can be read");
    EXPECT_EQ(errorOf(document("")), "bill.x83, line 5: the bill of quantities holds no item");
    EXPECT_EQ(errorOf(document("<BoQCtgy><BoQBody/></BoQCtgy>")),
        "bill.x83, line 6: a chapter has no number (RNoPart)");
    EXPECT_EQ(errorOf(document("<Itemlist>\n<Item><Qty>1</Qty></Item></Itemlist>")),
        "bill.x83, line 7: an item has no number (RNoPart)");
    EXPECT_EQ(errorOf(document("<Itemlist><Item RNoPart=\"1\">\n<Qty>one</Qty></Item></Itemlist>")),
        "bill.x83, line 7: item 1: \"one\" is not a number (Qty)");
}

TEST(GaebImport, RefusesDeepNesting)
{
    QByteArray body;
    for (int i = 0; i < 30; ++i)
        body += "<BoQCtgy RNoPart=\"1\"><BoQBody>";
    for (int i = 0; i < 30; ++i)
        body += "</BoQBody></BoQCtgy>";
    EXPECT_EQ(errorOf(document(body)), "bill.x83, line 6: chapters are nested deeper than 20");
}

TEST(GaebImport, EveryCutOfAFileEndsInABillOrAnError)
{
    QFile file(dataFile("request.x83"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray whole = file.readAll();
    for (int size = 0; size < whole.size(); size += 3) {
        const ImportResult result = importGaeb(whole.left(size), QStringLiteral("cut.x83"));
        EXPECT_FALSE(result.bill && size < whole.size() - 10) << size;
        EXPECT_NE(result.bill.has_value(), !result.error.isEmpty()) << size;
    }
}

TEST(GaebImport, NamesFilesThatCannotBeRead)
{
    EXPECT_EQ(importBill(QStringLiteral("nowhere.x83")).error,
        QStringLiteral("nowhere.x83: there is no such file"));
    EXPECT_EQ(importBill(QStringLiteral(KVX_TEST_DATA)).error,
        QStringLiteral(KVX_TEST_DATA ": this is not a file"));
}

namespace {

QFileInfoList samplesIn(const QString &folder)
{
    return QDir(folder).entryInfoList(
        { QStringLiteral("*.x83"), QStringLiteral("*.x84") }, QDir::Files);
}

} // namespace

TEST(GaebImport, ReadsEachOfOurOwnSamples)
{
    for (const char *folder : { KVX_TEST_DATA, KVX_DEMO_DATA }) {
        const QFileInfoList samples = samplesIn(QString::fromUtf8(folder));
        EXPECT_FALSE(samples.isEmpty()) << folder;
        for (const QFileInfo &file : samples) {
            const ImportResult result = importBill(file.filePath());
            ASSERT_TRUE(result.bill) << result.error.toStdString();
            EXPECT_FALSE(result.bill->items.empty()) << file.filePath().toStdString();
        }
    }
}

/// Every .x83 and .x84 file of the folder named by KVX_GAEB_SAMPLES gives a bill or an error that
/// names the line.
TEST(GaebImport, ReadsOrExplainsEverySample)
{
    const QString folder = qEnvironmentVariable("KVX_GAEB_SAMPLES", QStringLiteral(KVX_TEST_DATA));
    const QFileInfoList samples = samplesIn(folder);
    EXPECT_FALSE(samples.isEmpty()) << folder.toStdString() << " holds no .x83 or .x84 file";
    for (const QFileInfo &file : samples) {
        const ImportResult result = importBill(file.filePath());
        if (result.bill) {
            EXPECT_FALSE(result.bill->items.empty()) << file.filePath().toStdString();
        } else {
            EXPECT_TRUE(result.error.contains(QLatin1String(", line ")))
                << result.error.toStdString();
            RecordProperty(file.fileName().toStdString(), result.error.toStdString());
        }
    }
}
