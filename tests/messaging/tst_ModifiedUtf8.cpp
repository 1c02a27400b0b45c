#include "messaging/ModifiedUtf8.h"

#include <QString>
#include <gtest/gtest.h>
#include <random>

using kvx::fromModifiedUtf8;

namespace {

/// As Java writes it.
std::string toModifiedUtf8(const QString &text)
{
    std::string out;
    for (const QChar character : text) {
        const unsigned code = character.unicode();
        if (code != 0 && code < 0x80) {
            out += char(code);
        } else if (code < 0x800) {
            out += char(0xC0 | (code >> 6));
            out += char(0x80 | (code & 0x3F));
        } else {
            out += char(0xE0 | (code >> 12));
            out += char(0x80 | ((code >> 6) & 0x3F));
            out += char(0x80 | (code & 0x3F));
        }
    }
    return out;
}

QString randomText(std::mt19937 &random)
{
    QString text;
    const int length = int(random() % 40);
    for (int i = 0; i < length; ++i) {
        static const unsigned limits[] = { 0x1, 0x80, 0x800, 0xD800, 0x110000 };
        auto code = unsigned(random() % limits[random() % 5]);
        if (code >= 0xD800 && code <= 0xDFFF)
            code -= 0x1000;
        text += QString::fromUcs4(&code, 1);
    }
    return text;
}

} // namespace

TEST(ModifiedUtf8, validUtf8PassesUnchanged)
{
    for (const char *text : { "", "plain", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
             "\xED\x9F\xBF", "\xEE\x80\x80", "\xEF\xBF\xBD", "\xF4\x8F\xBF\xBF" })
        EXPECT_EQ(fromModifiedUtf8(text), text);
}

TEST(ModifiedUtf8, nulAndSurrogatesAreConverted)
{
    EXPECT_EQ(fromModifiedUtf8("a\xC0\x80z"), std::string("a\0z", 3));
    EXPECT_EQ(fromModifiedUtf8("\xED\xA0\xBD\xED\xB8\x80"), "\xF0\x9F\x98\x80");
    EXPECT_EQ(fromModifiedUtf8("\xED\xA0\x80\xED\xB0\x80"), "\xF0\x90\x80\x80"); // U+10000
    EXPECT_EQ(fromModifiedUtf8("\xED\xAF\xBF\xED\xBF\xBF"), "\xF4\x8F\xBF\xBF"); // U+10FFFF
    EXPECT_EQ(fromModifiedUtf8("\xED\xA0\xBD\xED\xB8\x80\xED\xA0\xBD\xED\xB8\x81"),
        "\xF0\x9F\x98\x80\xF0\x9F\x98\x81");
}

TEST(ModifiedUtf8, brokenTextStaysAsItIs)
{
    for (const char *text :
        { "\xC0", "\xC0\x81", "\xED", "\xED\xA0", "\xED\xA0\xBD", "\xED\xA0\xBDx",
            "\xED\xA0\xBD\xED", "\xED\xA0\xBD\xED\xB8", "\xED\xB8\x80", "\xED\xB8\x80\xED\xA0\xBD",
            "\xED\xA0\xBD\xED\xA0\xBD", "\xED\xA0\x20\xED\xB8\x80", "\xFF\xFE", "\x80" })
        EXPECT_EQ(fromModifiedUtf8(text), text);
}

TEST(ModifiedUtf8, whatJavaWritesReadsBack)
{
    std::mt19937 random(11);
    for (int i = 0; i < 20000; ++i) {
        const QString text = randomText(random);
        ASSERT_EQ(QString::fromStdString(fromModifiedUtf8(toModifiedUtf8(text))), text);
        ASSERT_EQ(fromModifiedUtf8(text.toStdString()), text.toStdString());
    }
}

TEST(ModifiedUtf8, randomBytesAreRead)
{
    std::mt19937 random(13);
    for (int i = 0; i < 20000; ++i) {
        std::string text(random() % 12, ' ');
        for (char &byte : text)
            byte = char(random() % 3 ? 0xA0 + random() % 0x60 : random());
        EXPECT_LE(fromModifiedUtf8(text).size(), text.size());
    }
}
