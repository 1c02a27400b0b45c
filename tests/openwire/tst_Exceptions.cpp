#include <activemq/library/ActiveMQCPP.h>
#include <cms/CMSSecurityException.h>
#include <cms/ConnectionFactory.h>

#include <gmock/gmock.h>

#include <memory>
#include <sstream>
#include <stdexcept>

TEST(Exceptions, textCauseAndMarks)
{
    cms::CMSSecurityException ex("no", new std::runtime_error("why"));
    EXPECT_STREQ(ex.what(), "no");
    EXPECT_EQ(ex.getMessage(), "no");
    ASSERT_TRUE(ex.getCause());
    EXPECT_STREQ(ex.getCause()->what(), "why");
    ex.setMark("file.cpp", 7);
    EXPECT_EQ(ex.getStackTrace().size(), 1u);
    std::ostringstream out;
    ex.printStackTrace(out);
    EXPECT_EQ(out.str(), "no\n\tFILE: file.cpp, LINE: 7\n");
}

TEST(Exceptions, copyTakesTheCauseAlong)
{
    cms::CMSException ex("text", new std::runtime_error("why"));
    const cms::CMSException copy(ex);
    EXPECT_FALSE(ex.getCause());
    EXPECT_STREQ(copy.getCause()->what(), "why");
    EXPECT_EQ(copy.getMessage(), ex.getMessage());
}

TEST(Exceptions, cloneKeepsTheClass)
{
    cms::CMSSecurityException ex("no");
    cms::CMSException &base = ex;
    const std::unique_ptr<cms::CMSException> copy(base.clone());
    EXPECT_TRUE(dynamic_cast<cms::CMSSecurityException *>(copy.get()));
}

TEST(Library, setUpAndShutDownMayBeRepeatedAndObjectsMayOutliveThem)
{
    activemq::library::ActiveMQCPP::initializeLibrary();
    activemq::library::ActiveMQCPP::initializeLibrary(0, nullptr);
    const std::unique_ptr<cms::ConnectionFactory> factory(
        cms::ConnectionFactory::createCMSConnectionFactory("tcp://127.0.0.1:1"));
    activemq::library::ActiveMQCPP::shutdownLibrary();
    activemq::library::ActiveMQCPP::shutdownLibrary();
    EXPECT_THROW(factory->createConnection(), cms::CMSException);
}
