#include <KVXCollaboration/KVXErrorCode.h>

#include <gtest/gtest.h>

TEST(ErrorCodeToString, GivesTheSentence)
{
    EXPECT_EQ(ErrorCodeToString(KVXOk), QStringLiteral("Done."));
    EXPECT_EQ(ErrorCodeToString(KVXBusy),
        QStringLiteral("The server is busy. Please try again in a moment."));
    EXPECT_EQ(ErrorCodeToString(KVXRolesChanged),
        QStringLiteral("The roles were changed meanwhile. Load them again."));
}

TEST(ErrorCodeToString, ShowsWhatOnlyTheServerKnowsAsAnEllipsis)
{
    const QString ellipsis(QChar(0x2026));
    EXPECT_EQ(ErrorCodeToString(KVXLoginRefused),
        QStringLiteral("E-mail or password is wrong. Tries left: %1.").arg(ellipsis));
    EXPECT_EQ(ErrorCodeToString(KVXGlobalLockHeld),
        QStringLiteral("This is locked by %1 until %1.").arg(ellipsis));
}

TEST(ErrorCodeToString, EverySentenceOfTheListIsComplete)
{
    int known = 0;
    for (int code = -10; code < 1000; ++code) {
        const QString text = ErrorCodeToString(static_cast<KVXErrorCode>(code));
        EXPECT_TRUE(text.endsWith(QLatin1Char('.'))) << code;
        EXPECT_FALSE(text.contains(QLatin1Char('%'))) << code;
        known += text.startsWith(QStringLiteral("Unknown result")) ? 0 : 1;
    }
    EXPECT_EQ(known, 60);
}

TEST(ErrorCodeToString, NamesTheNumberOfAnUnknownResult)
{
    EXPECT_EQ(ErrorCodeToString(static_cast<KVXErrorCode>(999)),
        QStringLiteral("Unknown result (number 999)."));
    EXPECT_EQ(ErrorCodeToString(static_cast<KVXErrorCode>(-7)),
        QStringLiteral("Unknown result (number -7)."));
}
