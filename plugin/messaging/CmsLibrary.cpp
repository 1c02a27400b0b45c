#include "messaging/CmsLibrary.h"

#include <activemq/library/ActiveMQCPP.h>
#include <mutex>

namespace kvx {

namespace {

struct LibraryUsers {
    std::mutex mutex;
    int count = 0;
};

LibraryUsers &libraryUsers()
{
    static LibraryUsers &instance = *new LibraryUsers; // a late close may outlive the statics
    return instance;
}

} // namespace

CmsLibrary::CmsLibrary()
{
    LibraryUsers &users = libraryUsers();
    const std::lock_guard<std::mutex> lock(users.mutex);
    if (users.count++ == 0)
        activemq::library::ActiveMQCPP::initializeLibrary();
}

CmsLibrary::~CmsLibrary()
{
    LibraryUsers &users = libraryUsers();
    const std::lock_guard<std::mutex> lock(users.mutex);
    if (--users.count == 0)
        activemq::library::ActiveMQCPP::shutdownLibrary();
}

} // namespace kvx
